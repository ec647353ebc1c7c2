#ifndef P_LINE_H
#define P_LINE_H
/* One line of a resource file, as read from it or as added to it for saving.

   Ownership: a line belongs to its file's list (its father is the file) and owns its
   `value`. It does not own `attached`, but the two are tied: destroying a line whose
   attached item is an ident destroys that ident (it is unlinked from its tool, and the
   other lines of its definition go with it); destroying a line whose attached item is a
   comment only makes the comment forget the line. */

#include "resource/p_item.h"
#include "resource/p_string.h"

class T_resource_line : public T_resource_item
{
public:
    /* 1 for the first line of the file. */
    uint32_t number;
    /* The text of the line, without its '\n'. */
    T_resource_string *value;
    /* The ident defined on this line (on each line of a continued definition), the comment
       of a comment line, or null. */
    T_resource_item *attached;

    /* Copies `text`; appends the line to (first, last) when both are given. */
    T_resource_line(uint32_t number, const char *text, T_resource_item **first,
                    T_resource_item **last, T_resource_item *father);
    virtual ~T_resource_line();
};

/* Removes `line` from its file and destroys it, leaving its attached item alive: the
   caller has taken over or is destroying that item. */
void remove_line_keeping_item(T_resource_line *line);

/* New heap text (free with delete[]) of the resource line "ZDR*tool*name: value". */
char *new_resource_line_text(const char *tool, const char *name, const char *value);

#endif

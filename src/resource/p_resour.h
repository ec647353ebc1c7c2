#ifndef P_RESOUR_H
#define P_RESOUR_H
/* One resource of a tool: its name, its value, the line that defines it and the comments
   written before that definition.

   Ownership: an ident belongs to its tool's list (father is the tool) and owns its name,
   its value and its comments. Its definition lines stay in their file, but they live and
   die with the ident: destroying the ident removes them from the file (the comment lines
   stay, forgetting their comments), and destroying one of them destroys the ident. All
   lines of a definition are in the same file. */

#include "resource/p_item.h"
#include "resource/p_string.h"

class T_resource_line;

class T_resource_ident : public T_resource_item
{
public:
    T_resource_string *name;
    T_resource_string *value;
    /* The last line of its definition, or null. */
    T_resource_line *line;
    /* Its T_resource_comment items. */
    T_resource_item *first_comment;
    T_resource_item *last_comment;

    /* Copies `ident_name` and `ident_value`; appends the ident to (first, last). */
    T_resource_ident(const char *ident_name, const char *ident_value, T_resource_item **first,
                     T_resource_item **last, T_resource_item *father);
    virtual ~T_resource_ident();

    void set_value(const char *new_value);
    /* Makes `definition` the line of this ident and this ident the item of that line. */
    void attach_line(T_resource_line *definition);
    /* Removes from the file every line of the definition except `keep` (may be null);
       `line` becomes `keep`. */
    void drop_lines(T_resource_line *keep);
    /* Moves every comment of the list (first, last) to the end of this ident's comments. */
    void take_comments(T_resource_item **first, T_resource_item **last);
};

/* Unlinks `ident` from its tool, when it has one, and destroys it. */
void destroy_ident(T_resource_ident *ident);

#endif

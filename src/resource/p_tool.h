#ifndef P_TOOL_H
#define P_TOOL_H
/* The resources of one tool (the middle word of "ZDR*Tool*Name: value").

   Ownership: a tool belongs to the manager's list and owns its name and its idents;
   destroying it destroys every ident, and so removes their definition lines from their
   files. */

#include "resource/p_item.h"
#include "resource/p_string.h"

#include <stdio.h>

class T_resource_ident;
class T_resource_line;

class T_resource_tool : public T_resource_item
{
public:
    T_resource_string *name;
    /* Its T_resource_ident items, one per resource name. */
    T_resource_item *first_ident;
    T_resource_item *last_ident;

    /* Copies `tool_name`; appends the tool to (first, last). */
    T_resource_tool(const char *tool_name, T_resource_item **first, T_resource_item **last,
                    T_resource_item *father);
    virtual ~T_resource_tool();

    /* The ident named `ident_name` (exact, case-sensitive comparison), or null. */
    T_resource_ident *get_resource(const char *ident_name);
    /* Gives resource `ident_name` a copy of `value`, creating the ident when needed.
       With a `line` (the parser), the ident is now defined by that line and its previous
       definition lines leave their file. Without one (a programmatic set), the definition
       line is rewritten in place when it is in the file a save would write, and otherwise
       moved there as a new line; an existing ident without a line is refused with a
       message on stderr. Returns the ident, or null when refused or a text is null. */
    T_resource_ident *set_resource(const char *ident_name, const char *value,
                                   T_resource_line *line);
    /* Destroys the ident named `ident_name`, if any, with its definition lines. */
    void delete_resource(const char *ident_name);
    /* Writes "ZDR*Tool*Name: value" and '\n' for each ident. */
    void print_resources(FILE *out);

private:
    /* `value` may point into the old value, so only the ident's new copy is used here. */
    T_resource_ident *set_from_program(T_resource_ident *ident);
    void append_definition(T_resource_ident *ident);
};

#endif

#ifndef P_MANA_H
#define P_MANA_H
/* The store: up to one resource file per source and the tools with their resources.

   Ownership: the manager owns its three files and its tools. A file and a tool are tied
   through the idents: an ident belongs to its tool, its definition line to a file, and
   destroying either side takes the ident away (see p_resour.h). */

#include "resource/p_file.h"
#include "resource/p_item.h"

#include <stdio.h>

class T_resource_tool;

class T_resource_manager : public T_resource_item
{
public:
    T_resource_file *product_file;
    T_resource_file *user_file;
    T_resource_file *explicit_file;
    /* Its T_resource_tool items, in creation order. */
    T_resource_item *first_tool;
    T_resource_item *last_tool;

    T_resource_manager();
    virtual ~T_resource_manager();

    /* The first tool named `name` (exact comparison); with a null name, the first tool. */
    T_resource_tool *get_tool(const char *name);
    /* Appends a new tool named `name`; null for a null name. */
    T_resource_tool *set_tool(const char *name);
    /* Destroys the tool named `name`; with a null name, the first tool. */
    void delete_tool(const char *name);
    void delete_all_tools();

    /* The file of `source`, or null. */
    T_resource_file *get_file(T_resource_source source);
    /* Makes a file named `name` the file of `source`. A product or user file held before
       is destroyed first; an explicit file held before is kept, lines and all, under the
       new name. Returns the file, or null for a null name or an unknown source. */
    T_resource_file *set_file(const char *name, T_resource_source source);
    /* Destroys the file of `source`, with its lines and the idents defined there. */
    void delete_file(T_resource_source source);

    /* Where new definitions go and what a save writes: the explicit file, else the user
       file, else a new user file named by get_default_user_file(). */
    T_resource_file *get_save_target();

    /* Writes "ZDR*Tool*Name: value" and '\n' for every resource of every tool. */
    void print_resources(FILE *out);

private:
    T_resource_file **file_slot(T_resource_source source);
};

#endif

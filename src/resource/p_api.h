#ifndef P_API_H
#define P_API_H
/* Free functions over the single, process-wide resource manager. Every function does
   nothing and returns null while the manager has not been created. Names and texts are
   NUL-terminated; results that point into the store stay owned by it.

   Precedence: there is one resource per (tool, name). Files are read product, user,
   explicit, and a later definition replaces an earlier one, also within one file. The
   manager is a plain global without locks: fill it before starting threads, then only
   look resources up. */

#include <stdio.h>

class T_resource_manager;

/* Creates the manager, empty; a second call does nothing. The manager is never freed. */
void init_resource_manager(void);
T_resource_manager *get_resource_manager(void);
/* Value of resource `name` of tool `tool` (exact, case-sensitive names; a null tool means
   the first tool), owned by the store; null when absent. */
char *lookup_resource(const char *tool, const char *name);
/* Loads each non-null path as the product, user and explicit file, in that order, and
   defines the resources of its lines. A product or user file replaces the one held
   before, with its resources; a second explicit file is added to the first, and only its
   own lines are analysed. */
void load_resources(const char *product, const char *user, const char *expl);
/* Saves the explicit file, else the user file, else a new user file at
   get_default_user_file(). */
void save_resources(void);
/* Gives resource `name` of tool `tool` a copy of `value`, creating the tool when needed;
   a null tool name means the first tool (nothing happens when there is none). The
   definition goes to the file a save writes (see T_resource_tool::set_resource). */
void set_resource(const char *tool, const char *name, const char *value);
/* Destroys that resource and its definition lines, if present. */
void delete_resource(const char *tool, const char *name);
/* Destroys the tool and its resources; a null name destroys the first tool. */
void delete_tool_resources(const char *tool);
void delete_all_resources(void);
/* Destroy the explicit, user and product file respectively, with their lines; every
   resource currently defined there disappears (no fallback to another file). */
void delete_explicit_resources(void);
void delete_user_resources(void);
void delete_zendrel_resources(void);
/* Prints the version banner of the resource manager on stdout. */
void resource_info(void);
/* Writes "ZDR*Tool*Name: value" and '\n' for every resource. */
void print_resources(FILE *out);
/* New heap string (free with delete[]): $HOME followed by "/.Zendrel"; an unset HOME
   counts as empty. Null, like every function here, without a manager. */
char *get_default_user_file(void);

#endif

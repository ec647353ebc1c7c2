#ifndef P_API_H
#define P_API_H
/* Free functions over the single, process-wide resource manager. Every function does
   nothing and returns null while the manager has not been created. */

#include <stdio.h>

class T_resource_manager;

void init_resource_manager(void);
T_resource_manager *get_resource_manager(void);
/* Value of resource `name` of tool `tool`, owned by the store; null when absent. */
char *lookup_resource(const char *tool, const char *name);
/* Loads each non-null path as the product, user and explicit file, in that order. */
void load_resources(const char *product, const char *user, const char *expl);
void save_resources(void);
void set_resource(const char *tool, const char *name, const char *value);
void delete_resource(const char *tool, const char *name);
void delete_tool_resources(const char *tool);
void delete_all_resources(void);
void delete_explicit_resources(void);
void delete_user_resources(void);
void delete_zendrel_resources(void);
void resource_info(void);
void print_resources(FILE *out);
/* New heap string (free with delete[]): $HOME followed by "/.Zendrel". */
char *get_default_user_file(void);

#endif

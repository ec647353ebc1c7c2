#include "resource/p_api.h"

/* TODO(resource manager): the store lands with its issue. */
void init_resource_manager(void) {}
T_resource_manager *get_resource_manager(void) { return 0; }
char *lookup_resource(const char *, const char *) { return 0; }
void load_resources(const char *, const char *, const char *) {}
void save_resources(void) {}
void set_resource(const char *, const char *, const char *) {}
void delete_resource(const char *, const char *) {}
void delete_tool_resources(const char *) {}
void delete_all_resources(void) {}
void delete_explicit_resources(void) {}
void delete_user_resources(void) {}
void delete_zendrel_resources(void) {}
void resource_info(void) {}
void print_resources(FILE *) {}
char *get_default_user_file(void) { return 0; }

#include "resource/p_api.h"

#include "resource/p_file.h"
#include "resource/p_mana.h"
#include "resource/p_resour.h"
#include "resource/p_synt.h"
#include "resource/p_tool.h"

#include <stdlib.h>
#include <string.h>

#ifndef POVRUN_VERSION
#define POVRUN_VERSION "unknown"
#endif
#ifndef POVRUN_BUILD_ID
#define POVRUN_BUILD_ID "unknown"
#endif

namespace {

T_resource_manager *the_manager = 0;

void load_source(const char *path, T_resource_source source)
{
    T_resource_file *file = the_manager->set_file(path, source);
    if (file == 0)
        return;
    /* A kept explicit file already holds analysed lines: only the new ones are read. */
    T_resource_item *previous_last = file->last_line;
    if (file->load() == 0)
        return;
    T_resource_item *first_new = previous_last == 0 ? file->first_line : previous_last->next;
    syntax_analysis(static_cast<T_resource_line *>(first_new));
}

} // namespace

void init_resource_manager(void)
{
    if (the_manager == 0)
        the_manager = new T_resource_manager();
}

T_resource_manager *get_resource_manager(void)
{
    return the_manager;
}

char *lookup_resource(const char *tool, const char *name)
{
    if (the_manager == 0)
        return 0;
    T_resource_tool *owner = the_manager->get_tool(tool);
    if (owner == 0)
        return 0;
    T_resource_ident *ident = owner->get_resource(name);
    if (ident == 0 || ident->value == 0)
        return 0;
    return ident->value->chars;
}

void load_resources(const char *product, const char *user, const char *expl)
{
    if (the_manager == 0)
        return;
    if (product != 0)
        load_source(product, RESOURCE_SOURCE_PRODUCT);
    if (user != 0)
        load_source(user, RESOURCE_SOURCE_USER);
    if (expl != 0)
        load_source(expl, RESOURCE_SOURCE_EXPLICIT);
}

void save_resources(void)
{
    if (the_manager == 0)
        return;
    T_resource_file *target = the_manager->get_save_target();
    if (target != 0)
        target->save();
}

void set_resource(const char *tool, const char *name, const char *value)
{
    if (the_manager == 0)
        return;
    /* A null tool name means the first tool, as for every other call; only a named
       tool is created when missing. */
    T_resource_tool *owner = the_manager->get_tool(tool);
    if (owner == 0 && tool != 0)
        owner = the_manager->set_tool(tool);
    if (owner != 0)
        owner->set_resource(name, value, 0);
}

void delete_resource(const char *tool, const char *name)
{
    if (the_manager == 0)
        return;
    T_resource_tool *owner = the_manager->get_tool(tool);
    if (owner != 0)
        owner->delete_resource(name);
}

void delete_tool_resources(const char *tool)
{
    if (the_manager != 0)
        the_manager->delete_tool(tool);
}

void delete_all_resources(void)
{
    if (the_manager != 0)
        the_manager->delete_all_tools();
}

void delete_explicit_resources(void)
{
    if (the_manager != 0)
        the_manager->delete_file(RESOURCE_SOURCE_EXPLICIT);
}

void delete_user_resources(void)
{
    if (the_manager != 0)
        the_manager->delete_file(RESOURCE_SOURCE_USER);
}

void delete_zendrel_resources(void)
{
    if (the_manager != 0)
        the_manager->delete_file(RESOURCE_SOURCE_PRODUCT);
}

void resource_info(void)
{
    if (the_manager == 0)
        return;
    printf("- Resource Manager version %s (%s)\n                   %s\n", POVRUN_VERSION,
           POVRUN_BUILD_ID, "Built with povrun, the proof mechanism replayer");
    printf("The following flags have been used : ");
    printf("\n");
    printf("Compiled with gcc version %s\n", __VERSION__);
    printf("Compiled for Windows 32 target\n");
}

void print_resources(FILE *out)
{
    if (the_manager != 0)
        the_manager->print_resources(out);
}

char *get_default_user_file(void)
{
    if (the_manager == 0)
        return 0;
    const char *home = getenv("HOME");
    if (home == 0)
        home = "";
    const char *suffix = "/.Zendrel";
    size_t size = strlen(home) + strlen(suffix) + 1;
    char *name = new char[size];
    snprintf(name, size, "%s%s", home, suffix);
    return name;
}

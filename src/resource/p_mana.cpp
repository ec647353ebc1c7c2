#include "resource/p_mana.h"

#include "resource/p_api.h"
#include "resource/p_tool.h"

T_resource_manager::T_resource_manager()
    : T_resource_item(0, 0, 0), product_file(0), user_file(0), explicit_file(0), first_tool(0),
      last_tool(0)
{
    kind = RESOURCE_KIND_MANAGER;
}

T_resource_manager::~T_resource_manager()
{
    delete_file(RESOURCE_SOURCE_PRODUCT);
    delete_file(RESOURCE_SOURCE_USER);
    delete_file(RESOURCE_SOURCE_EXPLICIT);
    delete_all_tools();
}

T_resource_tool *T_resource_manager::get_tool(const char *name)
{
    if (name == 0)
        return static_cast<T_resource_tool *>(first_tool);
    T_resource_string wanted(name);
    for (T_resource_item *item = first_tool; item != 0; item = item->next) {
        T_resource_tool *tool = static_cast<T_resource_tool *>(item);
        if (tool->name->compare(&wanted))
            return tool;
    }
    return 0;
}

T_resource_tool *T_resource_manager::set_tool(const char *name)
{
    if (name == 0)
        return 0;
    return new T_resource_tool(name, &first_tool, &last_tool, this);
}

void T_resource_manager::delete_tool(const char *name)
{
    T_resource_tool *tool = get_tool(name);
    if (tool != 0)
        delete_item(tool, &first_tool, &last_tool);
}

void T_resource_manager::delete_all_tools()
{
    delete_list(&first_tool, &last_tool);
}

T_resource_file **T_resource_manager::file_slot(T_resource_source source)
{
    switch (source) {
    case RESOURCE_SOURCE_PRODUCT:
        return &product_file;
    case RESOURCE_SOURCE_USER:
        return &user_file;
    case RESOURCE_SOURCE_EXPLICIT:
        return &explicit_file;
    }
    return 0;
}

T_resource_file *T_resource_manager::get_file(T_resource_source source)
{
    T_resource_file **slot = file_slot(source);
    return slot == 0 ? 0 : *slot;
}

T_resource_file *T_resource_manager::set_file(const char *name, T_resource_source source)
{
    T_resource_file **slot = file_slot(source);
    if (name == 0 || slot == 0)
        return 0;
    if (source == RESOURCE_SOURCE_EXPLICIT && *slot != 0) {
        (*slot)->set_name(name);
        return *slot;
    }
    /* Built before the old file goes: `name` may be that file's own name. */
    T_resource_file *file = new T_resource_file(name, source, 0, 0, this);
    delete_file(source);
    *slot = file;
    return file;
}

void T_resource_manager::delete_file(T_resource_source source)
{
    T_resource_file **slot = file_slot(source);
    if (slot == 0 || *slot == 0)
        return;
    /* The slot is emptied first: while the file dies, nothing must still reach it. */
    T_resource_file *file = *slot;
    *slot = 0;
    delete_item(file, 0, 0);
}

T_resource_file *T_resource_manager::get_save_target()
{
    if (explicit_file != 0)
        return explicit_file;
    if (user_file != 0)
        return user_file;
    char *name = get_default_user_file();
    T_resource_file *file = set_file(name, RESOURCE_SOURCE_USER);
    delete[] name;
    return file;
}

void T_resource_manager::print_resources(FILE *out)
{
    for (T_resource_item *item = first_tool; item != 0; item = item->next)
        static_cast<T_resource_tool *>(item)->print_resources(out);
}

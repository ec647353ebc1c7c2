#include "resource/p_tool.h"

#include "resource/p_api.h"
#include "resource/p_file.h"
#include "resource/p_line.h"
#include "resource/p_mana.h"
#include "resource/p_resour.h"

#include <string.h>

T_resource_tool::T_resource_tool(const char *tool_name, T_resource_item **first,
                                 T_resource_item **last, T_resource_item *owner)
    : T_resource_item(first, last, owner), name(new T_resource_string(tool_name)), first_ident(0),
      last_ident(0)
{
    kind = RESOURCE_KIND_TOOL;
}

T_resource_tool::~T_resource_tool()
{
    delete_list(&first_ident, &last_ident);
    delete name;
}

T_resource_ident *T_resource_tool::get_resource(const char *ident_name)
{
    if (ident_name == 0)
        return 0;
    T_resource_string wanted(ident_name);
    for (T_resource_item *item = first_ident; item != 0; item = item->next) {
        T_resource_ident *ident = static_cast<T_resource_ident *>(item);
        if (ident->name->compare(&wanted))
            return ident;
    }
    return 0;
}

T_resource_ident *T_resource_tool::set_resource(const char *ident_name, const char *value,
                                                T_resource_line *line)
{
    if (ident_name == 0 || value == 0)
        return 0;
    T_resource_ident *ident = get_resource(ident_name);
    if (ident == 0) {
        ident = new T_resource_ident(ident_name, value, &first_ident, &last_ident, this);
        if (line != 0)
            ident->attach_line(line);
        else
            append_definition(ident);
        return ident;
    }
    ident->set_value(value);
    if (line == 0)
        return set_from_program(ident);
    if (ident->line != line) {
        ident->drop_lines(line);
        ident->attach_line(line);
    }
    return ident;
}

T_resource_ident *T_resource_tool::set_from_program(T_resource_ident *ident)
{
    if (ident->line == 0) {
        fprintf(stderr, "Resource \"%s\" sans ligne rattachee", ident->name->chars);
        return 0;
    }
    T_resource_manager *manager = get_resource_manager();
    T_resource_item *file = ident->line->father;
    bool in_save_target = manager != 0 && file != 0 &&
                          (file == manager->explicit_file ||
                           (file == manager->user_file && manager->explicit_file == 0));
    if (!in_save_target) {
        ident->drop_lines(0);
        append_definition(ident);
        return ident;
    }
    /* A continued definition collapses into its last line, which gets the new text. */
    ident->drop_lines(ident->line);
    char *text = new_resource_line_text(name->chars, ident->name->chars, ident->value->chars);
    ident->line->value->init_string(text, strlen(text));
    delete[] text;
    return ident;
}

void T_resource_tool::append_definition(T_resource_ident *ident)
{
    T_resource_manager *manager = get_resource_manager();
    T_resource_file *target = manager == 0 ? 0 : manager->get_save_target();
    if (target == 0)
        return;
    char *text = new_resource_line_text(name->chars, ident->name->chars, ident->value->chars);
    ident->attach_line(target->set_line(target->next_line_number(), text));
    delete[] text;
}

void T_resource_tool::delete_resource(const char *ident_name)
{
    T_resource_ident *ident = get_resource(ident_name);
    if (ident != 0)
        delete_item(ident, &first_ident, &last_ident);
}

void T_resource_tool::print_resources(FILE *out)
{
    for (T_resource_item *item = first_ident; item != 0; item = item->next) {
        T_resource_ident *ident = static_cast<T_resource_ident *>(item);
        char *text = new_resource_line_text(name->chars, ident->name->chars, ident->value->chars);
        fprintf(out, "%s\n", text);
        delete[] text;
    }
}

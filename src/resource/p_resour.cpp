#include "resource/p_resour.h"

#include "resource/p_comm.h"
#include "resource/p_file.h"
#include "resource/p_line.h"
#include "resource/p_tool.h"

#include <string.h>

T_resource_ident::T_resource_ident(const char *ident_name, const char *ident_value,
                                   T_resource_item **first, T_resource_item **last,
                                   T_resource_item *owner)
    : T_resource_item(first, last, owner), name(new T_resource_string(ident_name)),
      value(new T_resource_string(ident_value)), line(0), first_comment(0), last_comment(0)
{
    kind = RESOURCE_KIND_IDENT;
}

T_resource_ident::~T_resource_ident()
{
    drop_lines(0);
    delete_list(&first_comment, &last_comment);
    delete name;
    delete value;
}

void T_resource_ident::set_value(const char *new_value)
{
    value->init_string(new_value, strlen(new_value));
}

void T_resource_ident::attach_line(T_resource_line *definition)
{
    line = definition;
    definition->attached = this;
}

void T_resource_ident::drop_lines(T_resource_line *keep)
{
    T_resource_line *last = line;
    line = keep;
    if (last == 0)
        return;
    /* `last` may itself be the line being destroyed, already out of the list, so the other
       lines are found by scanning its file rather than by walking back from it. */
    T_resource_item *owner = last->father;
    if (owner == 0 || owner->kind != RESOURCE_KIND_FILE) {
        if (last != keep && last->attached == this)
            remove_line_keeping_item(last);
        return;
    }
    T_resource_file *file = static_cast<T_resource_file *>(owner);
    T_resource_item *item = file->first_line;
    while (item != 0) {
        T_resource_line *candidate = static_cast<T_resource_line *>(item);
        item = item->next;
        if (candidate != keep && candidate->attached == this)
            remove_line_keeping_item(candidate);
    }
}

void T_resource_ident::take_comments(T_resource_item **first, T_resource_item **last)
{
    while (*first != 0) {
        T_resource_comment *comment = static_cast<T_resource_comment *>(*first);
        unlink_item(comment, first, last);
        append_item(comment, &first_comment, &last_comment);
        comment->father = this;
        comment->ident = this;
    }
}

void destroy_ident(T_resource_ident *ident)
{
    T_resource_item *owner = ident->father;
    if (owner != 0 && owner->kind == RESOURCE_KIND_TOOL) {
        T_resource_tool *tool = static_cast<T_resource_tool *>(owner);
        delete_item(ident, &tool->first_ident, &tool->last_ident);
        return;
    }
    delete_item(ident, 0, 0);
}

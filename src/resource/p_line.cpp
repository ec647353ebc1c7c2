#include "resource/p_line.h"

#include "resource/p_comm.h"
#include "resource/p_file.h"
#include "resource/p_mark.h"
#include "resource/p_resour.h"

#include <stdio.h>
#include <string.h>

T_resource_line::T_resource_line(uint32_t line_number, const char *text, T_resource_item **first,
                                 T_resource_item **last, T_resource_item *owner)
    : T_resource_item(first, last, owner), number(line_number), value(new T_resource_string(text)),
      attached(0)
{
    kind = RESOURCE_KIND_LINE;
}

T_resource_line::~T_resource_line()
{
    /* Cleared first so that the ident, while it drops the lines of its definition, does
       not come back to this one. */
    T_resource_item *item = attached;
    attached = 0;
    if (item != 0 && item->kind == RESOURCE_KIND_IDENT)
        destroy_ident(static_cast<T_resource_ident *>(item));
    else if (item != 0 && item->kind == RESOURCE_KIND_COMMENT)
        static_cast<T_resource_comment *>(item)->line = 0;
    delete value;
}

void remove_line_keeping_item(T_resource_line *line)
{
    line->attached = 0;
    T_resource_item *owner = line->father;
    if (owner != 0 && owner->kind == RESOURCE_KIND_FILE) {
        T_resource_file *file = static_cast<T_resource_file *>(owner);
        delete_item(line, &file->first_line, &file->last_line);
        return;
    }
    delete_item(line, 0, 0);
}

char *new_resource_line_text(const char *tool, const char *name, const char *value)
{
    const char *mark = get_RESOURCE_MARK_RESOURCE();
    /* mark, '*', tool, '*', name, ':', ' ', value and the terminator */
    size_t size = strlen(mark) + strlen(tool) + strlen(name) + strlen(value) + 5;
    char *text = new char[size];
    snprintf(text, size, "%s%c%s%c%s%c%c%s", mark, get_RESOURCE_MARK_STAR(), tool,
             get_RESOURCE_MARK_STAR(), name, get_RESOURCE_MARK_COLON(), get_RESOURCE_MARK_SPACE(),
             value);
    return text;
}

#include "resource/p_synt.h"

#include "resource/p_comm.h"
#include "resource/p_file.h"
#include "resource/p_line.h"
#include "resource/p_mana.h"
#include "resource/p_api.h"
#include "resource/p_mark.h"
#include "resource/p_resour.h"
#include "resource/p_tool.h"

#include <stdio.h>
#include <string.h>

namespace {

/* The pieces of a resource line, pointing into the line texts. */
struct T_parsed_resource
{
    const char *tool;
    size_t tool_length;
    const char *name;
    size_t name_length;
    const char *value;
    size_t value_length;
    T_resource_line *first_line;
    T_resource_line *last_line;
};

bool is_blank(char c)
{
    return c == get_RESOURCE_MARK_SPACE() || c == get_RESOURCE_MARK_TAB();
}

bool is_separator(char c)
{
    return c == get_RESOURCE_MARK_STAR() || c == get_RESOURCE_MARK_POINT();
}

const char *skip_blanks(const char *text)
{
    while (is_blank(*text))
        ++text;
    return text;
}

const char *skip_blanks_and_returns(const char *text)
{
    while (is_blank(*text) || *text == get_RESOURCE_MARK_RETURN())
        ++text;
    return text;
}

T_resource_line *next_line(T_resource_line *line)
{
    return static_cast<T_resource_line *>(line->next);
}

const char *file_name_of(const T_resource_line *line)
{
    const T_resource_item *owner = line->father;
    if (owner != 0 && owner->kind == RESOURCE_KIND_FILE)
        return static_cast<const T_resource_file *>(owner)->name->chars;
    return "";
}

void report(const T_resource_line *line, const char *message)
{
    fprintf(stderr, "%s:%d: Resource syntax error: %s\n", file_name_of(line),
            static_cast<int>(line->number), message);
}

/* A line without the mark is kept for the save but defines nothing; a user who wrote
   "Proof*z3: PATH" or "z3: PATH" would otherwise never learn why the tool is not found. */
void report_ignored(const T_resource_line *line)
{
    fprintf(stderr, "%s:%d: Resource line ignored: it does not start with %s*Section*Name: value\n",
            file_name_of(line), static_cast<int>(line->number), get_RESOURCE_MARK_RESOURCE());
}

bool is_resource_line(const char *text)
{
    const char *mark = get_RESOURCE_MARK_RESOURCE();
    size_t mark_length = strlen(mark);
    return strncmp(text, mark, mark_length) == 0 && is_separator(text[mark_length]);
}

/* Reads tool, name and the start of the value from a resource line (after its leading
   blanks); returns the error message, or null. */
const char *parse_head(const char *text, T_parsed_resource *parsed)
{
    const char *tool = text + strlen(get_RESOURCE_MARK_RESOURCE()) + 1;
    const char *end = tool;
    while (*end != get_RESOURCE_MARK_ENDLINE() && !is_separator(*end))
        ++end;
    if (*end == get_RESOURCE_MARK_ENDLINE())
        return "tool name not found";
    parsed->tool = tool;
    parsed->tool_length = static_cast<size_t>(end - tool);

    parsed->name = end + 1;
    const char *colon = strchr(parsed->name, get_RESOURCE_MARK_COLON());
    if (colon == 0)
        return "resource name or colon not found";
    parsed->name_length = static_cast<size_t>(colon - parsed->name);

    parsed->value = skip_blanks(colon + 1);
    if (*parsed->value == get_RESOURCE_MARK_ENDLINE())
        return "resource value not found";
    return 0;
}

/* Follows '\' continuations from the first line; sets the value and the last line. */
void parse_value(T_parsed_resource *parsed)
{
    T_resource_line *line = parsed->first_line;
    const char *value = parsed->value;
    while (*value == get_RESOURCE_MARK_NEXTLINE()) {
        T_resource_line *next = next_line(line);
        /* The file ends (or a line already taken follows): the value stops here. */
        if (next == 0 || next->attached != 0) {
            value = value + strlen(value);
            break;
        }
        line = next;
        value = skip_blanks(line->value->chars);
    }
    size_t length = strlen(value);
    while (length > 0 && is_blank(value[length - 1]))
        --length;
    if (length > 0 && value[length - 1] == get_RESOURCE_MARK_NEXTLINE())
        --length;
    parsed->value = value;
    parsed->value_length = length;
    parsed->last_line = line;
}

/* Defines the parsed resource in the manager; returns its ident, or null. */
T_resource_ident *define(const T_parsed_resource *parsed)
{
    T_resource_manager *manager = get_resource_manager();
    if (manager == 0)
        return 0;
    T_resource_string tool(parsed->tool, parsed->tool_length);
    T_resource_string name(parsed->name, parsed->name_length);
    T_resource_string value(parsed->value, parsed->value_length);
    T_resource_tool *owner = manager->get_tool(tool.chars);
    if (owner == 0)
        owner = manager->set_tool(tool.chars);
    if (owner == 0)
        return 0;
    return owner->set_resource(name.chars, value.chars, parsed->last_line);
}

/* Analyses the resource line `line`; returns the last line it used. */
T_resource_line *analyse_resource(T_resource_line *line, const char *text,
                                  T_resource_item **first_pending, T_resource_item **last_pending)
{
    T_parsed_resource parsed;
    memset(&parsed, 0, sizeof parsed);
    const char *error = parse_head(text, &parsed);
    if (error != 0) {
        report(line, error);
        return line;
    }
    parsed.first_line = line;
    parse_value(&parsed);
    T_resource_ident *ident = define(&parsed);
    if (ident == 0)
        return parsed.last_line;
    for (T_resource_line *used = parsed.first_line;; used = next_line(used)) {
        used->attached = ident;
        if (used == parsed.last_line)
            break;
    }
    ident->line = parsed.last_line;
    ident->take_comments(first_pending, last_pending);
    return parsed.last_line;
}

} // namespace

void syntax_analysis(T_resource_line *first)
{
    /* Comments wait here for the next resource; those left at the end belong to none. */
    T_resource_item *first_pending = 0;
    T_resource_item *last_pending = 0;
    for (T_resource_line *line = first; line != 0; line = next_line(line)) {
        if (line->attached != 0)
            continue;
        const char *text = skip_blanks_and_returns(line->value->chars);
        if (*text == get_RESOURCE_MARK_ENDLINE())
            continue;
        if (*text == get_RESOURCE_MARK_COMMENT()) {
            new T_resource_comment(line, &first_pending, &last_pending, 0);
            continue;
        }
        if (!is_resource_line(text)) {
            report_ignored(line);
            continue;
        }
        line = analyse_resource(line, text, &first_pending, &last_pending);
    }
    delete_list(&first_pending, &last_pending);
}

#include "resource/p_string.h"

#include "resource/p_mark.h"

#include <string.h>

T_resource_string::T_resource_string(const char *text) : length(0), chars(0)
{
    init_string(text, text == 0 ? 0 : strlen(text));
}

T_resource_string::T_resource_string(const char *text, uint64_t text_length) : length(0), chars(0)
{
    init_string(text, text_length);
}

T_resource_string::~T_resource_string()
{
    delete[] chars;
}

void T_resource_string::init_string(const char *text, uint64_t text_length)
{
    char *copy = new char[text_length + 1];
    if (text_length > 0)
        memcpy(copy, text, text_length);
    copy[text_length] = get_RESOURCE_MARK_ENDLINE();
    /* The old text is freed only now: `text` may point into it. */
    delete[] chars;
    chars = copy;
    length = text_length;
}

bool T_resource_string::compare(const T_resource_string *other) const
{
    if (other == 0 || other->length != length)
        return false;
    return strcmp(chars, other->chars) == 0;
}

void T_resource_string::print(FILE *out) const
{
    fputs(chars, out);
}

char *string_copy(const T_resource_string *string)
{
    char *copy = new char[string->length + 1];
    memcpy(copy, string->chars, string->length + 1);
    return copy;
}

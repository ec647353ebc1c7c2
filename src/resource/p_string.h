#ifndef P_STRING_H
#define P_STRING_H
/* Counted string used by every resource object. */

#include <stdint.h>
#include <stdio.h>

class T_resource_string
{
public:
    /* Number of characters, without the terminator. */
    uint64_t length;
    /* Heap copy of the text, NUL-terminated, owned by this object (freed with delete[]). */
    char *chars;

    /* Copies a NUL-terminated text (a null text gives the empty string). */
    explicit T_resource_string(const char *text);
    /* Copies `length` characters of `text` and terminates the copy. */
    T_resource_string(const char *text, uint64_t length);
    virtual ~T_resource_string();

    /* Replaces the text by a copy of `length` characters of `text`. */
    void init_string(const char *text, uint64_t length);
    /* True only when both lengths and both texts are equal (case-sensitive). */
    bool compare(const T_resource_string *other) const;
    /* Writes the text, without a newline. */
    void print(FILE *out) const;

private:
    T_resource_string(const T_resource_string &);
    T_resource_string &operator=(const T_resource_string &);
};

/* New heap string (free with delete[]) holding a copy of the text of `string`. */
char *string_copy(const T_resource_string *string);

#endif

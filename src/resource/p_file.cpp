#include "resource/p_file.h"

#include "resource/p_mark.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

T_resource_file::T_resource_file(const char *file_name, T_resource_source file_source,
                                 T_resource_item **first, T_resource_item **last,
                                 T_resource_item *owner)
    : T_resource_item(first, last, owner), name(new T_resource_string(file_name)),
      source(file_source), first_line(0), last_line(0)
{
    kind = RESOURCE_KIND_FILE;
}

T_resource_file::~T_resource_file()
{
    delete_list(&first_line, &last_line);
    delete name;
}

T_resource_line *T_resource_file::get_line(uint32_t number)
{
    for (T_resource_item *item = first_line; item != 0; item = item->next) {
        T_resource_line *line = static_cast<T_resource_line *>(item);
        if (line->number >= number)
            return line;
    }
    return 0;
}

void T_resource_file::set_name(const char *file_name)
{
    name->init_string(file_name, strlen(file_name));
}

T_resource_line *T_resource_file::set_line(uint32_t number, const char *text)
{
    return new T_resource_line(number, text, &first_line, &last_line, this);
}

void T_resource_file::delete_line(uint32_t number)
{
    for (T_resource_item *item = first_line; item != 0; item = item->next) {
        if (static_cast<T_resource_line *>(item)->number == number) {
            delete_item(item, &first_line, &last_line);
            return;
        }
    }
}

uint32_t T_resource_file::next_line_number() const
{
    if (last_line == 0)
        return 1;
    return static_cast<T_resource_line *>(last_line)->number + 1;
}

T_resource_line *T_resource_file::load()
{
    struct stat status;
    if (stat(name->chars, &status) != 0) {
        fprintf(stderr, "Unable to open resource file %s ", name->chars);
        perror("because");
        return 0;
    }
    if (status.st_size < 1)
        return 0;
    /* fopen accepts a directory here and every read then fails silently: refuse it as
       the open failure it is, so a mistyped -r is reported. */
    if (S_ISDIR(status.st_mode)) {
        errno = EISDIR;
        fprintf(stderr, "Can not open file: %s ", name->chars);
        perror("because");
        return 0;
    }
    FILE *in = s_fopen(name->chars, "r");
    if (in == 0)
        return 0;
    read_lines(in, static_cast<uint64_t>(status.st_size));
    if (fclose(in) != 0) {
        fprintf(stderr, "Can not close file: %s ", name->chars);
        perror("because");
    }
    return get_line(1);
}

void T_resource_file::read_lines(FILE *in, uint64_t size)
{
    /* One line at a time; a line can never hold more than the `size` bytes read. */
    char *buffer = new char[size + 1];
    uint64_t length = 0;
    for (uint64_t count = 0; count < size; ++count) {
        int c = fgetc(in);
        if (c == EOF)
            break;
        if (c != get_RESOURCE_MARK_RETURN()) {
            buffer[length++] = static_cast<char>(c);
            continue;
        }
        buffer[length] = get_RESOURCE_MARK_ENDLINE();
        set_line(next_line_number(), buffer);
        length = 0;
    }
    /* Whatever follows the last '\n' is an unfinished line and is dropped, but said: an
       editor that does not end the file with a newline would otherwise lose a setting
       without a word. */
    if (length > 0)
        fprintf(stderr, "%s:%u: Resource line ignored: the file ends before its newline\n",
                name->chars, static_cast<unsigned>(next_line_number()));
    delete[] buffer;
}

void T_resource_file::save()
{
    size_t size = name->length + 2;
    char *backup = new char[size];
    snprintf(backup, size, "%s%c", name->chars, get_RESOURCE_MARK_TILDA());
    if (rename(name->chars, backup) != 0) {
        fprintf(stderr, "Can rename file: %s in %s ", name->chars, backup);
        perror("because");
    }
    delete[] backup;

    FILE *out = s_fopen(name->chars, "w");
    if (out == 0)
        return;
    write_lines(out);
}

void T_resource_file::write_lines(FILE *out)
{
    for (T_resource_item *item = first_line; item != 0; item = item->next) {
        T_resource_string *text = static_cast<T_resource_line *>(item)->value;
        if (fprintf(out, "%s\n", text->chars) != static_cast<int>(text->length + 1)) {
            /* The stream is deliberately left open: nothing more is attempted on it. */
            fprintf(stderr, "Can not write in file: %s ", name->chars);
            perror("because");
            return;
        }
    }
    if (fclose(out) != 0) {
        fprintf(stderr, "Can not close file: %s ", name->chars);
        perror("because");
    }
}

FILE *s_fopen(const char *file_name, const char *mode)
{
    FILE *stream = fopen(file_name, mode);
    if (stream == 0) {
        fprintf(stderr, "Can not open file: %s ", file_name);
        perror("because");
    }
    return stream;
}

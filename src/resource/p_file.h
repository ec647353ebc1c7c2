#ifndef P_FILE_H
#define P_FILE_H
/* A resource file in memory: its name and every one of its lines, understood or not, so
   that a save rewrites it line for line.

   Ownership: the file owns its name and its lines; destroying it destroys the lines, and
   with them every ident whose current definition is in this file. */

#include "resource/p_item.h"
#include "resource/p_line.h"
#include "resource/p_string.h"

#include <stdio.h>

/* Where a file comes from; a later source overrides an earlier one. */
enum T_resource_source
{
    RESOURCE_SOURCE_PRODUCT = 0,
    RESOURCE_SOURCE_USER = 1,
    RESOURCE_SOURCE_EXPLICIT = 2
};

class T_resource_file : public T_resource_item
{
public:
    T_resource_string *name;
    T_resource_source source;
    /* Its T_resource_line items, in line-number order. */
    T_resource_item *first_line;
    T_resource_item *last_line;

    T_resource_file(const char *file_name, T_resource_source file_source, T_resource_item **first,
                    T_resource_item **last, T_resource_item *father);
    virtual ~T_resource_file();

    /* The first line whose number is at least `number`, or null. */
    T_resource_line *get_line(uint32_t number);
    void set_name(const char *file_name);
    /* Appends a line numbered `number` holding a copy of `text`. */
    T_resource_line *set_line(uint32_t number, const char *text);
    /* Destroys the line numbered `number`, if any (and the ident defined on it). */
    void delete_line(uint32_t number);
    /* Number for a line appended now: one more than the last line, 1 for an empty file. */
    uint32_t next_line_number() const;

    /* Appends the lines of the file on disk, numbered after the lines already held. Only
       lines ended by '\n' count (an unfinished last line is
       dropped with "FILE:N: Resource line ignored: ..." on stderr), and no more bytes are read than
       `stat` reported, so a file that grows meanwhile is read as it was. Returns the first line of
       the file, or null when it cannot be read, a directory included (message on stderr), or is
       empty. */
    T_resource_line *load();
    /* Renames the file on disk to its name followed by '~', then writes every line.
       Failures are reported on stderr; a failed rename does not stop the save. */
    void save();

private:
    void read_lines(FILE *in, uint64_t size);
    void write_lines(FILE *out);
};

/* fopen, with "Can not open file: NAME " and perror on stderr when it fails. */
FILE *s_fopen(const char *file_name, const char *mode);

#endif

#ifndef P_ITEM_H
#define P_ITEM_H
/* Base of every resource object: a member of one intrusive doubly linked list.

   A list is a pair of head pointers (first, last) held by its owner. An item is owned by
   the list it is in: it is destroyed through delete_item or delete_list, which unlink it
   first. Destructors may remove further items from the list being destroyed (a line takes
   its ident, the ident the other lines of its definition); delete_list copes with that. */

#include <stdint.h>

enum T_resource_kind : uint32_t
{
    RESOURCE_KIND_TOOL = 0,
    RESOURCE_KIND_LINE = 1,
    RESOURCE_KIND_FILE = 2,
    RESOURCE_KIND_IDENT = 3,
    RESOURCE_KIND_COMMENT = 4,
    RESOURCE_KIND_MANAGER = 6
};

class T_resource_item
{
public:
    T_resource_kind kind;
    /* The owner of the list this item is in; not owned. */
    T_resource_item *father;
    T_resource_item *prev;
    T_resource_item *next;

    /* When both `first` and `last` are given, appends the new item to that list. */
    T_resource_item(T_resource_item **first, T_resource_item **last, T_resource_item *father);
    virtual ~T_resource_item();

private:
    T_resource_item(const T_resource_item &);
    T_resource_item &operator=(const T_resource_item &);
};

/* Appends `item` (not in any list) to the list (first, last). */
void append_item(T_resource_item *item, T_resource_item **first, T_resource_item **last);
/* Takes `item` out of the list (first, last) without destroying it. */
void unlink_item(T_resource_item *item, T_resource_item **first, T_resource_item **last);
/* Unlinks `item` from the list (first, last), when given, and destroys it. */
void delete_item(T_resource_item *item, T_resource_item **first, T_resource_item **last);
/* Destroys every item of the list (first, last); the list is empty afterwards. */
void delete_list(T_resource_item **first, T_resource_item **last);

#endif

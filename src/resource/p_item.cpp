#include "resource/p_item.h"

T_resource_item::T_resource_item(T_resource_item **first, T_resource_item **last,
                                 T_resource_item *owner)
    : kind(RESOURCE_KIND_TOOL), father(owner), prev(0), next(0)
{
    if (first != 0 && last != 0)
        append_item(this, first, last);
}

T_resource_item::~T_resource_item()
{
}

void append_item(T_resource_item *item, T_resource_item **first, T_resource_item **last)
{
    item->next = 0;
    item->prev = *last;
    if (*last != 0)
        (*last)->next = item;
    else
        *first = item;
    *last = item;
}

void unlink_item(T_resource_item *item, T_resource_item **first, T_resource_item **last)
{
    if (item->prev != 0)
        item->prev->next = item->next;
    else if (*first == item)
        *first = item->next;
    if (item->next != 0)
        item->next->prev = item->prev;
    else if (*last == item)
        *last = item->prev;
    item->prev = 0;
    item->next = 0;
}

void delete_item(T_resource_item *item, T_resource_item **first, T_resource_item **last)
{
    if (item == 0)
        return;
    if (first != 0 && last != 0)
        unlink_item(item, first, last);
    delete item;
}

void delete_list(T_resource_item **first, T_resource_item **last)
{
    /* The head is read again each time: destroying one item may take others with it. */
    while (*first != 0)
        delete_item(*first, first, last);
}

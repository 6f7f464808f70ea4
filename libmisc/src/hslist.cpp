#include "ucfgd/hslist.h"

#include <cstdlib>

namespace {

/* The end, also of a head that has seen nothing but prepending. */
slist_hdr *last_of(const slist_head *head) {
    if (head->last) return head->last;
    slist_hdr *last = head->first;
    while (last && last->next)
        last = last->next;
    return last;
}

void link_behind(slist_head *head, slist_hdr *item) {
    if (slist_hdr *last = last_of(head))
        last->next = item;
    else
        head->first = item;
}

}  // namespace

slist_head *hslist_create(void) {
    return static_cast<slist_head *>(std::calloc(1, sizeof(slist_head)));
}

slist_head *hslist_append(slist_head *head, void *item) {
    auto *record = static_cast<slist_hdr *>(item);
    link_behind(head, record);
    head->last = record;
    return head;
}

slist_head *hslist_append_list(slist_head *head, const slist_head *other) {
    if (!other->first) return head;
    link_behind(head, other->first);
    head->last = other->last;
    return head;
}

slist_head *hslist_prepend(slist_head *head, void *item) {
    auto *record = static_cast<slist_hdr *>(item);
    record->next = head->first;
    head->first = record;
    return head;
}

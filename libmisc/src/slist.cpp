#include "ucfgd/slist.h"

#include <cstring>

/* The records have `next` pointers of their own types, so the links are copied as bytes: reading
 * one through a pointer to another type would be an alias that the compiler may assume away. */

namespace {

void *next_of(const void *record) {
    void *next;
    std::memcpy(&next, record, sizeof next);
    return next;
}

void set_next(void *record, void *next) {
    std::memcpy(record, &next, sizeof next);
}

}  // namespace

void *slist_append(void *first, void *item) {
    if (!first) return item;
    void *last = first;
    while (void *next = next_of(last))
        last = next;
    set_next(last, item);
    return first;
}

void *slist_prepend(void *first, void *item) {
    set_next(item, first);
    return item;
}

void *slist_unlink(void *first, void *item) {
    if (!first || !item) return first;
    if (first == item) return next_of(item);
    for (void *record = first; record; record = next_of(record)) {
        if (next_of(record) != item) continue;
        set_next(record, next_of(item));
        break;
    }
    return first;
}

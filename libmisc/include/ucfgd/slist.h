#ifndef UCFGD_SLIST_H
#define UCFGD_SLIST_H

/* Singly linked lists for every record whose first field is its `next` link.
 *
 *  1. A list is a pointer to its first record; the empty list is null.
 *  2. The functions own nothing: they link and unlink, and free nothing.
 *  3. slist_append walks to the end. Whoever builds a long list keeps its tail instead (hslist.h,
 * or list_builder in owners.h).
 */

#ifdef __cplusplus
extern "C" {
#endif

/* What every listed record begins with. */
struct slist_hdr {
    struct slist_hdr *next;
};

/* Links item behind the last record and returns the head, which is item when first was null. The
 * link of item is not touched: pass records whose next is null. */
void *slist_append(void *first, void *item);

/* Links item before first and returns item. */
void *slist_prepend(void *first, void *item);

/* Takes item out and returns the head, which may be another one now. An item that is not in the
 * list changes nothing. The link of item keeps its value, and nothing is freed. */
void *slist_unlink(void *first, void *item);

#ifdef __cplusplus
}

/* The same without casts. */
template <class record>
inline record *slist_append(record *first, record *item) {
    return static_cast<record *>(
        slist_append(static_cast<void *>(first), static_cast<void *>(item)));
}

template <class record>
inline record *slist_prepend(record *first, record *item) {
    return static_cast<record *>(
        slist_prepend(static_cast<void *>(first), static_cast<void *>(item)));
}

template <class record>
inline record *slist_unlink(record *first, record *item) {
    return static_cast<record *>(
        slist_unlink(static_cast<void *>(first), static_cast<void *>(item)));
}
#endif

#endif

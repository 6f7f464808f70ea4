#ifndef UCFGD_HSLIST_H
#define UCFGD_HSLIST_H

#include "ucfgd/slist.h"

/* Lists with a head record, for those that append often.
 *
 *  1. The head is made by hslist_create and released with free(); the records belong to the caller.
 *  2. Every record begins with its `next` link (slist.h), null when it is appended.
 *  3. hslist_prepend does not look at `last`. After prepending to an empty head `last` is null; the
 *     next append finds the end by walking, once.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct slist_head {
    struct slist_hdr *first;
    struct slist_hdr *last;
};

/* A new empty head; null (errno ENOMEM) when memory is exhausted. */
struct slist_head *hslist_create(void);

/* Links item behind the last record. Returns head. */
struct slist_head *hslist_append(struct slist_head *head, void *item);

/* Links the records of other behind those of head, which must not be empty, and takes over other's
 * last. Other still points at its records and must not be used for appending. Returns head. */
struct slist_head *hslist_append_list(struct slist_head *head, const struct slist_head *other);

/* Links item before the first record. Returns head. */
struct slist_head *hslist_prepend(struct slist_head *head, void *item);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_BACKEND_ITEMS_H
#define UCFGD_BACKEND_ITEMS_H

#ifndef __cplusplus
#    error "items.h is for the backend's own sources"
#endif

#include "backend/llconf_item.h"

/* llconf_item.read_state. A source that is there and could never be read must not be replaced by
 * the empty tree that the item began with. */
enum { k_read_never = 0, k_read_done = 1, k_read_failed = 2 };

/* Which of an item's four hook lists. */
using hook_list = struct fe_node *llconf_item::*;

/* Runs one of the item's hooks, if there is one. The hook may replace its own list: the old one
 * lives until it has returned. Keeps errno. */
void run_hook(llconf_item *lli, hook_list which);

#endif

#ifndef UCFGD_BACKEND_CONTEXTS_H
#define UCFGD_BACKEND_CONTEXTS_H

#include "backend/llconf_item.h"
#include "tree/trns.h"

/* The item lists of the transaction contexts, and what keeps them consistent with each other.
 *
 *  1. A context's list is the data of its item with the id k_ll_trns_id. The root context holds
 *     primary items, every other one shadows of its parent's items.
 *  2. Every list that has shadows is known here, so that an item never leaves before its shadows.
 */

#ifdef __cplusplus
extern "C" {
#endif

enum { k_ll_trns_id = 0x4C4C };

/* The list of a context, owned by it; null for a null context, and when it has none. A copy that
 * was made while its parent had no items gets its shadows now. */
llconf_item *lli_list_from_trns_ctx(trns_ctx *tctx);

/* Appends lli, which belongs to the master context from then on. 0, or -1 (ENOENT) when that
 * context has no backend; lli is still the caller's then. */
int register_llconf_module(llconf_item *lli);

/* Takes lli out of the master context's list, and its shadows out of every other one (those are
 * destroyed); lli itself is the caller's again. 0, also when it was not there; -1 (ENOENT) when the
 * master context has no backend. */
int unregister_llconf_module(llconf_item *lli);

/* Unregisters and destroys lli. 1; 0 when the master context's list does not hold it, and then
 * nothing happens. */
int ll_contexts_release(llconf_item *lli);

/* Gives a copied context its shadows of the parent's list. 0, 1 when the parent has none, -1
 * (ENOMEM) when memory is exhausted. */
int ll_contexts_attach(trns_ctx_item *item, trns_ctx_item *parent);

/* Destroys a context's list, and before it the lists of the contexts copied from it. */
void ll_contexts_detach(trns_ctx_item *item);

#ifdef __cplusplus
}
#endif

#endif

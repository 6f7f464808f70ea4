/* The backend's operations on transaction contexts. */

#include "backend/ll_trns.h"

#include "backend/file_io.h"
#include "daemon/trace.h"

namespace {

llconf_item *list_of(const trns_ctx_item *item) {
    return static_cast<llconf_item *>(item->data);
}

/* The list whose items own the files, when list holds their shadows. */
llconf_item *parent_list(llconf_item *list) {
    return list->item_orig ? list->item_orig : list;
}

int ll_trns_create_ctx(trns_ctx_item * /*item*/) {
    return 0;
}

int ll_trns_destroy_ctx(trns_ctx_item *item) {
    ll_contexts_detach(item);
    return 0;
}

int ll_trns_copy_ctx(trns_ctx_item *item, trns_ctx_item *parent) {
    return ll_contexts_attach(item, parent);
}

int ll_trns_submit_ctx(trns_ctx_item *item) {
    return item->data ? llconf_submit_shadow_list(list_of(item)) : 1;
}

/* Trees of its own go with the context; what it changed in its parent's must not wait for that. */
int ll_trns_cancel_ctx(trns_ctx_item *item) {
    llconf_return_borrowed_trees(list_of(item));
    return 1;
}

int ll_trns_commit_ctx(trns_ctx_item *item) {
    llconf_item *list = list_of(item);
    if (!list) return 1;
    llconf_item *primaries = parent_list(list);
    if (primaries != list) llconf_submit_shadow_list(list);
    return llconf_write_all_cnftrees(primaries);
}

int ll_trns_revert_ctx(trns_ctx_item *item) {
    llconf_item *list = list_of(item);
    if (!list) return 1;
    llconf_item *primaries = parent_list(list);
    if (primaries != list) llconf_revert_shadow_list(list);
    return llconf_revert_all_cnftrees(primaries);
}

int ll_trns_isdirty_ctx(trns_ctx_item *item) {
    for (llconf_item *lli = list_of(item); lli; lli = lli->next) {
        if (!lli->is_dirty) continue;
        trace(3, "%s: %s is dirty.\n", __func__, lli->name);
        return 1;
    }
    return 0;
}

size_t ll_trns_size_ctx(const trns_ctx_item *item) {
    return llconf_shadow_list_size(list_of(item));
}

}  // namespace

trns_interface *ll_register_tctx_interface(void) {
    trns_interface *tiface = register_trns_interface(
        k_ll_trns_id, ll_trns_create_ctx, ll_trns_destroy_ctx, ll_trns_copy_ctx, ll_trns_submit_ctx,
        ll_trns_cancel_ctx, ll_trns_commit_ctx, ll_trns_revert_ctx, ll_trns_isdirty_ctx);
    if (tiface) tiface->size = ll_trns_size_ctx;
    return tiface;
}

int llconf_trns_ctx_serial(void) {
    return trns_get_ctx_serial(g_trns_ctx);
}

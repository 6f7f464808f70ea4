/* The backend's operations on transaction contexts. */

#include "backend/ll_trns.h"

#include <errno.h>
#include <libdaemon/dlog.h>
#include <syslog.h>

#include <cstring>

#include "backend/file_io.h"
#include "backend/items.h"
#include "daemon/trace.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "tree/param_error.h"
#include "ucfgd/owners.h"

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

/* A tree of this size becomes a text within a few milliseconds. */
constexpr size_t k_most_tried = size_t{4} << 20;

int try_tree(const llconf_item *primary, const cnfnode *tree) {
    size_t length = 0;
    const owned_str text{cnfmodule_unparse_text(primary->module, tree, &length)};
    if (text) return 0;
    const int reason = errno;
    const char *why = reason == EINVAL ? cnf_error_text() : std::strerror(reason);
    daemon_log(LOG_ERR, "module '%s' cannot be written: %s", primary->name, why);
    ccd_set_error(why, "error.commit.text");
    ccd_add_error_arg(primary->name);
    return reason;
}

int try_item(llconf_item *lli) {
    const llconf_item *primary = llconf_primary_item(lli);
    if (!lli->is_dirty || !lli->cn_root || lli->delete_me || !primary->module) return 0;
    if (item_means_no_file(record_of(lli))) return 0;
    if ((primary->flags & LLI_FLAG_READONLY) || cnftree_size(lli->cn_root) > k_most_tried) return 0;
    if (!primary->pattern) return try_tree(primary, lli->cn_root);
    for (const cnfnode *member = lli->cn_root->first_child; member; member = member->next) {
        const int reason = cnfnode_is_changed(member) ? try_tree(primary, member) : 0;
        if (reason != 0) return reason;
    }
    return 0;
}

}  // namespace

trns_interface *ll_register_tctx_interface(void) {
    trns_interface *tiface = register_trns_interface(
        k_ll_trns_id, ll_trns_create_ctx, ll_trns_destroy_ctx, ll_trns_copy_ctx, ll_trns_submit_ctx,
        ll_trns_cancel_ctx, ll_trns_commit_ctx, ll_trns_revert_ctx, ll_trns_isdirty_ctx);
    if (tiface) tiface->size = ll_trns_size_ctx;
    return tiface;
}

int llconf_try_ctx(trns_ctx *ctx) {
    for (llconf_item *lli = lli_list_from_trns_ctx(ctx); lli; lli = lli->next)
        if (const int reason = try_item(lli)) return reason;
    return 0;
}

int llconf_trns_ctx_serial(void) {
    return trns_get_ctx_serial(g_trns_ctx);
}

/* The backend's operations on transaction contexts. */

#include "backend/ll_trns.h"

#include <errno.h>
#include <libdaemon/dlog.h>
#include <syslog.h>

#include <cstring>

#include "backend/file_io.h"
#include "backend/items.h"
#include "backend/prepared.h"
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

int ll_trns_differs(const trns_ctx_item *item) {
    for (const llconf_item *lli = list_of(item); lli; lli = lli->next)
        if (lli->cn_root) return 1;
    return 0;
}

/* A tree of this size is tried within a few milliseconds. A larger one is, when no line of its file
 * depends on another, as soon as the fork behind it; any other is read back whole. */
constexpr size_t k_quickly_tried = size_t{4} << 20;

/* Which trees of a context are tried, or that one is looked for that is not tried quickly. */
enum class tree_trial { quick, slow, look };

bool is_tried_quickly(const cnfmodule *module, const cnfnode *tree) {
    return cnfmodule_is_by_lines(module) || cnftree_size(tree) <= k_quickly_tried;
}

int try_tree(const llconf_item *primary, const cnfnode *tree, tree_trial which) {
    if (is_tried_quickly(primary->module, tree) != (which == tree_trial::quick)) return 0;
    if (which == tree_trial::look) return EAGAIN;
    const int reason = prepare_text(primary->module, tree);
    if (reason == 0) return 0;
    const char *why = reason == EINVAL ? cnf_error_text() : std::strerror(reason);
    daemon_log(LOG_ERR, "module '%s' cannot be written: %s", primary->name, why);
    ccd_set_error(why, "error.commit.text");
    ccd_add_error_arg(primary->name);
    return reason;
}

int try_item(llconf_item *lli, tree_trial which) {
    const llconf_item *primary = llconf_primary_item(lli);
    if (!lli->is_dirty || !lli->cn_root || lli->delete_me || !primary->module) return 0;
    if (item_means_no_file(record_of(lli))) return 0;
    if (primary->flags & LLI_FLAG_READONLY) return 0;
    if (!primary->pattern) return try_tree(primary, lli->cn_root, which);
    for (const cnfnode *member = lli->cn_root->first_child; member; member = member->next) {
        const int reason = cnfnode_is_changed(member) ? try_tree(primary, member, which) : 0;
        if (reason != 0) return reason;
    }
    return 0;
}

int try_list(trns_ctx *ctx, tree_trial which) {
    for (llconf_item *lli = lli_list_from_trns_ctx(ctx); lli; lli = lli->next)
        if (const int reason = try_item(lli, which)) return reason;
    return 0;
}

}  // namespace

trns_interface *ll_register_tctx_interface(void) {
    trns_interface *tiface = register_trns_interface(
        k_ll_trns_id, ll_trns_create_ctx, ll_trns_destroy_ctx, ll_trns_copy_ctx, ll_trns_submit_ctx,
        ll_trns_cancel_ctx, ll_trns_commit_ctx, ll_trns_revert_ctx, ll_trns_isdirty_ctx);
    if (!tiface) return nullptr;
    tiface->size = ll_trns_size_ctx;
    tiface->differs = ll_trns_differs;
    return tiface;
}

int llconf_try_ctx(trns_ctx *ctx) {
    forget_prepared_texts();
    const int reason = try_list(ctx, tree_trial::quick);
    if (reason != 0) forget_prepared_texts();
    return reason;
}

int llconf_has_long_try(trns_ctx *ctx) {
    return try_list(ctx, tree_trial::look) != 0 ? 1 : 0;
}

int llconf_try_long(trns_ctx *ctx) {
    return try_list(ctx, tree_trial::slow);
}

void llconf_use_tried(void) {
    use_prepared_texts();
}

void llconf_forget_tried(void) {
    forget_prepared_texts();
}

size_t llconf_files_size(void) {
    off_t size = 0;
    for (llconf_item *lli = lli_list_from_trns_ctx(g_trns_ctx); lli; lli = lli->next) {
        const item_record *item = record_of(lli);
        if (item->seen) size += item->seen->identity.size;
        if (!item->record) continue;
        for (const auto &[name, member] : item->record->members)
            size += member.seen.identity.size;
    }
    return static_cast<size_t>(size);
}

int llconf_trns_ctx_serial(void) {
    return trns_get_ctx_serial(g_trns_ctx);
}

#include "backend/redefine.h"

#include <cstring>
#include <set>
#include <string>
#include <utility>

#include "backend/items.h"
#include "backend/ll_trns.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"

namespace {

using name_set = std::set<std::string, std::less<>>;

name_set g_defined;           /* by files, since the start or the last begin */
name_set g_before;            /* what was, and has not been defined again yet */
module_goes g_tell = nullptr; /* while modules are defined anew */

bool same_text(const char *a, const char *b) {
    return a && b ? std::strcmp(a, b) == 0 : a == b;
}

bool same_parser(const cnfmodule *a, const cnfmodule *b) {
    if (!a || !b) return a == b;
    return a->parser == b->parser && compare_cnftree_children(a->options, b->options) == 0;
}

bool same_source(const llconf_item *a, const llconf_item *b) {
    return same_parser(a->module, b->module) && !a->file == !b->file &&
           (!a->file || same_text(a->file->filename, b->file->filename)) &&
           same_text(a->pattern, b->pattern) && same_text(a->pipe_in, b->pipe_in) &&
           same_text(a->pipe_out, b->pipe_out);
}

/* The new item goes with what the old one had. */
void take_over(llconf_item *old, llconf_item *made) {
    for (hook_list hooks : {&llconf_item::func_pre_read, &llconf_item::func_post_read,
                            &llconf_item::func_pre_commit, &llconf_item::func_post_commit})
        std::swap(old->*hooks, made->*hooks);
    std::swap(old->flags, made->flags);
    std::swap(record_of(old)->check, record_of(made)->check);
    std::swap(record_of(old)->source, record_of(made)->source);
    if (old->file)
        llconf_set_file_attributes(old, made->file->mode, made->file->uid, made->file->gid);
    destroy_llconf_item(made);
}

llconf_item *registered(std::string_view name) {
    llconf_item *lli = lli_list_from_trns_ctx(g_trns_ctx);
    while (lli && name != lli->name)
        lli = lli->next;
    return lli;
}

void remove(llconf_item *lli) {
    g_tell(lli);
    ll_contexts_release(lli);
}

}  // namespace

void llconf_redefine_begin(module_goes tell) {
    g_tell = tell;
    g_before.merge(g_defined);
    g_defined.clear();
    llconf_forget_tried();
}

void llconf_redefine_end() {
    for (const std::string &name : g_before)
        if (llconf_item *lli = registered(name)) remove(lli);
    g_before.clear();
    g_tell = nullptr;
}

llconf_item *llconf_redefined(llconf_item *made) {
    const bool again = !g_defined.emplace(made->name).second;
    if (!g_tell) return nullptr;
    const bool known = g_before.erase(made->name) != 0;
    llconf_item *old = known || again ? registered(made->name) : nullptr;
    if (!old) return nullptr;
    if (same_source(old, made)) {
        take_over(old, made);
        return old;
    }
    remove(old);
    return nullptr;
}

bool llconf_is_edited(trns_ctx *ctx, const llconf_item *primary) {
    const trns_ctx_item *item = trns_find_ctx_byid(ctx, k_ll_trns_id);
    const auto *lli = item ? static_cast<const llconf_item *>(item->data) : nullptr;
    for (; lli; lli = lli->next)
        if (lli->item_orig == primary && (lli->is_dirty || lli->cn_root)) return true;
    return false;
}

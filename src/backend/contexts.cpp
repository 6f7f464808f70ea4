/* The item lists of transaction contexts. */

#include "backend/contexts.h"

#include <errno.h>

#include <algorithm>
#include <new>
#include <utility>
#include <vector>

#include "ucfgd/owners.h"
#include "ucfgd/slist.h"

namespace {

/* The backend's items of all copied contexts, the newest last. */
std::vector<trns_ctx_item *> &copies() {
    static std::vector<trns_ctx_item *> items;
    return items;
}

llconf_item *list_of(const trns_ctx_item *item) {
    return static_cast<llconf_item *>(item->data);
}

void unlink_from(trns_ctx_item *item, llconf_item *lli) {
    trns_note_change();
    item->data = slist_unlink(list_of(item), lli);
    lli->next = nullptr;
    llconf_forget_lookups();
}

/* The shadows of shadows go first. */
void drop_shadows_of(const llconf_item *orig) {
    for (trns_ctx_item *copy : copies()) {
        for (llconf_item *shadow : removal_safe(list_of(copy))) {
            if (shadow->item_orig != orig) continue;
            drop_shadows_of(shadow);
            unlink_from(copy, shadow);
            destroy_llconf_item(shadow);
        }
    }
}

void forget_copy(const trns_ctx_item *item) {
    auto &items = copies();
    auto found = std::find(items.rbegin(), items.rend(), item);
    if (found != items.rend()) items.erase(std::next(found).base());
}

trns_ctx_item *find_copy_of(const trns_ctx_item *item) {
    auto &items = copies();
    auto found = std::find_if(items.rbegin(), items.rend(),
                              [item](const trns_ctx_item *copy) { return copy->parent == item; });
    return found == items.rend() ? nullptr : *found;
}

trns_ctx_item *master_item() {
    trns_ctx_item *item = trns_find_ctx_byid(g_trns_ctx, k_ll_trns_id);
    if (!item) errno = ENOENT;
    return item;
}

}  // namespace

llconf_item *lli_list_from_trns_ctx(trns_ctx *tctx) {
    trns_ctx_item *item = tctx ? trns_find_ctx_byid(tctx, k_ll_trns_id) : nullptr;
    if (!item) return nullptr;
    if (!item->data && item->parent) {
        trns_ctx *parent = tctx->parent;
        if (lli_list_from_trns_ctx(parent)) ll_contexts_attach(item, item->parent);
    }
    return list_of(item);
}

int register_llconf_module(llconf_item *lli) {
    trns_ctx_item *item = master_item();
    if (!item) return -1;
    item->data = slist_append(list_of(item), lli);
    trns_note_change();
    return 0;
}

int unregister_llconf_module(llconf_item *lli) {
    trns_ctx_item *item = master_item();
    if (!item) return -1;
    drop_shadows_of(lli);
    unlink_from(item, lli);
    return 0;
}

int ll_contexts_release(llconf_item *lli) {
    trns_ctx_item *item = master_item();
    llconf_item *registered = item ? list_of(item) : nullptr;
    while (registered && registered != lli)
        registered = registered->next;
    if (!registered) return 0;
    unregister_llconf_module(lli);
    destroy_llconf_item(lli);
    return 1;
}

int ll_contexts_attach(trns_ctx_item *item, trns_ctx_item *parent) {
    item->data = nullptr;
    try {
        auto &items = copies();
        if (std::find(items.rbegin(), items.rend(), item) == items.rend()) items.push_back(item);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
    if (!parent->data) return 1;
    item->data = create_llconf_shadow_list(list_of(parent));
    if (item->data) return 0;
    forget_copy(item);
    return -1;
}

void ll_contexts_detach(trns_ctx_item *item) {
    while (trns_ctx_item *copy = find_copy_of(item)) {
        ll_contexts_detach(copy);
        copy->parent = nullptr;
    }
    forget_copy(item);
    destroy_llconf_item_list(static_cast<llconf_item *>(std::exchange(item->data, nullptr)));
}

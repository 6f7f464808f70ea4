/* Transaction contexts: the mechanism, without any knowledge of what the backends keep in them.
 *
 * A context is one item per backend, and every operation on a context is the same operation on each
 * of its items: method_ctx below is the whole of submit, cancel, commit, revert and isdirty.
 * Contexts form a chain, master <- session <- batch. Changes move towards the master with submit,
 * and only a commit of a session's context writes files.
 *
 * Nothing is locked. A session that committed moves its own serial and the master's on together, so
 * every other session finds its serial behind the master's and has to revert (or to be refused)
 * before it commits in turn. The serial is compared for equality only.
 *
 * What may never happen: a context that is destroyed before its copies (their items point at its
 * items), and a commit that answers for its backend. Its result is 0 whatever the backend met;
 * whoever must know asks errno and the error record, which the backend has set. */

#include "tree/trns.h"

#include <cstddef>
#include <new>

#include "daemon/trace.h"
#include "llconf/nodes.h"
#include "ucfgd/owners.h"
#include "ucfgd/slist.h"

trns_interface *g_trns_iface_list = nullptr;
trns_ctx *g_trns_ctx = nullptr;
struct fe_context *g_trns_fe_context = nullptr;

static uint64_t g_changes = 1;

static_assert(offsetof(trns_interface, next) == 0);
static_assert(offsetof(trns_ctx_item, next) == 0);

namespace {

using item_operation = int (*trns_interface::*)(trns_ctx_item *);

/* In the order of enum trns_method. */
constexpr item_operation k_operations[] = {&trns_interface::submit, &trns_interface::cancel,
                                           &trns_interface::commit, &trns_interface::revert,
                                           &trns_interface::isdirty};
static_assert(std::size(k_operations) == trns_method_isdirty + 1);

int trns_method_ctx(trns_ctx *ctx, trns_method method) {
    int result = 0;
    if (!ctx) return result;
    for (trns_ctx_item *item = ctx->item_list; item; item = item->next) {
        int status = (item->tiface->*k_operations[method])(item);
        if (status != 0) result = status;
    }
    return result;
}

using owned_item = std::unique_ptr<trns_ctx_item>;
using owned_ctx = owned<trns_ctx, trns_destroy_ctx>;

owned_item make_item(trns_interface *tiface, int id) {
    owned_item item{new (std::nothrow) trns_ctx_item{}};
    if (item) {
        item->id = id;
        item->tiface = tiface;
    } else {
        errno = ENOMEM;
    }
    return item;
}

owned_ctx make_ctx(trns_ctx *parent) {
    owned_ctx ctx{new (std::nothrow) trns_ctx{}};
    if (ctx) {
        ctx->parent = parent;
        ctx->serial = parent ? parent->serial : 0;
    } else {
        errno = ENOMEM;
    }
    return ctx;
}

/* Shadows of items that come later are no difference: they have no state before an edit. */
bool differs_from_parent(const trns_ctx *ctx) {
    for (const trns_ctx_item *item = ctx->item_list; item; item = item->next)
        if (!item->tiface->differs || item->tiface->differs(item)) return true;
    return false;
}

void append_item(trns_ctx *ctx, owned_item item) {
    ctx->item_list = slist_append(ctx->item_list, item.release());
}

}  // namespace

int trns_init(void) {
    return 0;
}

trns_interface *register_trns_interface(
    int id, int (*create)(trns_ctx_item *), int (*destroy)(trns_ctx_item *),
    int (*copy)(trns_ctx_item *, trns_ctx_item *), int (*submit)(trns_ctx_item *),
    int (*cancel)(trns_ctx_item *), int (*commit)(trns_ctx_item *), int (*revert)(trns_ctx_item *),
    int (*isdirty)(trns_ctx_item *)) {
    auto *tiface = new (std::nothrow)
        trns_interface{nullptr, id,     create,  destroy, copy,    submit, cancel,
                       commit,  revert, isdirty, nullptr, nullptr, nullptr};
    if (!tiface) {
        errno = ENOMEM;
        return nullptr;
    }
    g_trns_iface_list = slist_append(g_trns_iface_list, tiface);
    return tiface;
}

trns_ctx *trns_create_ctx(void) {
    owned_ctx ctx = make_ctx(nullptr);
    if (!ctx) return nullptr;
    for (trns_interface *tiface = g_trns_iface_list; tiface; tiface = tiface->next) {
        owned_item item = make_item(tiface, tiface->id);
        if (!item) return nullptr;
        if (tiface->create && tiface->create(item.get()) < 0) return nullptr;
        append_item(ctx.get(), std::move(item));
    }
    return ctx.release();
}

trns_ctx *trns_copy_ctx(trns_ctx *parent) {
    if (!parent) {
        errno = EINVAL;
        return nullptr;
    }
    owned_ctx ctx = make_ctx(parent);
    if (!ctx) return nullptr;
    for (trns_ctx_item *original = parent->item_list; original; original = original->next) {
        owned_item item = make_item(original->tiface, original->id);
        if (!item) return nullptr;
        if (item->tiface->copy(item.get(), original) < 0) return nullptr;
        item->parent = original;
        append_item(ctx.get(), std::move(item));
    }
    return ctx.release();
}

int trns_submit_ctx(trns_ctx *ctx) {
    return trns_method_ctx(ctx, trns_method_submit);
}

int trns_cancel_ctx(trns_ctx *ctx) {
    return trns_method_ctx(ctx, trns_method_cancel);
}

int trns_commit_ctx(trns_ctx *ctx) {
    trns_method_ctx(ctx, trns_method_commit);
    return 0;
}

int trns_revert_ctx(trns_ctx *ctx) {
    int result = trns_method_ctx(ctx, trns_method_revert);
    if (result != 0) trace(3, "%s: trns_method_ctx() failed: %d\n", __func__, result);
    if (ctx && ctx->parent) ctx->serial = ctx->parent->serial;
    return result;
}

int trns_isdirty_ctx(trns_ctx *ctx) {
    return trns_method_ctx(ctx, trns_method_isdirty);
}

int trns_check_ctx_serial(const trns_ctx *ctx) {
    if (!ctx || !ctx->parent || ctx->serial == ctx->parent->serial) return 0;
    trace(3, "tctx->serial (%d) != tctx->parent->serial (%d)\n", ctx->serial, ctx->parent->serial);
    return -1;
}

int trns_inc_ctx_serial(trns_ctx *ctx) {
    if (!ctx) return -1;
    ctx->serial++;
    if (ctx->parent) ctx->parent->serial++;
    return ctx->serial;
}

int trns_get_ctx_serial(const trns_ctx *ctx) {
    return ctx ? ctx->serial : -1;
}

size_t trns_ctx_size(const trns_ctx *ctx) {
    if (!ctx) return 0;
    size_t size = sizeof(*ctx);
    for (const trns_ctx_item *item = ctx->item_list; item; item = item->next) {
        size += sizeof(*item);
        if (item->tiface->size) size += item->tiface->size(item);
    }
    return size;
}

uint64_t trns_version(void) {
    return g_changes + cnf_edit_count();
}

void trns_note_change(void) {
    g_changes++;
}

const trns_ctx *trns_seen_ctx(trns_ctx *ctx) {
    const uint64_t version = trns_version();
    if (ctx->seen_version != version) {
        ctx->seen = !ctx->parent || differs_from_parent(ctx) ? ctx : trns_seen_ctx(ctx->parent);
        ctx->seen_version = version;
    }
    return ctx->seen;
}

void trns_destroy_ctx(trns_ctx *ctx) {
    if (!ctx) return;
    if (ctx->seen == ctx) trns_note_change(); /* its place may be another's soon */
    for (trns_ctx_item *item : removal_safe(ctx->item_list)) {
        item->tiface->destroy(item);
        delete item;
    }
    delete ctx;
}

trns_ctx_item *trns_find_ctx_byid(trns_ctx *ctx, int id) {
    trns_ctx_item *item = ctx ? ctx->item_list : nullptr;
    while (item && item->id != id) {
        item = item->next;
    }
    return item;
}

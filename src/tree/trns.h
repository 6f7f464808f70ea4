#ifndef UCFGD_TREE_TRNS_H
#define UCFGD_TREE_TRNS_H

/* Transaction contexts: one private working state per registered backend.
 *
 *  1. A context owns its items; an item's data belongs to its backend. Interfaces live until exit.
 *  2. A context copied from another must be destroyed before it.
 *  3. A context has items for the interfaces that were registered when it was made.
 *  4. Operations of an interface return 0 for success. isdirty returns 0 for "nothing pending".
 *  5. A create or copy that fails returns a negative value and has cleaned up behind itself:
 * destroy is not called for it. A positive one tells that there was nothing to begin with.
 *  6. The serial tells whether the parent has been committed to since the copy was made.
 */

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

struct fe_context;
struct trns_ctx_item;

/* What runs over every item of a context. */
enum trns_method {
    trns_method_submit = 0,
    trns_method_cancel = 1,
    trns_method_commit = 2,
    trns_method_revert = 3,
    trns_method_isdirty = 4
};

/* One registered backend: the operations on its per-context state. */
typedef struct trns_interface {
    struct trns_interface *next;
    int id;
    int (*create)(struct trns_ctx_item *item);  /* a fresh, empty state; may be null */
    int (*destroy)(struct trns_ctx_item *item); /* frees the state */
    int (*copy)(struct trns_ctx_item *item, struct trns_ctx_item *parent); /* a child's state */
    int (*submit)(struct trns_ctx_item *item);  /* hands the changes to the parent */
    int (*cancel)(struct trns_ctx_item *item);  /* drops the changes */
    int (*commit)(struct trns_ctx_item *item);  /* writes the state to the real files */
    int (*revert)(struct trns_ctx_item *item);  /* back to what is current */
    int (*isdirty)(struct trns_ctx_item *item); /* are there uncommitted changes? */
    void *data;                                 /* the backend's own */
    /* About how many bytes the state of a copied context holds of its own. May be null; set behind
     * registration. */
    size_t (*size)(const struct trns_ctx_item *item);
    /* Whether reads of a copied context may find something else than those of its parent. May be
     * null, which counts as yes; set behind registration. */
    int (*differs)(const struct trns_ctx_item *item);
} trns_interface;

/* One backend's state within one context. */
typedef struct trns_ctx_item {
    struct trns_ctx_item *next;
    int id;
    void *data;
    trns_interface *tiface;
    struct trns_ctx_item *parent; /* its counterpart in the parent context, or null */
} trns_ctx_item;

typedef struct trns_ctx {
    trns_ctx_item *item_list; /* in the order of registration */
    struct trns_ctx *parent;  /* the context that it was copied from, or null */
    int serial;
    const struct trns_ctx *seen; /* private: what trns_seen_ctx has answered, */
    uint64_t seen_version;       /* and at which version */
} trns_ctx;

/* The name under which operations take the caller's transaction context. */
typedef trns_ctx backend_ctx;

/* The registered interfaces in order; the master context, made at start-up; the expression context
 * that hooks have as their parent while a commit runs, null otherwise. */
extern trns_interface *g_trns_iface_list;
extern trns_ctx *g_trns_ctx;
extern struct fe_context *g_trns_fe_context;

/* Nothing to do at present; 0. */
int trns_init(void);

/* Appends an interface with these operations and returns it; null (errno ENOMEM) when memory is
 * exhausted. create may be null. */
trns_interface *register_trns_interface(
    int id, int (*create)(trns_ctx_item *), int (*destroy)(trns_ctx_item *),
    int (*copy)(trns_ctx_item *, trns_ctx_item *), int (*submit)(trns_ctx_item *),
    int (*cancel)(trns_ctx_item *), int (*commit)(trns_ctx_item *), int (*revert)(trns_ctx_item *),
    int (*isdirty)(trns_ctx_item *));

/* A context without parent, and one whose parent is the given one. Null when memory is exhausted or
 * an operation fails. */
trns_ctx *trns_create_ctx(void);
trns_ctx *trns_copy_ctx(trns_ctx *parent);

/* Run the operation of every item, whatever earlier ones returned. The result is the last one that
 * was not 0, or 0; a commit's is always 0, since the backend reports its failures through errno and
 * the error record. A null context gives 0. A revert also takes over the parent's serial. */
int trns_submit_ctx(trns_ctx *ctx);
int trns_cancel_ctx(trns_ctx *ctx);
int trns_commit_ctx(trns_ctx *ctx);
int trns_revert_ctx(trns_ctx *ctx);
int trns_isdirty_ctx(trns_ctx *ctx);

/* 0 when the context has no parent or stands at its parent's serial, otherwise -1. */
int trns_check_ctx_serial(const trns_ctx *ctx);

/* Adds 1 to the serial and to the parent's; returns the context's. -1 for null. */
int trns_inc_ctx_serial(trns_ctx *ctx);

/* The serial, -1 for null. */
int trns_get_ctx_serial(const trns_ctx *ctx);

/* About how many bytes of memory a copied context holds of its own; 0 for null. It costs what the
 * backends' size operations cost. */
size_t trns_ctx_size(const trns_ctx *ctx);

/* Grows whenever a read in any context might find something else than before: with each edit of a
 * tree, and each trns_note_change, which is for backends that exchange a tree for another or have
 * other state than trees. Never 0. */
uint64_t trns_version(void);
void trns_note_change(void);

/* Whose state reads in ctx find: ctx itself, or where it has none of its own the nearest one that
 * has. Two contexts with the same answer read the same until the version changes. */
const trns_ctx *trns_seen_ctx(trns_ctx *ctx);

/* Null is accepted. */
void trns_destroy_ctx(trns_ctx *ctx);

/* A backend's own item, borrowed from the context; null when it has none. */
trns_ctx_item *trns_find_ctx_byid(trns_ctx *ctx, int id);

#ifdef __cplusplus
}
#endif

#endif

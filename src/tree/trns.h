#ifndef UCFGD_TREE_TRNS_H
#define UCFGD_TREE_TRNS_H

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
    int (*create)(struct trns_ctx_item *item);
    int (*destroy)(struct trns_ctx_item *item);
    int (*copy)(struct trns_ctx_item *item, struct trns_ctx_item *parent);
    int (*submit)(struct trns_ctx_item *item);
    int (*cancel)(struct trns_ctx_item *item);
    int (*commit)(struct trns_ctx_item *item);
    int (*revert)(struct trns_ctx_item *item);
    int (*isdirty)(struct trns_ctx_item *item);
    void *data;
} trns_interface;

/* One backend's state within one context. */
typedef struct trns_ctx_item {
    struct trns_ctx_item *next;
    int id;
    void *data;
    trns_interface *tiface;
    struct trns_ctx_item *parent;
} trns_ctx_item;

typedef struct trns_ctx {
    trns_ctx_item *item_list;
    struct trns_ctx *parent;
    int serial;
} trns_ctx;

/* The name under which operations take the caller's transaction context. */
typedef trns_ctx backend_ctx;

extern trns_interface *g_trns_iface_list;
extern trns_ctx *g_trns_ctx;
extern struct fe_context *g_trns_fe_context;

int trns_init(void);
trns_interface *register_trns_interface(
    int id, int (*create)(trns_ctx_item *), int (*destroy)(trns_ctx_item *),
    int (*copy)(trns_ctx_item *, trns_ctx_item *), int (*submit)(trns_ctx_item *),
    int (*cancel)(trns_ctx_item *), int (*commit)(trns_ctx_item *), int (*revert)(trns_ctx_item *),
    int (*isdirty)(trns_ctx_item *));
trns_ctx *trns_create_ctx(void);
trns_ctx *trns_copy_ctx(trns_ctx *parent);
int trns_submit_ctx(trns_ctx *ctx);
int trns_cancel_ctx(trns_ctx *ctx);
int trns_commit_ctx(trns_ctx *ctx);
int trns_revert_ctx(trns_ctx *ctx);
int trns_isdirty_ctx(trns_ctx *ctx);
int trns_check_ctx_serial(const trns_ctx *ctx);
int trns_inc_ctx_serial(trns_ctx *ctx);
int trns_get_ctx_serial(const trns_ctx *ctx);
void trns_destroy_ctx(trns_ctx *ctx);
trns_ctx_item *trns_find_ctx_byid(trns_ctx *ctx, int id);

#ifdef __cplusplus
}
#endif

#endif

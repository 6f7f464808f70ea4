/*
 * Nodes: expressions before evaluation, lists of constants after it.
 *
 * An expression is a tree of nodes; a node's children are its unevaluated arguments. The result of
 * an evaluation is a chain of constant nodes linked through `next`.
 */
#ifndef FE_NODES_H
#define FE_NODES_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

struct fe_context;
struct fe_node;

/*
 * A native function. `ctx` is the context of the evaluation, `call` the call itself: its children
 * are argument expressions that nobody has evaluated yet (eval_fe_expr_list does), its definition
 * is call->fed, the data registered with it call->fed->user_data. Neither may be changed or kept.
 * Returns a new list of constant nodes that the caller will release, or null for failure.
 */
typedef struct fe_node *(*fe_function)(struct fe_context *ctx, struct fe_node *call);

/*
 * A definition: what a name in an expression stands for. Definitions are made by the register
 * functions of functions.h only. Parsed nodes keep the definition that they use alive, so that an
 * expression outlives the list it was parsed against.
 */
typedef struct fe_def {
    struct fe_def *next; /* next definition of the list, in the order of registration */
    const char *name;
    fe_function function;
    void *user_data; /* never released by the library */
    struct fe_def_internal *private_data;
    unsigned int private_kind;
    unsigned int private_uses;
} fe_def;

/*
 * A node. `next` and `first_child` may be set freely to build calls and lists: a node that is
 * linked belongs to what it is linked to. `fed` and `text` are set when the node is made and may
 * only be read.
 */
typedef struct fe_node {
    struct fe_node *next;
    struct fe_def *fed;
    const char *text; /* a constant's value, a variable's name; null for a call */
    struct fe_node *first_child;
    unsigned int private_length;
    unsigned short private_depth;
    unsigned char private_class;
    unsigned char private_flags;
} fe_node;

/* The definition of constants: every result is made of nodes of this definition. */
extern fe_def *const g_fed_const;

/* The definition of expressions that could not be parsed: their evaluation fails. */
extern fe_def *const g_fed_unparsed;

/*
 * A new node of a definition, without arguments. A constant of a null text has the empty text.
 * Returns null with errno ENOMEM when memory, or the 256 MiB that nodes may take together, has run
 * out.
 */
fe_node *create_fe_node(fe_def *fed, const char *text);

/* The same for the `length` bytes at `text`, which hold no NUL. */
fe_node *create_fe_node_n(fe_def *fed, const char *text, size_t length);

/*
 * A new call of the function `name` of a list, without arguments: append them to `first_child`.
 * Returns null with errno EINVAL when the list has no such function.
 */
fe_node *create_fe_node_with_func(fe_def *list, const char *name);

/* Copies one node: neither `next` nor the arguments come along. */
fe_node *copy_fe_node(const fe_node *node);

/* Copies a node with its arguments at every depth, without `next`. */
fe_node *copy_fe_node_tree(const fe_node *node);

/* Copies a node, those behind it, and the arguments of them all. A null list gives null. */
fe_node *copy_fe_node_list(const fe_node *first);

/* Releases a node with its arguments. What `next` points to stays. */
void destroy_fe_node_tree(fe_node *node);

/* Releases a node and all that follow it through `next`, each with its arguments. */
void destroy_fe_node_list(fe_node *first);

/* Links `more` (any number of nodes, also none) behind the last node of `list`; returns the list.
 */
fe_node *append_fe_node_list(fe_node *list, fe_node *more);

/* The number of nodes of an evaluated list; 0 for null. */
int fe_argc(const fe_node *list);

/* 1 when the node is a constant whose text is "1"; 0 otherwise, also for null. */
int fe_node_is_const_true(const fe_node *node);

/* 1 when the text is "1"; 0 otherwise, also for null. */
int fe_istrue(const char *text);

/* The text of the last node of a list, which is what a list is worth where one text is wanted; null
 * for the null list. Lives as long as that node. */
const char *fe_last_text(const fe_node *list);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_TREE_PARAM_OPS_H
#define UCFGD_TREE_PARAM_OPS_H

#include "tree/param_error.h"
#include "tree/param_path.h"

/* What commands and expressions do to parameters.
 *
 *  1. The rules of param_path.h hold. Values and entry names come in escaped.
 *  2. Changes happen inside the transaction ctx; only ccd_commit lets them out.
 *  3. Operations that change or check something return a result code:
 *
 *       0  done: the last value of the method was "1"
 *       1  the method gave no value at all, or the value is too long (errno EOVERFLOW)
 *       2  the method gave something else than "1"
 *       3  the path does not resolve (errno ENOENT)
 *       4  the path has no node
 *       5  the node has no such method
 *       6  the entry to add exists (EEXIST), or the one to delete does not (ENOENT)
 *
 *  4. Each of them starts with errno 0, so that afterwards errno is what this operation left; for
 *     code 2 it is never 0. One that succeeds restores the caller's.
 *  5. Why it failed may stand in the error record (param_error.h) as well. Only a sanity check
 *     clears the record, before its method runs.
 *  6. Every change and every attempt at one is logged: this is the audit trail.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct fe_context;

/* Those of param_path.h by path. Help of a node without "help:" is the empty text, and so for
 * "args:". */
char *ccd_param_get(ccdtree_node *root, backend_ctx *ctx, const char *path);
char *ccd_param_help(ccdtree_node *root, backend_ctx *ctx, const char *path);
char *ccd_param_args(ccdtree_node *root, backend_ctx *ctx, const char *path);
char *ccd_param_info(ccdtree_node *root, backend_ctx *ctx, const char *path, const line *arg_list,
                     struct fe_context *parent);
char *ccd_param_access(ccdtree_node *root, backend_ctx *ctx, const char *path, const line *arg_list,
                       struct fe_context *parent);

/* Runs "set:" with the value in "_". A value of more characters than the node, or else its type,
 * allows is refused before that; one that is no text in the present locale cannot be counted and
 * passes. The same limit holds for add, del and sanity. */
int ccd_param_set(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *value);
int ccd_param_set_ppath(backend_ctx *ctx, const param_path *path, const char *value);

/* Run "add:" and "del:" of the node that lists the entries. */
int ccd_param_add(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *name);
int ccd_param_del(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *name);

/* Runs "move:" with the first value in "-" and the second in "_"; what they mean is the method's
 * business. The limit counts the bytes of the second value here. */
int ccd_param_move(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *value0,
                   const char *value1);

/* Runs "sanity:" or, without one, the validation of the node's type, on the value in "_". A node
 * with neither accepts what fits its limit. */
int ccd_param_sanity(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *value);
int ccd_param_sanity_ppath(backend_ctx *ctx, const param_path *path, const char *value);

/* 1 when the path's listing shows the name, otherwise 0; errno as it was, or ENOMEM where memory
 * ran out, so that nobody knows. */
int ccd_node_exists(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *name);

/* 1 when the path leads to something that is there: below a list every name is a listed one. 0
 * otherwise, also when a list cannot be had; errno is ENOMEM then, and else as it was. */
int ccd_param_is_there(ccdtree_node *root, backend_ctx *ctx, const char *path);

/* Runs "admin:" with the arguments as for info. */
int ccd_param_admin(ccdtree_node *root, backend_ctx *ctx, const char *path, const line *arg_list,
                    struct fe_context *parent);

/* Write the transaction to the real files, and drop it to what they hold. The commit's own result
 * is always 0: its caller looks at errno (trns.h). */
int ccd_commit(backend_ctx *ctx);
int ccd_revert(backend_ctx *ctx);

#ifdef __cplusplus
}
#endif

#endif

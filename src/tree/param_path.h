#ifndef UCFGD_TREE_PARAM_PATH_H
#define UCFGD_TREE_PARAM_PATH_H

#include "tree/ccdtree.h"
#include "tree/trns.h"
#include "ucfgd/lines.h"

/* Resolved paths, and what can be asked of the node at their end without changing anything.
 *
 *  1. Paths come and go escaped, their components separated by raw dots; `name` fields and what
 *     methods see are unescaped. Values and listed names that are handed out are escaped.
 *  2. Strings, lists and records that are handed out are new and belong to the caller. Arguments
 *     are borrowed for the call.
 *  3. A param_path borrows the tree: it must not outlive it.
 *  4. A path that does not resolve gives null with errno ENOENT.
 *  5. A method that is missing or that fails gives null. errno is then as the method left it: who
 *     shows it clears it first.
 *  6. ctx is the caller's transaction, null for none; parent is the caller's expression context,
 *     null for none, whose variables the method sees behind its own.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct fe_context;

/* One component of a resolved path. */
typedef struct param_path_item {
    struct param_path_item *next; /* the component one level up */
    char *name;                   /* as given, which a wildcard node's own name does not tell */
    ccdtree_node *ccd;
    size_t length; /* of the name */
} param_path_item;

/* A resolved path. Record, items and texts are one block, which others who asked for the same path
 * may hold as well: nobody changes it, and only destroy_param_path frees it. */
typedef struct param_path {
    param_path_item *first; /* the addressed node */
    param_path_item *last;  /* the one below the root */
    char *fullpath;         /* as given */
    ccdtree_node *ccd_tree; /* the root it was resolved in */
    size_t length;          /* of fullpath */
} param_path;

/* What clients are told about a node. */
typedef struct param_attr {
    char *ops;             /* one letter an operation, of "gsadmhAIl", in that order */
    int len;               /* 0: no limit */
    line *choices;         /* escaped */
    line *flags;           /* as they are */
    const char *type_name; /* borrowed from the type; null for none */
} param_attr;

/* Copies ops and takes over both lists, also when it fails: null (errno ENOMEM), and the lists are
 * destroyed. */
param_attr *create_param_attr(const char *ops, int len, line *choices, line *flags,
                              const char *type_name);
void destroy_param_attr(param_attr *attr);

/* Resolves a path below root. A component of more than 255 characters is cut there, and what
 * follows it in the path is ignored. */
param_path *find_ccd_param(const char *path, ccdtree_node *root);
void destroy_param_path(param_path *path);

/* Runs the "common:" methods of the path's nodes from the top down. They set variables for the
 * other methods; their results and failures count for nothing. */
void ccd_param_common(struct fe_context *ctx, const param_path *path);

/* Sets "0" to "9" to the names of the item and of those above it, which must outlive the context.
 */
void set_path_vars(struct fe_context *ctx, const param_path_item *first);

/* Run the method of the addressed node ("access:": of the nearest node from there up that has one)
 * and return its last value, escaped. The texts of arg_list become arg1, arg2, ... and their number
 * "argc", "0" for a null list. */
char *ccd_param_ppath_get(backend_ctx *ctx, const param_path *path);
char *ccd_param_ppath_help(backend_ctx *ctx, const param_path *path);
char *ccd_param_ppath_args(backend_ctx *ctx, const param_path *path);
char *ccd_param_ppath_info(backend_ctx *ctx, const param_path *path, const line *arg_list,
                           struct fe_context *parent);
char *ccd_param_ppath_access(backend_ctx *ctx, const param_path *path, const line *arg_list,
                             struct fe_context *parent);

/* 1 when the verdict of the access method, whose variables the fresh context gets beside those that
 * it has, is true, 0 when it is false, -1 when there is none. */
int ccd_param_ppath_allows(struct fe_context *own, const param_path *path, const line *arg_list);

param_attr *ccd_param_attr(ccdtree_node *root, backend_ctx *ctx, const char *path);

/* The names below a path, the root's for the empty one; with recurse everything below it, depth
 * first, as paths relative to it. Null with errno ENOENT for a path that does not resolve, null
 * with errno as it was for one that lists nothing (a hidden node among them), and null with the
 * method's errno for a "list:" that fails. */
/* One line of a listing, without newline, for as long as it is being taken. Not 0 for no more of
 * them, because memory is exhausted. */
typedef int (*ccd_line_taker)(void *data, const char *text, size_t length);

/* The same, line by line as they are found. 0, or -1 with errno: then lines that were taken are no
 * listing. */
int ccd_param_list_each(ccdtree_node *root, backend_ctx *ctx, const char *path,
                        struct fe_context *parent, int recurse, ccd_line_taker take, void *data);

line *ccd_param_list(ccdtree_node *root, backend_ctx *ctx, const char *path,
                     struct fe_context *parent, int recurse);

#ifdef __cplusplus
}
#endif

#endif

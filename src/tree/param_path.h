#ifndef UCFGD_TREE_PARAM_PATH_H
#define UCFGD_TREE_PARAM_PATH_H

#include "tree/ccdtree.h"
#include "tree/trns.h"
#include "ucfgd/lines.h"

#ifdef __cplusplus
extern "C" {
#endif

struct fe_context;

typedef struct param_path_item {
    struct param_path_item *next;
    char *name;
    ccdtree_node *ccd;
} param_path_item;

typedef struct param_path {
    param_path_item *first;
    param_path_item *last;
    char *fullpath;
    ccdtree_node *ccd_tree;
} param_path;

typedef struct param_attr {
    char *ops;
    int len;
    line *choices;
    line *flags;
    const char *type_name;
} param_attr;

param_attr *create_param_attr(const char *ops, int len, line *choices, line *flags,
                              const char *type_name);
void destroy_param_attr(param_attr *attr);

param_path *find_ccd_param(const char *path, ccdtree_node *root);
void destroy_param_path(param_path *path);
void ccd_param_common(struct fe_context *ctx, const param_path *path);
void set_path_vars(struct fe_context *ctx, const param_path_item *first);

char *ccd_param_ppath_get(backend_ctx *ctx, const param_path *path);
char *ccd_param_ppath_help(backend_ctx *ctx, const param_path *path);
char *ccd_param_ppath_info(backend_ctx *ctx, const param_path *path, const line *arg_list,
                           struct fe_context *parent);
char *ccd_param_ppath_access(backend_ctx *ctx, const param_path *path, const line *arg_list,
                             struct fe_context *parent);
param_attr *ccd_param_attr(ccdtree_node *root, backend_ctx *ctx, const char *path);

/* Null with errno ENOENT for a path that does not resolve; null with errno as it was for a path
 * that lists nothing. */
line *ccd_param_list(ccdtree_node *root, backend_ctx *ctx, const char *path,
                     struct fe_context *parent, int recurse);

#ifdef __cplusplus
}
#endif

#endif

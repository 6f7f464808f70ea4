#ifndef UCFGD_TREE_PARAM_OPS_H
#define UCFGD_TREE_PARAM_OPS_H

#include "tree/param_error.h"
#include "tree/param_path.h"

#ifdef __cplusplus
extern "C" {
#endif

struct fe_context;

char *ccd_param_get(ccdtree_node *root, backend_ctx *ctx, const char *path);
char *ccd_param_help(ccdtree_node *root, backend_ctx *ctx, const char *path);
char *ccd_param_info(ccdtree_node *root, backend_ctx *ctx, const char *path, const line *arg_list,
                     struct fe_context *parent);
char *ccd_param_access(ccdtree_node *root, backend_ctx *ctx, const char *path, const line *arg_list,
                       struct fe_context *parent);
int ccd_param_set(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *value);
int ccd_param_set_ppath(backend_ctx *ctx, const param_path *path, const char *value);
int ccd_param_add(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *name);
int ccd_param_del(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *name);
int ccd_param_move(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *value0,
                   const char *value1);
int ccd_param_sanity(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *value);
int ccd_param_sanity_ppath(backend_ctx *ctx, const param_path *path, const char *value);
int ccd_node_exists(ccdtree_node *root, backend_ctx *ctx, const char *path, const char *name);
int ccd_param_admin(ccdtree_node *root, backend_ctx *ctx, const char *path, const line *arg_list,
                    struct fe_context *parent);
int ccd_commit(backend_ctx *ctx);
int ccd_revert(backend_ctx *ctx);

#ifdef __cplusplus
}
#endif

#endif

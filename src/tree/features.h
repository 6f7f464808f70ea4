#ifndef UCFGD_TREE_FEATURES_H
#define UCFGD_TREE_FEATURES_H

#include "tree/ccdtree.h"

#ifdef __cplusplus
extern "C" {
#endif

struct felib_base;

int config_feature_modules_lib(struct felib_base *base, const char *directory);
int config_feature_module_lib(struct felib_base *base, const char *file);
int config_feature_modules(ccdtree_node *param_root, ccdtree_node *mgmt_root,
                           struct felib_base *base, const char *directory, int with_backends);
int config_feature_module(ccdtree_node *param_root, ccdtree_node *mgmt_root,
                          struct felib_base *base, const char *file, int with_backends);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_TREE_FEATURES_H
#define UCFGD_TREE_FEATURES_H

#include "tree/ccdtree.h"

/* Feature modules: the files "*.conf" of the feature directory, each of which may bring a library
 * of expression functions, user functions, subtrees, backend modules and commit hooks.
 *
 *  1. The directory is read twice, in the order of its names: for the libraries before any
 *     expression is parsed, for everything else when both trees have been read.
 *  2. A module that fails is logged and skipped. The result of a pass is the last result of a
 *     module that was not 0; nobody needs to stop for it.
 *  3. A library stays loaded until exit. One that others than root, or the user that the daemon
 *     runs as, may write to is refused.
 *  4. Arguments are borrowed for the call. The functions list of base grows.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct felib_base;

/* The first pass over a directory. 0, the result of a module, or -1 when there is no memory for the
 * pattern. */
int config_feature_modules_lib(struct felib_base *base, const char *directory);

/* The first pass over one file, which goes through the root prefix. 1 when it cannot be read or
 * names no library, -1 when the library cannot be loaded, -2 when it lacks its entry point
 * "felib_register_NAME_funcs", otherwise what that returned. */
int config_feature_module_lib(struct felib_base *base, const char *file);

/* The second pass over a directory. with_backends 0 leaves backend modules out, but not hooks. */
int config_feature_modules(ccdtree_node *param_root, ccdtree_node *mgmt_root,
                           struct felib_base *base, const char *directory, int with_backends);

/* The second pass over one file, whose name is taken as it is. 0, or -1 when it cannot be read. */
int config_feature_module(ccdtree_node *param_root, ccdtree_node *mgmt_root,
                          struct felib_base *base, const char *file, int with_backends);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_TREE_PARAM_LISTING_H
#define UCFGD_TREE_PARAM_LISTING_H

#include "tree/param_path.h"

/* Asking for one name of a listing without making the listing. Internal to the tree. */

/* What is listed, for whom: root, transaction and parent context of the caller. */
struct listed_tree {
    ccdtree_node *root;
    backend_ctx *ctx;
    fe_context *parent;
};

enum class listing { done, unresolved, failed };

/* 1 when the unescaped name is among those below the path, otherwise 0; -1 when memory ran out. */
int listing_shows(const listed_tree &tree, const char *path, const char *name);

/* 1 when every name from the item up is there: where a wildcard node stands for it, it must be a
 * listed one. Otherwise as above. */
int path_is_there(const listed_tree &tree, const param_path_item *item);

#endif

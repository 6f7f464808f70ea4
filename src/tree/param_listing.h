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

/* Whether the unescaped name is among those below the path. */
bool listing_shows(const listed_tree &tree, const char *path, const char *name);

#endif

#ifndef UCFGD_TREE_CCDTREE_READER_H
#define UCFGD_TREE_CCDTREE_READER_H

#include <array>

#include "tree/ccdtree.h"

/* What the units that read definition files share. Internal to the tree. */

/* The last expressions of a node's six method lists, while the entries of one section are stored on
 * it; null where it is not known. */
struct method_tails {
    std::array<fe_node *, 6> last{};
};

/* Stores the method key `entry` ("get:" and the like) on the node. A key that is none is complained
 * of and ignored. */
void ccdtree_parse_tree_func(ccdtree_node *node, const cnfnode *entry, fe_def *fed_list,
                             method_tails *tails);

/* Logs why the last file could not be parsed, as a line of its own. */
void log_parse_failure(void);

#endif

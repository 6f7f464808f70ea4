#ifndef LLCONF_PATH_SEARCH_H
#define LLCONF_PATH_SEARCH_H

#include <array>
#include <vector>

#include "node_record.h"
#include "path_text.h"

/* Finds the matches of a path in tree order. At every step all matches are followed; since the
 * position is nothing but a node and its level, going back costs no memory. */
class path_search {
  public:
    /* path: one that is a path, and not that of the node itself. */
    path_search(node_record *base, const char *path, bool wildcards)
        : base_(base), reader_(path, wildcards) {}

    node_record *first();
    node_record *next(node_record *found); /* behind the one found last */

    /* Of the last match: the number of components before its own, and each of them. */
    size_t level() const { return level_; }
    const path_component &part(size_t level);
    bool is_last(size_t level);

    /* How far the path without its last component leads: the first node in tree order that the most
     * components lead to; level() is their number then. */
    node_record *branch_point();

  private:
    node_record *settle(node_record *candidate, node_record *parent);

    static constexpr size_t k_inline_parts = 8;

    node_record *base_;
    path_reader reader_;
    size_t level_ = 0;
    size_t known_ = 0;
    std::array<path_component, k_inline_parts> parts_;
    std::vector<path_component> more_parts_;
};

/* The number of siblings of the same name before a node. */
size_t count_same_before(const node_record *node);

/* The nodes that a path lacks, as cnf_add_branch creates them. */
struct branch {
    node_record *parent = nullptr; /* where they belong */
    node_record *top = nullptr;    /* detached; the caller's */
    node_record *last = nullptr;
};

/* Plans a branch and makes its nodes; false with errno. May throw std::bad_alloc. */
bool make_branch(node_record *node, const char *path, branch &made);

#endif

/* A part of a tree with its values, as indented text. */
#ifndef UCFGSH_TREE_VIEW_H
#define UCFGSH_TREE_VIEW_H

#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "ucfgsh/output.h"

namespace ucfgsh {

/* One node; the top one stands for what was asked for. */
struct tree_node {
    std::string name;
    std::optional<std::string> value;
    std::string note; /* what is said where there is nothing to show */
    std::vector<std::unique_ptr<tree_node>> children;
    std::unordered_map<std::string, tree_node *> by_name;

    /* The child of that name, made when it is missing. */
    tree_node &child(const std::string &child_name);
};

/* Deeper nodes are left out: no real tree has them, and a peer that claims so is not followed. */
inline constexpr size_t k_tree_depth = 64;

/* Builds the tree of the relative wire paths, their values and their notes (as many; no notes at
 * all will do, too). */
tree_node build_tree(const std::vector<std::string> &paths,
                     const std::vector<std::optional<std::string>> &values,
                     const std::vector<std::string> &notes = {});

/* Indented lines: "name", "name: value" or "name  # note". */
void print_tree(output &out, const tree_node &top, int indent = 0);

}  // namespace ucfgsh

#endif

/* A lens's tree outside the lens library: read from it in one pass, and brought in line with a
 * configuration tree by as few operations as it takes, so that the lens finds in every node that
 * has not changed the text that it came from.
 *
 *  1. Paths are path expressions of the lens library.
 *  2. Trees may be 200 levels deep; deeper ones are refused.
 *  3. Functions that may run out of memory throw std::bad_alloc. */
#pragma once

#include <augeas.h>

#include <optional>
#include <string>
#include <vector>

struct cnfnode;

namespace lens_plugin {

constexpr int k_max_depth = 200;

struct lens_node {
    std::string label;
    std::optional<std::string> value;
    std::vector<lens_node> children;
};

/* The tree at a path; none when there is none or it is too deep. */
std::optional<lens_node> read_lens_tree(const augeas *lenses, const char *path);

/* Names on both sides: comments are layout nodes here. */
std::string name_of_label(const std::string &label);
std::string label_of_name(const std::string &name);

/* Makes the tree at path, which is `now`, say what `wanted` says. False for a name that a lens's
 * tree cannot have. */
bool make_same(augeas *lenses, const std::string &path, const lens_node &now,
               const cnfnode *wanted);

}  // namespace lens_plugin

/* A part of the tree as the commands that make it. */
#ifndef UCFGSH_SAVED_TREE_H
#define UCFGSH_SAVED_TREE_H

#include <string>
#include <vector>

#include "ucfgsh/commands.h"

namespace ucfgsh {

/* One command, or of a parameter that can be set and not be read its path, and why that is. */
struct saved_line {
    order what;
    std::string unreadable = {};
    std::string reason = {};
};

/* The commands for everything below `path`, itself included: entries are added in their order, and
 * so are those that `path` lies in; parameters are set to their values. Returns the exit status, of
 * a failure that was reported. */
int read_tree(shell &sh, const char *command, const std::string &path,
              std::vector<saved_line> &lines);

/* The lines as text, unreadable ones as comments. */
std::vector<std::string> print_saved(const std::vector<saved_line> &lines);

}  // namespace ucfgsh

#endif

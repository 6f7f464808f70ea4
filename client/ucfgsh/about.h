/* What the daemon tells about its management nodes and types, in nodes that not every daemon has.
 * Asked quietly; "" where there is nothing. */
#ifndef UCFGSH_ABOUT_H
#define UCFGSH_ABOUT_H

#include <string>
#include <vector>

#include "ucfgsh/session.h"

namespace ucfgsh {

/* What the node (a wire path) is for. */
std::string help_of(session &link, ucfg_tree tree, const std::string &path);

/* The arguments of a management node, as its definition names them. */
std::string arguments_of(session &link, const std::string &path);

/* What the values of a type are. */
std::string describe_type(session &link, const std::string &name);

/* More choices than this are no line to read. */
constexpr size_t k_many_choices = 20;

/* "choices: on off", the first of many. */
std::string list_choices(const std::vector<std::string> &choices);

/* "admin network.ping ADDRESS": how a management node is used, a line each way. */
std::string usage_of(session &link, const ucfg_attr &attr, const std::string &path);

}  // namespace ucfgsh

#endif

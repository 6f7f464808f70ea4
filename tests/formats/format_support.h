/* What the format tests share: modules and trees with owners, texts in and out. */
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "ucfgd/owners.h"

namespace formats {

using module_ptr = owned<cnfmodule, destroy_cnfmodule>;
using tree_ptr = owned<cnfnode, destroy_cnftree>;

/* An instance of a parser; null when there is none or the options do not suit it. */
module_ptr open_module(const std::string &parser, const std::string &options);

/* Whether the plug-in was built; it is loaded when a module of it is opened. */
bool plugin_built();

/* The text as the file "FILE". */
tree_ptr parse(const cnfmodule *module, const std::string &text);

/* The text of a tree; none when it is refused. */
std::optional<std::string> write(const cnfmodule *module, const cnfnode *tree);

}  // namespace formats

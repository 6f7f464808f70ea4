#ifndef CONF_TEXT_H
#define CONF_TEXT_H

#include <string_view>

#include "llconf/modules.h"
#include "llconf/nodes.h"

/* The tree of a text in the daemon's own syntax; the caller destroys it. */
inline cnfnode *conf_text(std::string_view text) {
    register_all();
    return cnfmodule_parse_text(find_cnfmodule("tavconf"), "text", text.data(), text.size());
}

#endif

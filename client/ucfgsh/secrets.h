/* What must not lie about: values like passwords. */
#ifndef UCFGSH_SECRETS_H
#define UCFGSH_SECRETS_H

#include <string>
#include <vector>

#include "ucfgsh/commands.h"

namespace ucfgsh {

/* Whether the parameter's value is nothing to show or keep: a flag or its type says "password" or
 * "secret", or it can be set and not be read. A daemon that cannot be asked counts as a yes. Asks
 * quietly. */
bool is_secret(session &link, const std::string &path);

/* Whether a flag or the type says so. */
bool says_secret(const ucfg_attr &attr);

/* Whether a line that was typed may set such a value; a path that does not exist may be a slip of
 * one that does. */
bool sets_secret(shell &sh, const std::vector<word> &line);

}  // namespace ucfgsh

#endif

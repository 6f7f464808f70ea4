/* What somebody whose request was refused can do next. */
#ifndef UCFGSH_TEACH_H
#define UCFGSH_TEACH_H

#include "ucfgsh/commands.h"

namespace ucfgsh {

/* A line about the request that failed, or "". Asks the daemon, quietly, a bounded number of
 * times. */
std::string next_step(shell &sh, const attempt &what);

/* "a section: use ...", where somebody who types has typed a path for a command; else "". */
std::string path_for_command(shell &sh, const word &typed);

/* Complains about a path that leads to nothing, where the daemon answers all the same. The exit
 * status; k_exit_done when it is all there. */
int refuse_stray(shell &sh, ucfg_tree tree, const std::string &path);

/* ": did you mean X or Y?" or "". */
std::string did_you_mean(const std::vector<std::string> &names);

}  // namespace ucfgsh

#endif

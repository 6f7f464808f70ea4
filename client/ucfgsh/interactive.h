#ifndef UCFGSH_INTERACTIVE_H
#define UCFGSH_INTERACTIVE_H

#include "ucfgsh/commands.h"

namespace ucfgsh {

/* Reads and runs commands at the terminal until the user leaves. Returns the exit status. */
int run_interactive(shell &sh);

}  // namespace ucfgsh

#endif

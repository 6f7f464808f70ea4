/* What could stand at the end of a line that is being typed. Knows nothing of terminals. */
#ifndef UCFGSH_COMPLETION_H
#define UCFGSH_COMPLETION_H

#include <string>
#include <string_view>
#include <vector>

#include "ucfgsh/commands.h"

namespace ucfgsh {

struct candidates {
    size_t start = 0; /* where the word that they replace begins */
    std::vector<std::string> items;
    bool final = false; /* a blank belongs behind a single one */
};

/* The words that fit behind `line`, which ends at the cursor. Asks the daemon, quietly. */
candidates complete(shell &sh, std::string_view line);

/* A few lines about what belongs at the end of `line`: the commands, or the parameter's help, type
 * and choices. */
std::string explain(shell &sh, std::string_view line);

/* Whether a "?" at the end of `line` asks for help; inside a quote or a value it is a "?". */
bool asks_for_help(std::string_view line);

/* The longest beginning that all items share. */
std::string common_prefix(const std::vector<std::string> &items);

}  // namespace ucfgsh

#endif

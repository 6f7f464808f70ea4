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
    size_t count = 0;              /* with those that were too many */
    bool final = false;            /* a blank belongs behind a single one */
    size_t shown = 0;              /* how much of each is known to who typed it */
    size_t commands = 0;           /* the first ones are commands */
    std::optional<ucfg_tree> tree; /* where they are paths: of which tree, */
    std::string above;             /* and below which node */
};

/* The line as far as it is typed: the command, the arguments before the last one, and the last one,
 * which may be empty. */
struct typed_line {
    const command *row = nullptr;
    arguments args;
    word last;
    size_t position = 0; /* which argument the last one is, 0 the command itself */
};

typed_line read_line(std::string_view line);

/* What its last word is: a letter of command::kinds, 'C' the command, '-' a flag, 0 for nothing. */
char kind_of(const typed_line &typed);

/* The words that fit behind `line`, which ends at the cursor. Asks the daemon, quietly. */
candidates complete(shell &sh, std::string_view line);

/* Whether a "?" at the end of `line` asks for help; inside a quote or a value it is a "?". */
bool asks_for_help(std::string_view line);

/* The longest beginning that all items share. */
std::string common_prefix(const std::vector<std::string> &items);

}  // namespace ucfgsh

#endif

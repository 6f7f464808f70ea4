/* What the commands that change read besides their words. */
#ifndef UCFGSH_CHANGE_INPUT_H
#define UCFGSH_CHANGE_INPUT_H

#include <optional>
#include <string>
#include <vector>

#include "ucfgsh/commands.h"

namespace ucfgsh {

/* A list's path and an entry's name, of two words or of one path. */
struct entry {
    std::string list, name;
};

/* Nothing, with the reason, when the words hold none. */
std::optional<entry> find_entry(const shell &sh, const std::vector<word> &typed,
                                std::string &reason);

/* The same with a complaint. */
std::optional<entry> take_entry(shell &sh, const std::vector<word> &typed);

/* A whole file; "-" is standard input. Nothing, with a complaint, when it cannot be read. */
std::optional<std::string> read_all(shell &sh, const std::string &name);

/* The lines up to a line that is `end`; nothing, with a complaint, when it never comes. */
std::optional<std::string> read_lines(shell &sh, const std::string &end);

}  // namespace ucfgsh

#endif

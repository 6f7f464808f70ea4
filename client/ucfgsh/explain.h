/* What is said to somebody who asks while typing. Knows nothing of terminals but their size. */
#ifndef UCFGSH_EXPLAIN_H
#define UCFGSH_EXPLAIN_H

#include "ucfgsh/completion.h"

namespace ucfgsh {

struct page {
    size_t width, rows;
};

/* The candidates: nodes with their values and help, as many as fit. */
std::string show_candidates(shell &sh, const candidates &found, const page &size);

/* What belongs at the end of `line`: the commands, or what fits the command that is typed. */
std::string explain(shell &sh, std::string_view line, const page &size);

}  // namespace ucfgsh

#endif

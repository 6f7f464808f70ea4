#ifndef UCFGSH_PAGER_H
#define UCFGSH_PAGER_H

#include <string>
#include <string_view>

namespace ucfgsh {

/* Whether the text is longer than the terminal. */
bool needs_pager(std::string_view text);

/* Shows it with $PAGER, or with "less" or "more". False when none of them could be started, and
 * nothing was shown. */
bool page(const std::string &text);

}  // namespace ucfgsh

#endif

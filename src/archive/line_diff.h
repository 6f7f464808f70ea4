#ifndef UCFGD_ARCHIVE_LINE_DIFF_H
#define UCFGD_ARCHIVE_LINE_DIFF_H

#ifndef __cplusplus
#    error "line_diff.h is for the archive's own sources"
#endif

#include <stddef.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/* What differs between two texts, line by line. All of it may throw std::bad_alloc. */

/* The lines of a text, each with its newline if it has one. They borrow from the text. */
using text_lines = std::vector<std::string_view>;
text_lines lines_of(const std::string &text);

/* Lines of one text that stand in place of those of the other; from 0, the end not included. */
struct line_change {
    size_t base_from, base_to;
    size_t other_from, other_to;
};

/* The fewest changes that make base the other one, in their order; none at all when those are more
 * lines than it takes a moment to find. */
std::optional<std::vector<line_change>> changes_between(const text_lines &base,
                                                        const text_lines &other);

#endif

/* Text in columns. Widths are those of a terminal, whatever the bytes. */
#ifndef UCFGSH_COLUMNS_H
#define UCFGSH_COLUMNS_H

#include <string>
#include <string_view>
#include <vector>

namespace ucfgsh {

/* The columns that a text takes. */
size_t display_width(std::string_view text);

/* The text in exactly or, cut with a mark, at most that many columns. */
std::string pad(const std::string &text, size_t width);
std::string cut(const std::string &text, size_t width);

/* One name with what there is to say about it. */
struct described {
    std::string name, value, help;
};

/* A line each, in three columns that fit `width`; a column that nobody fills takes no room. */
std::string as_table(const std::vector<described> &rows, size_t width);

/* The items side by side, in `rows` lines at most; `shown` receives how many these are. */
std::string in_columns(const std::vector<std::string> &items, size_t width, size_t rows,
                       size_t &shown);

}  // namespace ucfgsh

#endif

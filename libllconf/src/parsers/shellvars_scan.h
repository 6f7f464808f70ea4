/* The text side of the shellvars parser: assignments as a shell reads them. No nodes in here.
 *
 *  1. A scan looks at the piece at the start of the text. It looks beyond the first line only where
 *     quotes or backslashes take further lines along, and no further than a bounded distance.
 *  2. Quotes and backslashes are taken apart, nothing is expanded: "$HOME" reads as the text $HOME.
 *  3. Nothing here allocates but the strings of its results (std::bad_alloc goes through). */
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace llconf {

enum class shell_kind { empty, comment, assignment, unparsed };

/* One line, or an assignment with the lines that its quotes and backslashes take along. */
struct shell_item {
    shell_kind kind = shell_kind::unparsed;
    std::string_view lead;  // in front of the name: blanks and perhaps "export "
    std::string_view name;  // of the variable
    std::string_view raw;   // the value as it is spelt
    std::string_view tail;  // behind the value up to the line end: blanks and a comment
    std::string value;      // unquoted
    std::size_t end = 0;    // offset behind the last line end
};

shell_item shell_scan(std::string_view text);

bool shell_is_name(std::string_view name);

/* Spells a value so that a shell takes it as it is: plain, or in single quotes. */
void shell_write_value(std::string_view value, std::string &out);

}  // namespace llconf

/* Quotes as people type them, in paths and in command lines alike. */
#ifndef UCFG_QUOTING_H
#define UCFG_QUOTING_H

#include <string>
#include <string_view>

namespace ucfg {

inline bool is_control(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == 127;
}

/* The character that a backslash in double quotes leads to: n, t, r, xHH, else the one behind it.
 * `at` stands behind the backslash and is left on the last character that belongs to it. */
char quoted_escape(std::string_view text, size_t &at);

/* The text in double quotes, such that the above reads it back. */
std::string in_quotes(std::string_view text);

}  // namespace ucfg

#endif

#ifndef UCFGD_SESSION_CHARS_H
#define UCFGD_SESSION_CHARS_H

#ifndef __cplusplus
#    error "chars.h is for C++ sources"
#endif

#include <cstddef>

/* The classes of characters that the protocol knows. ASCII alone: bytes from 128 up are text. */

constexpr bool is_letter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

constexpr bool is_tag_char(char c) {
    return is_letter(c) || (c >= '0' && c <= '9');
}

constexpr bool is_blank(char c) {
    return c == ' ' || (c >= '\t' && c <= '\r');
}

constexpr bool is_control(char c) {
    return static_cast<unsigned char>(c) < 32;
}

constexpr char upper(char c) {
    return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

/* The length of the leading run of a class, at most limit. */
template <class predicate>
constexpr size_t run_length(const char *text, predicate in_class, size_t limit = ~size_t{0}) {
    size_t length = 0;
    while (length < limit && text[length] != '\0' && in_class(text[length]))
        ++length;
    return length;
}

inline const char *skip_blanks(const char *text) {
    return text + run_length(text, is_blank);
}

#endif

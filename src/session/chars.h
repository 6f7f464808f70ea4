#ifndef UCFGD_SESSION_CHARS_H
#define UCFGD_SESSION_CHARS_H

#ifndef __cplusplus
#    error "chars.h is for C++ sources"
#endif

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

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

/* How many bytes at text, up to length, are no control characters. Eight at a time: what is sent
 * and received is nearly always free of them. */
inline size_t run_without_controls(const char *text, size_t length) {
    constexpr uint64_t k_ones = 0x0101010101010101U;
    size_t at = 0;
    for (; length - at >= sizeof(uint64_t); at += sizeof(uint64_t)) {
        uint64_t word = 0;
        memcpy(&word, text + at, sizeof(word));
        if (((word - k_ones * 32) & ~word & (k_ones * 128)) != 0) break;
    }
    while (at < length && !is_control(text[at]))
        ++at;
    return at;
}

inline constexpr auto k_capitals = [] {
    std::array<char, 256> capitals{};
    for (size_t c = 'A'; c <= 'Z'; ++c)
        capitals[c] = capitals[c - 'A' + 'a'] = static_cast<char>(c);
    return capitals;
}();

/* The capital of a letter, NUL for what is none. */
constexpr char capital(char c) {
    return k_capitals[static_cast<unsigned char>(c)];
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

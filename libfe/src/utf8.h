// Characters in texts that are UTF-8 by intention only: whatever is no proper sequence counts byte
// by byte. Independent of the locale.
#ifndef FE_UTF8_H
#define FE_UTF8_H

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace fe {

constexpr bool is_continuation(char c) {
    return (static_cast<unsigned char>(c) & 0xC0) == 0x80;
}

// The first character of a text that is not empty; `length` is how many bytes it has. A byte that
// starts no character gives a code above 0x110000, so that it is never mistaken for one.
constexpr char32_t first_character(std::string_view text, size_t &length) {
    auto first = static_cast<unsigned char>(text[0]);
    length = 1;
    if (first < 0x80) return first;
    size_t want = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    char32_t least = want == 4 ? 0x10000 : want == 3 ? 0x800 : 0x80;
    if (first < 0xC2 || first > 0xF4 || text.size() < want) return 0x110000U + first;
    char32_t code = first & (0xFFU >> (want + 1));
    for (size_t i = 1; i < want; ++i) {
        if (!is_continuation(text[i])) return 0x110000U + first;
        code = code << 6 | (static_cast<unsigned char>(text[i]) & 0x3FU);
    }
    if (code < least || code > 0x10FFFF || (code >= 0xD800 && code <= 0xDFFF)) {
        return 0x110000U + first;
    }
    length = want;
    return code;
}

constexpr size_t first_length(std::string_view text) {
    size_t length = 0;
    first_character(text, length);
    return length;
}

constexpr size_t count_characters(std::string_view text) {
    size_t count = 0;
    for (; !text.empty(); ++count)
        text.remove_prefix(first_length(text));
    return count;
}

// The byte at which character number `position` starts, or the end.
constexpr size_t offset_of_character(std::string_view text, size_t position) {
    size_t offset = 0;
    for (; position > 0 && offset < text.size(); --position) {
        offset += first_length(text.substr(offset));
    }
    return offset;
}

}  // namespace fe

#endif

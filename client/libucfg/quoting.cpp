#include "quoting.h"

namespace ucfg {

namespace {

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<char>(c | 0x20);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

}  // namespace

char quoted_escape(std::string_view text, size_t &at) {
    switch (text[at]) {
        case 'n':
            return '\n';
        case 't':
            return '\t';
        case 'r':
            return '\r';
        case 'x':
            if (at + 2 < text.size() && hex_value(text[at + 1]) >= 0 &&
                hex_value(text[at + 2]) >= 0) {
                int value = hex_value(text[at + 1]) * 16 + hex_value(text[at + 2]);
                at += 2;
                return static_cast<char>(value);
            }
            return 'x';
        default:
            return text[at];
    }
}

std::string in_quotes(std::string_view text) {
    constexpr std::string_view k_digits = "0123456789abcdef";
    std::string quoted = "\"";
    for (char c : text) {
        if (c == '\n') {
            quoted += "\\n";
        } else if (c == '\t') {
            quoted += "\\t";
        } else if (is_control(c)) {
            quoted += "\\x";
            quoted += k_digits[static_cast<unsigned char>(c) >> 4U];
            quoted += k_digits[static_cast<unsigned char>(c) & 15U];
        } else {
            if (c == '"' || c == '\\') quoted += '\\';
            quoted += c;
        }
    }
    return quoted + "\"";
}

}  // namespace ucfg

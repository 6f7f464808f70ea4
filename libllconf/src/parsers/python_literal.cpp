#include "python_literal.h"

#include <array>
#include <cstdint>

namespace llconf {
namespace {

struct short_escape {
    char letter;
    char meaning;
};

constexpr std::array<short_escape, 5> k_escapes = {
    {{'\\', '\\'}, {'\'', '\''}, {'n', '\n'}, {'r', '\r'}, {'t', '\t'}}};
constexpr std::string_view k_hex = "0123456789abcdef";
constexpr std::string_view k_control = "x";     // \xHH
constexpr std::string_view k_bad_byte = "udc";  // \udcHH

std::uint8_t byte_at(std::string_view text, std::size_t pos) {
    return pos < text.size() ? static_cast<std::uint8_t>(text[pos]) : std::uint8_t{0};
}

/* The length of the UTF-8 character at pos; 0 for a byte that begins none. */
std::size_t utf8_length(std::string_view text, std::size_t pos) {
    std::uint8_t first = byte_at(text, pos);
    std::uint8_t second = byte_at(text, pos + 1);
    std::size_t length = 0;
    if (first < 0x80) return 1;
    if (first >= 0xc2 && first <= 0xdf) length = 2;
    if (first >= 0xe0 && first <= 0xef) length = 3;
    if (first >= 0xf0 && first <= 0xf4) length = 4;
    if ((first == 0xe0 && second < 0xa0) || (first == 0xed && second > 0x9f)) return 0;
    if ((first == 0xf0 && second < 0x90) || (first == 0xf4 && second > 0x8f)) return 0;
    for (std::size_t i = 1; i < length; ++i) {
        if ((byte_at(text, pos + i) & 0xc0) != 0x80) return 0;
    }
    return length;
}

void write_hex(std::string_view kind, std::uint8_t byte, std::string &out) {
    out += '\\';
    out += kind;
    out += k_hex[byte >> 4];
    out += k_hex[byte & 15];
}

void write_byte(std::uint8_t byte, std::string &out) {
    for (const short_escape &e : k_escapes) {
        if (static_cast<std::uint8_t>(e.meaning) != byte) continue;
        out += '\\';
        out += e.letter;
        return;
    }
    if (byte >= 0x80) {
        write_hex(k_bad_byte, byte, out);
    } else if (byte < 0x20 || byte == 0x7f) {
        write_hex(k_control, byte, out);
    } else {
        out += static_cast<char>(byte);
    }
}

bool read_escape(std::string_view text, std::size_t &pos, std::string &out) {
    for (const short_escape &e : k_escapes) {
        if (pos >= text.size() || text[pos] != e.letter) continue;
        out += e.meaning;
        ++pos;
        return true;
    }
    for (std::string_view kind : {k_control, k_bad_byte}) {
        if (text.substr(pos, kind.size()) != kind) continue;
        std::size_t digits = pos + kind.size();
        std::size_t high = k_hex.find(static_cast<char>(byte_at(text, digits)));
        std::size_t low = k_hex.find(static_cast<char>(byte_at(text, digits + 1)));
        if (high == std::string_view::npos || low == std::string_view::npos) return false;
        out += static_cast<char>(high << 4 | low);
        pos = digits + 2;
        return true;
    }
    return false;
}

}  // namespace

void python_write_literal(std::string_view text, std::string &out) {
    out += '\'';
    for (std::size_t i = 0; i < text.size();) {
        std::size_t length = utf8_length(text, i);
        if (length > 1) {
            out += text.substr(i, length);
            i += length;
        } else {
            write_byte(byte_at(text, i++), out);
        }
    }
    out += '\'';
}

bool python_read_literal(std::string_view text, std::size_t &pos, std::string &out) {
    std::size_t start = pos;
    if (pos >= text.size() || text[pos] != '\'') return false;
    out.clear();
    for (++pos; pos < text.size() && text[pos] != '\'';) {
        if (text[pos] == '\\') {
            std::size_t behind = pos + 1;
            if (!read_escape(text, behind, out)) return false;
            pos = behind;
        } else {
            out += text[pos++];
        }
    }
    if (pos >= text.size()) return false;
    ++pos;
    std::string again;
    python_write_literal(out, again);
    bool has_nul = out.find('\0') != std::string::npos;
    if (!has_nul && again == text.substr(start, pos - start)) return true;
    pos = start;
    return false;
}

}  // namespace llconf

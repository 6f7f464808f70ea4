#include "ucfgd/escape.h"

#include <errno.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>

#include "ucfgd/owners.h"

namespace {

constexpr char k_digits[] = "0123456789abcdef";
constexpr int k_longest_character = 4;

bool is_hex(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

int _hexval(char c) {
    return c >= '0' && c <= '9' ? c - '0' : (c | 0x20) - 87;
}

/* Ends at the first character that is no digit, so it never looks behind a NUL. */
bool is_hex_pair(const char *text) {
    return is_hex(text[0]) && is_hex(text[1]);
}

char pair_value(const char *pair) {
    return static_cast<char>(_hexval(pair[0]) * 16 + _hexval(pair[1]));
}

enum class byte_class : unsigned char { plain, blank, other };

constexpr std::array<byte_class, 256> k_classes = [] {
    std::array<byte_class, 256> classes{};
    for (size_t c = 0; c < classes.size(); c++)
        classes[c] = c > 32 && c < 128 ? byte_class::plain : byte_class::other;
    classes[' '] = byte_class::blank;
    for (char c : {'.', '+', '%'})
        classes[static_cast<unsigned char>(c)] = byte_class::other;
    return classes;
}();

bool is_continuation(unsigned char c) {
    return (c & 0xC0) == 0x80;
}

/* The bytes of the character at text when it has two or more, otherwise 0. */
size_t multibyte_length(const char *text, size_t rest) {
    int len = static_cast<int>(std::min<size_t>(rest, k_longest_character));
    return getUTF8Char(text, &len) >= 0 && len > 1 ? static_cast<size_t>(len) : 0;
}

}  // namespace

char *escape(const char *str) {
    if (!str) {
        errno = EINVAL;
        return nullptr;
    }
    size_t rest = std::strlen(str);
    auto *escaped = static_cast<char *>(std::malloc(rest * 3 + 1));
    if (!escaped) return nullptr;
    char *out = escaped;
    while (rest > 0) {
        auto c = static_cast<unsigned char>(*str);
        size_t used = 1;
        if (k_classes[c] == byte_class::plain) {
            *out++ = *str;
        } else if (k_classes[c] == byte_class::blank) {
            *out++ = '+';
        } else if (size_t len = multibyte_length(str, rest)) {
            std::memcpy(out, str, len);
            out += len;
            used = len;
        } else {
            *out++ = '%';
            *out++ = k_digits[c >> 4];
            *out++ = k_digits[c & 15];
        }
        str += used;
        rest -= used;
    }
    *out = '\0';
    return escaped;
}

char *unescape(const char *esc_str) {
    if (!esc_str) {
        errno = EINVAL;
        return nullptr;
    }
    auto *str = static_cast<char *>(std::malloc(std::strlen(esc_str) + 1));
    return str ? unescape_b(esc_str, str) : nullptr;
}

char *unescape_b(const char *esc_str, char *str) {
    unescape_part(esc_str, std::strlen(esc_str), str);
    return str;
}

size_t unescape_part(const char *esc_str, size_t length, char *str) {
    const char *const end = esc_str + length;
    char *out = str;
    while (esc_str < end) {
        const char c = *esc_str;
        if (c == '%' && end - esc_str > 2 && is_hex_pair(esc_str + 1)) {
            *out++ = pair_value(esc_str + 1);
            esc_str += 3;
        } else {
            *out++ = c == '+' ? ' ' : c;
            esc_str++;
        }
    }
    *out = '\0';
    return static_cast<size_t>(out - str);
}

int getUTF8Char(const char *utf, int *len) {
    if (!len) return -1;
    int available = *len;
    *len = 0;
    if (!utf || available <= 0) return -1;
    auto byte = [utf](int i) { return static_cast<unsigned char>(utf[i]); };
    auto found = [len](int length, int value) {
        *len = length;
        return value;
    };
    if (byte(0) < 0x80) return found(1, byte(0));
    if (available < 2 || !is_continuation(byte(1))) return -1;
    if ((byte(0) & 0xE0) != 0xE0) return found(2, (byte(0) & 31) * 64 + (byte(1) & 63));
    if (available < 3 || !is_continuation(byte(2))) return -1;
    int tail = (byte(1) & 63) * 64 + (byte(2) & 63);
    if ((byte(0) & 0xF0) != 0xF0) return found(3, (byte(0) & 15) * 4096 + tail);
    if (available < 4 || (byte(0) & 0xF8) != 0xF0 || !is_continuation(byte(3))) return -1;
    return found(4, (byte(0) & 7) * 262144 + tail * 64 + (byte(3) & 63));
}

char *hexencode(const void *in, char *out, size_t in_size, size_t out_size) {
    if (out_size == 0) return out;
    const auto *bytes = static_cast<const unsigned char *>(in);
    size_t count = std::min(in_size, (out_size - 1) / 2);
    char *end = out;
    for (size_t i = 0; i < count; i++) {
        *end++ = k_digits[bytes[i] >> 4];
        *end++ = k_digits[bytes[i] & 15];
    }
    *end = '\0';
    return out;
}

void *hexdecode(const char *in, void *out, size_t out_size, size_t *out_len) {
    if (out_len) *out_len = 0;
    size_t length = 0;
    while (is_hex_pair(in + length))
        length += 2;
    if (in[length] != '\0') {
        errno = EINVAL;
        return nullptr;
    }
    auto *bytes = static_cast<char *>(out);
    size_t count = out_size == 0 ? 0 : std::min(length / 2, out_size - 1);
    for (size_t i = 0; i < count; i++)
        bytes[i] = pair_value(in + 2 * i);
    if (out_len) *out_len = count;
    return out;
}

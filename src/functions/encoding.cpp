#include <libdaemon/dlog.h>

#include <cctype>
#include <cstring>
#include <string>

#include "functions/llmisc.h"
#include "ucfgd/escape.h"

/* Texts in the forms that other places ask for: a component of a file tree's path, percent
 * encoding, hexadecimal. A text holds no NUL, so a code for one is never decoded. */

namespace {

constexpr std::string_view k_path_specials = "/[]=*?\\";
constexpr std::string_view k_unreserved_marks = "-._~";

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    int lower = tolower(static_cast<unsigned char>(c));
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/* The byte that two hexadecimal digits give; 0 where there are none, or where they give a NUL. */
char decode_pair(const char *digits) {
    int high = hex_value(digits[0]);
    int low = high < 0 ? -1 : hex_value(digits[1]);
    return low < 0 ? '\0' : static_cast<char>(high * 16 + low);
}

}  // namespace

fe_node *llmisc_slashify(const call_arguments &arguments) {
    std::string_view text = arguments[0];
    if (text.empty()) return fe_fail(EINVAL, nullptr, "the empty text is no part of a path");
    if (text == ".") return const_node("\\.");
    if (std::strcspn(text.data(), k_path_specials.data()) == text.size())
        return const_node(text.data());
    std::string component;
    component.reserve(text.size() + 8);
    for (char c : text) {
        if (k_path_specials.find(c) != std::string_view::npos) component += '\\';
        component += c;
    }
    return const_node(component.c_str());
}

fe_node *llmisc_escapename(const call_arguments &arguments) {
    owned_str name{escape(arguments[0])};
    return name ? const_node(name.get()) : nullptr;
}

fe_node *llmisc_urlencode(const call_arguments &arguments) {
    constexpr char k_digits[] = "0123456789ABCDEF";
    std::string encoded;
    for (const char *p = arguments[0]; *p != '\0'; p++) {
        auto byte = static_cast<unsigned char>(*p);
        bool plain = byte < 128 &&
                     (isalnum(byte) != 0 || k_unreserved_marks.find(*p) != std::string_view::npos);
        if (plain)
            encoded += *p;
        else
            encoded.append({'%', k_digits[byte >> 4], k_digits[byte & 15]});
    }
    return const_node(encoded.c_str());
}

fe_node *llmisc_urldecode(const call_arguments &arguments) {
    std::string decoded;
    for (const char *p = arguments[0]; *p != '\0'; p++) {
        char byte = *p == '%' ? decode_pair(p + 1) : '\0';
        decoded += byte != '\0' ? byte : *p;
        if (byte != '\0') p += 2;
    }
    return const_node(decoded.c_str());
}

fe_node *llmisc_hexencode(const call_arguments &arguments) {
    std::string_view text = arguments[0];
    std::string encoded(2 * text.size() + 1, '\0');
    return const_node(hexencode(text.data(), encoded.data(), text.size(), encoded.size()));
}

fe_node *llmisc_hexdecode(const call_arguments &arguments) {
    std::string_view text = arguments[0];
    std::string decoded(text.size() / 2 + 2, '\0');
    size_t used = 0;
    errno_guard keep;
    if (hexdecode(arguments[0], decoded.data(), decoded.size(), &used) == nullptr ||
        memchr(decoded.data(), '\0', used) != nullptr) {
        daemon_log(LOG_ERR, "hexdecode: not made of pairs of hexadecimal digits for a text");
        return const_node("");
    }
    decoded.resize(used);
    return const_node(decoded.c_str());
}

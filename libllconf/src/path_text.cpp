#include "path_text.h"

#include <cstdint>

namespace {

constexpr std::string_view k_special = "/[]=*?\\";

struct raw_component {
    std::string_view name;
    bool has_selector;
    std::string_view selector; /* between the brackets */
};

/* The place of the first of these characters that no backslash precedes; npos for none. */
template <char... characters>
size_t find_plain(std::string_view text) {
    for (size_t i = 0; i < text.size(); i++) {
        if (text[i] == '\\') {
            i++;
        } else if (((text[i] == characters) || ...)) {
            return i;
        }
    }
    return std::string_view::npos;
}

bool ends_in_backslash(std::string_view text) {
    size_t count = 0;
    while (count < text.size() && text[text.size() - 1 - count] == '\\')
        count++;
    return count % 2 == 1;
}

/* Takes the first component off, with the "/" behind it. False when there is none. */
bool cut_component(std::string_view &rest, raw_component &raw) {
    size_t end = find_plain<'/', '[', ']'>(rest);
    raw = {rest.substr(0, end), false, {}};
    if (end != std::string_view::npos && rest[end] == '[') {
        std::string_view behind = rest.substr(end + 1);
        size_t close = find_plain<']'>(behind);
        if (close == std::string_view::npos) return false;
        raw.has_selector = true;
        raw.selector = behind.substr(0, close);
        rest = behind.substr(close + 1);
    } else {
        rest = end == std::string_view::npos ? std::string_view{} : rest.substr(end);
    }
    if (raw.name.empty() && !raw.has_selector) return false;
    if (rest.empty()) return !ends_in_backslash(raw.name) || raw.has_selector;
    if (rest[0] != '/' || rest.size() == 1) return false;
    rest.remove_prefix(1);
    return true;
}

bool is_number(std::string_view text) {
    return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

bool is_selector(std::string_view text) {
    if (is_number(text)) return true;
    size_t equals = find_plain<'='>(text);
    return equals != std::string_view::npos && equals > 0;
}

size_t to_index(std::string_view digits) {
    size_t index = 0;
    for (char digit : digits) {
        if (index > SIZE_MAX / 16) return SIZE_MAX;
        index = index * 10 + static_cast<size_t>(digit - '0');
    }
    return index;
}

/* Length of the character at the start of text: one byte, or a UTF-8 lead with what follows it. */
size_t character_length(std::string_view text) {
    size_t length = 1;
    if ((static_cast<unsigned char>(text[0]) & 0xc0U) != 0xc0U) return length;
    while (length < text.size() && (static_cast<unsigned char>(text[length]) & 0xc0U) == 0x80U) {
        length++;
    }
    return length;
}

}  // namespace

bool path_reader::is_path(std::string_view path) {
    while (!path.empty()) {
        raw_component raw;
        if (!cut_component(path, raw)) return false;
        if (raw.has_selector && !is_selector(raw.selector)) return false;
    }
    return true;
}

std::string_view path_reader::plain(std::string_view escaped) {
    if (escaped.find('\\') == std::string_view::npos) return escaped;
    auto text = std::make_unique<std::string>();
    text->reserve(escaped.size());
    for (size_t i = 0; i < escaped.size(); i++) {
        if (escaped[i] == '\\' && i + 1 < escaped.size()) i++;
        text->push_back(escaped[i]);
    }
    unescaped_.push_back(std::move(text));
    return *unescaped_.back();
}

path_component path_reader::next() {
    raw_component raw;
    path_component part{};
    if (!cut_component(rest_, raw)) rest_ = {};
    part.wildcard = wildcards_ && find_plain<'*', '?'>(raw.name) != std::string_view::npos;
    part.name = part.wildcard ? raw.name : plain(raw.name);
    if (!raw.has_selector) return part;
    if (is_number(raw.selector)) {
        part.select = selector::index;
        part.index = to_index(raw.selector);
        return part;
    }
    size_t equals = find_plain<'='>(raw.selector);
    part.select = selector::key;
    part.key = plain(raw.selector.substr(0, equals));
    part.text = plain(raw.selector.substr(equals + 1));
    return part;
}

bool matches_pattern(std::string_view pattern, std::string_view name) {
    size_t p = 0;
    size_t n = 0;
    size_t star = std::string_view::npos; /* behind the last star */
    size_t retry = 0;                     /* where the text that it stands for may end next */
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = ++p;
            retry = n;
            continue;
        }
        if (p < pattern.size() && pattern[p] == '?') {
            p++;
            n += character_length(name.substr(n));
            continue;
        }
        size_t literal = p + (p + 1 < pattern.size() && pattern[p] == '\\' ? 1 : 0);
        if (literal < pattern.size() && pattern[literal] == name[n]) {
            p = literal + 1;
            n++;
            continue;
        }
        if (star == std::string_view::npos) return false;
        p = star;
        n = ++retry;
    }
    while (p < pattern.size() && pattern[p] == '*')
        p++;
    return p == pattern.size();
}

void append_escaped(std::string &path, std::string_view name) {
    if (name == ".") path.push_back('\\');
    for (char c : name) {
        if (k_special.find(c) != std::string_view::npos) path.push_back('\\');
        path.push_back(c);
    }
}

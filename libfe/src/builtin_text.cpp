// Texts. Positions and lengths count characters.
#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <cwctype>
#include <string>

#include "arguments.h"
#include "utf8.h"

namespace fe {

namespace {

constexpr int64_t k_max_width = 10'000;

// In linear time, however often the beginning of the part comes up; std::string_view::find is not.
size_t find_part(std::string_view text, std::string_view part) {
    const void *found = memmem(text.data(), text.size(), part.data(), part.size());
    if (found == nullptr) return std::string_view::npos;
    return static_cast<size_t>(static_cast<const char *>(found) - text.data());
}

fe_node *join_texts(std::span<const std::string_view> texts, std::string_view separator) {
    size_t length = texts.empty() ? 0 : separator.size() * (texts.size() - 1);
    for (std::string_view text : texts)
        length += text.size();
    fe_node *node = allocate_const(length);
    if (node == nullptr) return nullptr;
    char *end = node_text(node);
    auto append = [&end](std::string_view text) {
        copy_text(end, text);
        end += text.size();
    };
    for (size_t i = 0; i < texts.size(); ++i) {
        if (i != 0) append(separator);
        append(texts[i]);
    }
    return node;
}

fe_node *func_cat(const arguments &args) {
    return join_texts(args.from(0), {});
}

fe_node *func_join(const arguments &args) {
    return join_texts(args.from(1), args[0]);
}

fe_node *func_len(const arguments &args) {
    return new_number(static_cast<int64_t>(count_characters(args[0])));
}

void append_character(std::string &text, char32_t code) {
    auto put = [&text](char32_t byte) { text.push_back(static_cast<char>(byte)); };
    if (code < 0x80) {
        put(code);
    } else if (code < 0x800) {
        put(0xC0 | code >> 6);
        put(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        put(0xE0 | code >> 12);
        put(0x80 | (code >> 6 & 0x3F));
        put(0x80 | (code & 0x3F));
    } else {
        put(0xF0 | code >> 18);
        put(0x80 | (code >> 12 & 0x3F));
        put(0x80 | (code >> 6 & 0x3F));
        put(0x80 | (code & 0x3F));
    }
}

template <wint_t (*convert)(wint_t)>
fe_node *func_case(const arguments &args) {
    std::string result;
    result.reserve(args[0].size());
    for (std::string_view rest = args[0]; !rest.empty();) {
        size_t length = 0;
        char32_t code = first_character(rest, length);
        if (code > 0x10FFFF) {
            result.push_back(rest[0]);
        } else {
            append_character(result, convert(code));
        }
        rest.remove_prefix(length);
    }
    return new_const(result);
}

fe_node *func_trim(const arguments &args) {
    std::string_view text = args[0];
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return new_const(text);
}

fe_node *func_substr(const arguments &args) {
    int64_t start = 0;
    int64_t count = INT64_MAX;
    if (!parse_number(args[1], start)) return no_number(args[1]);
    if (args.size() == 3 && !parse_number(args[2], count)) return no_number(args[2]);
    std::string_view text = args[0];
    if (start < 0) {
        start = std::max<int64_t>(0, start + static_cast<int64_t>(count_characters(text)));
    }
    // No text has more characters than bytes, and a size_t may be shorter than a number.
    auto characters = [](int64_t n, std::string_view of) {
        return static_cast<size_t>(std::min(n, static_cast<int64_t>(of.size())));
    };
    text.remove_prefix(offset_of_character(text, characters(start, text)));
    if (count <= 0) return new_const({});
    return new_const(text.substr(0, offset_of_character(text, characters(count, text))));
}

fe_node *func_index(const arguments &args) {
    size_t offset = find_part(args[0], args[1]);
    if (offset == std::string_view::npos) return new_number(-1);
    return new_number(static_cast<int64_t>(count_characters(args[0].substr(0, offset))));
}

fe_node *func_replace(const arguments &args) {
    std::string_view text = args[0];
    const std::string_view from = args[1];
    const std::string_view to = args[2];
    if (from.empty()) return new_const(text);
    std::string result;
    for (size_t at; (at = find_part(text, from)) != std::string_view::npos;) {
        result.append(text.substr(0, at)).append(to);
        text.remove_prefix(at + from.size());
        if (result.size() > k_max_text) return fail_with(ENOMEM);
    }
    return new_const(result.append(text));
}

fe_node *func_split(const arguments &args) {
    if (args[1].empty()) return fe_fail(EINVAL, nullptr, "an empty separator");
    result_list pieces;
    std::string_view rest = args[0];
    while (true) {
        size_t at = find_part(rest, args[1]);
        if (!charge(1) || !pieces.append_text(rest.substr(0, at))) return nullptr;
        if (at == std::string_view::npos) return pieces.release();
        rest.remove_prefix(at + args[1].size());
    }
}

// %[0][width]letter
struct conversion {
    bool zero = false;
    int64_t width = 0;
    char letter = '\0';
};

// Takes a conversion, "%" included, off the front of a format.
bool take_conversion(std::string_view &format, conversion &taken) {
    size_t at = 1;
    if (at < format.size() && format[at] == '0') {
        taken.zero = true;
        ++at;
    }
    for (; at < format.size() && is_digit(format[at]); ++at) {
        taken.width = taken.width * 10 + (format[at] - '0');
        if (taken.width > k_max_width) return false;
    }
    if (at == format.size()) return false;
    taken.letter = format[at];
    format.remove_prefix(at + 1);
    return true;
}

// The text that a conversion makes of its argument, not yet padded; false when it is no number.
bool convert(char letter, std::string_view argument, std::string &text) {
    if (letter == 's') {
        text = argument;
        return true;
    }
    int64_t number = 0;
    if (!parse_number(argument, number)) return false;
    std::array<char, 24> digits;
    char *last = digits.data() + digits.size();
    char *end = letter == 'd'
                    ? std::to_chars(digits.data(), last, number).ptr
                    : std::to_chars(digits.data(), last, static_cast<uint64_t>(number), 16).ptr;
    text.assign(digits.data(), end);
    return true;
}

void append_padded(std::string &result, const conversion &how, const std::string &text) {
    size_t length = count_characters(text);
    auto width = static_cast<size_t>(how.width);
    size_t padding = width > length ? width - length : 0;
    if (!how.zero || how.letter == 's') {
        result.append(padding, ' ').append(text);
    } else {
        size_t sign = text[0] == '-' ? 1 : 0;
        result.append(text, 0, sign).append(padding, '0').append(text, sign);
    }
}

fe_node *func_format(const arguments &args) {
    std::string result;
    std::string text;
    size_t used = 1;
    for (std::string_view format = args[0]; !format.empty();) {
        size_t plain = std::min(format.find('%'), format.size());
        result.append(format.substr(0, plain));
        format.remove_prefix(plain);
        if (format.empty()) break;
        conversion how;
        if (!take_conversion(format, how)) {
            return fe_fail(EINVAL, args[0].data(), "no format");
        }
        if (how.letter == '%') {
            result.push_back('%');
            continue;
        }
        if (how.letter != 's' && how.letter != 'd' && how.letter != 'x') {
            return fe_fail(EINVAL, args[0].data(), "no format");
        }
        if (used == args.size()) return fe_fail(EINVAL, args[0].data(), "too few arguments for it");
        if (!convert(how.letter, args[used++], text)) return no_number(args[used - 1]);
        append_padded(result, how, text);
        if (result.size() > k_max_text) return fail_with(ENOMEM);
    }
    if (used != args.size()) return fe_fail(EINVAL, args[0].data(), "too many arguments for it");
    return new_const(result);
}

constexpr builtin k_rows[] = {
    {"cat", 1, builtin::k_any, func_cat},
    {"len", 1, 1, func_len},
    {"upper", 1, 1, func_case<towupper>},
    {"lower", 1, 1, func_case<towlower>},
    {"trim", 1, 1, func_trim},
    {"substr", 2, 3, func_substr},
    {"index", 2, 2, func_index},
    {"replace", 3, 3, func_replace},
    {"split", 2, 2, func_split},
    {"join", 1, builtin::k_any, func_join},
    {"format", 1, builtin::k_any, func_format},
};

}  // namespace

const std::span<const builtin> k_text_functions = k_rows;

}  // namespace fe

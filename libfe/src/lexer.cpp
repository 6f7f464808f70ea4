#include "lexer.h"

#include <algorithm>
#include <array>

#include "internal.h"
#include "utf8.h"

namespace fe {

namespace {

// Longer ones first.
constexpr std::array<std::string_view, 20> k_punctuation = {
    "<=", ">=", "==", "!=", "=~", "&&", "||", "..", "<", ">",
    "!",  "-",  "*",  "/",  "%",  "+",  "(",  ")",  ",", "?"};

constexpr size_t k_longest_found = 40;

int hex_digit(char c) {
    if (is_digit(c)) return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

size_t punctuation_length(std::string_view text) {
    const char next = text.size() > 1 ? text[1] : '\0';
    for (std::string_view known : k_punctuation)
        if (text.front() == known[0] && (known.size() == 1 || next == known[1]))
            return known.size();
    return text.starts_with(':') ? 1 : 0;
}

}  // namespace

size_t lexer::word_end(size_t start) const {
    while (start < text_.size() && is_word(text_[start]))
        ++start;
    return start;
}

token lexer::next() {
    while (at_ < text_.size() && is_blank(text_[at_]))
        ++at_;
    const size_t start = at_;
    if (start == text_.size()) return {token_kind::end, start, {}, {}};
    const char c = text_[start];
    if (c == '\'' || c == '"') return quoted(start);
    if (c == '$') return variable(start);
    token result{token_kind::punctuation, start, {}, {}};
    if (is_digit(c)) {
        while (at_ < text_.size() && is_digit(text_[at_]))
            ++at_;
        result.kind = token_kind::constant;
        result.value = text_.substr(start, at_ - start);
    } else if (is_word(c)) {
        at_ = word_end(start);
        result.kind = token_kind::name;
        result.value = text_.substr(start, at_ - start);
    } else if (size_t length = punctuation_length(text_.substr(start))) {
        at_ += length;
    } else {
        return {token_kind::error, start, {}, "an expression or an operator"};
    }
    result.source = text_.substr(start, at_ - start);
    return result;
}

// The character or the two behind a backslash; false for \x00, which no text can hold.
bool lexer::escape(std::string &value) {
    static constexpr std::string_view k_letters = "\\'\"nrt";
    static constexpr std::string_view k_meanings = "\\'\"\n\r\t";
    const char c = at_ < text_.size() ? text_[at_] : '\0';
    if (size_t index = k_letters.find(c); index != std::string_view::npos) {
        value.push_back(k_meanings[index]);
        ++at_;
        return true;
    }
    if (c == 'x' && at_ + 2 < text_.size()) {
        int high = hex_digit(text_[at_ + 1]);
        int low = hex_digit(text_[at_ + 2]);
        if (high >= 0 && low >= 0) {
            value.push_back(static_cast<char>(high * 16 + low));
            at_ += 3;
            return high + low != 0;
        }
    }
    value.push_back('\\');
    return true;
}

token lexer::quoted(size_t start) {
    token result{token_kind::constant, start, {}, {}};
    const char quote = text_[start];
    ++at_;
    while (at_ < text_.size() && text_[at_] != quote) {
        if (text_[at_] != '\\') {
            const size_t from = at_;
            while (at_ < text_.size() && text_[at_] != quote && text_[at_] != '\\')
                ++at_;
            result.value.append(text_, from, at_ - from);
            continue;
        }
        const size_t backslash = at_++;
        if (!escape(result.value)) {
            return {token_kind::error, backslash, {}, "\\x01 to \\xFF"};
        }
    }
    if (at_ == text_.size()) {
        return {token_kind::error,
                at_,
                {},
                std::string(1, quote) + " to close the text from column " +
                    std::to_string(column(start))};
    }
    ++at_;
    result.source = text_.substr(start, at_ - start);
    return result;
}

token lexer::variable(size_t start) {
    const bool braces = text_.substr(start + 1).starts_with('{');
    const size_t name = start + (braces ? 2 : 1);
    at_ = text_.substr(name).starts_with('-') ? name + 1 : word_end(name);
    if (at_ == name) return {token_kind::error, at_, {}, "the name of a variable behind \"$\""};
    token result{token_kind::variable, start, {}, std::string(text_.substr(name, at_ - name))};
    if (braces) {
        if (!text_.substr(at_).starts_with('}')) {
            return {token_kind::error,
                    at_,
                    {},
                    "\"}\" to close the \"{\" of column " + std::to_string(column(start + 1))};
        }
        ++at_;
    }
    result.source = text_.substr(start, at_ - start);
    return result;
}

size_t lexer::column(size_t offset) const {
    return count_characters(text_.substr(0, offset)) + 1;
}

std::string lexer::found_at(size_t offset) const {
    std::string_view rest = text_.substr(offset);
    if (rest.empty()) return "the end";
    size_t length = punctuation_length(rest);
    if (length == 0) length = word_end(offset) - offset;
    if (rest[0] == '$') length = 1 + word_end(offset + 1) - (offset + 1);
    if (rest[0] == '\'' || rest[0] == '"') {
        length = std::min(rest.find(rest[0], 1), rest.size() - 1) + 1;
    }
    if (rest[0] == '\\') length = offset_of_character(rest, 4);
    if (length == 0) length = first_length(rest);
    std::string found = "\"";
    found += rest.substr(0, offset_of_character(rest.substr(0, length), k_longest_found));
    if (found.size() - 1 < length) found += "...";
    for (char &c : found) {
        if (static_cast<unsigned char>(c) < ' ' || c == '\x7f') c = ' ';
    }
    return found + "\"";
}

std::string lexer::complaint(size_t offset, std::string_view expected) const {
    return "column " + std::to_string(column(offset)) + ": expected " + std::string(expected) +
           ", found " + found_at(offset);
}

}  // namespace fe

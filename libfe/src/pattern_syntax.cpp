// The engine's own syntax differs from that of POSIX in what people rely on: a backslash between
// brackets is an ordinary character here, "{,3}" a repetition, a lone ")" itself. So patterns are
// read here, and what reaches the engine is spelled such that it can mean one thing only.
#include "pattern_syntax.h"

#include <algorithm>
#include <array>
#include <bitset>
#include <cctype>
#include <cstdint>

#include "internal.h"
#include "utf8.h"

namespace fe {

namespace {

// Stray bytes 0x80 to 0xFF become the surrogates U+DC80 to U+DCFF, which UTF-8 does not have.
constexpr char32_t k_stray = 0xDC00;

struct character_class {
    std::string_view name;
    int (*has)(int c);
};

constexpr std::array k_classes = {
    character_class{"alnum", isalnum}, character_class{"alpha", isalpha},
    character_class{"blank", isblank}, character_class{"cntrl", iscntrl},
    character_class{"digit", isdigit}, character_class{"graph", isgraph},
    character_class{"lower", islower}, character_class{"print", isprint},
    character_class{"punct", ispunct}, character_class{"space", isspace},
    character_class{"upper", isupper}, character_class{"xdigit", isxdigit}};

char32_t take_character(std::string_view &rest) {
    size_t length = 0;
    char32_t code = first_character(rest, length);
    if (code > 0x10FFFF) code = k_stray + static_cast<unsigned char>(rest[0]);
    rest.remove_prefix(length);
    return code;
}

constexpr std::string_view k_no_character = "[^\\x{0}-\\x{10ffff}]";

void append_escaped(std::string &to, char32_t code) {
    if (code < 0x80 && is_word(static_cast<char>(code))) {
        to.push_back(static_cast<char>(code));
        return;
    }
    constexpr std::string_view k_digits = "0123456789abcdef";
    std::string digits;
    do {
        digits.insert(digits.begin(), k_digits[code % 16]);
        code /= 16;
    } while (code != 0);
    to.append("\\x{").append(digits).push_back('}');
}

// What stands between brackets.
class character_set {
  public:
    void add(char32_t first, char32_t last) {
        for (char32_t c = first; c <= last && c < ascii_.size(); ++c)
            ascii_.set(c);
        if (last < ascii_.size()) return;
        append_range(beyond_, std::max(first, char32_t{0x80}), last);
    }

    bool add_class(std::string_view name) {
        for (const character_class &known : k_classes) {
            if (known.name != name) continue;
            for (size_t c = 0; c < ascii_.size(); ++c) {
                if (known.has(static_cast<int>(c))) ascii_.set(c);
            }
            return true;
        }
        return false;
    }

    void remove(char c) { ascii_.reset(static_cast<unsigned char>(c)); }

    void append_to(std::string &result, bool negated) const {
        std::string members = beyond_;
        for (size_t c = 0; c < ascii_.size(); ++c) {
            const size_t first = c;
            while (c < ascii_.size() && ascii_[c])
                ++c;
            if (c > first) {
                append_range(members, static_cast<char32_t>(first), static_cast<char32_t>(c - 1));
            }
        }
        if (members.empty()) {
            result.append(negated ? "." : k_no_character);
        } else {
            result.append(negated ? "[^" : "[").append(members).append("]");
        }
    }

  private:
    static void append_range(std::string &to, char32_t first, char32_t last) {
        append_escaped(to, first);
        if (first == last) return;
        to.push_back('-');
        append_escaped(to, last);
    }

    std::bitset<128> ascii_;
    std::string beyond_;
};

class translator {
  public:
    translator(pattern_kind kind, std::string_view pattern) : kind_(kind), rest_(pattern) {}

    bool run() {
        if (kind_ != pattern_kind::regular) result_ = "^";
        while (!rest_.empty()) {
            if (!(kind_ == pattern_kind::regular ? take_regular() : take_wildcard())) return false;
        }
        if (kind_ != pattern_kind::regular) result_ += "$";
        if (open_groups_ != 0) return complain("a ( that is not closed");
        return true;
    }
    std::string &result() { return result_; }
    std::string &error() { return error_; }

  private:
    bool complain(std::string_view what) {
        if (error_.empty()) error_ = what;
        return false;
    }

    bool take_regular() {
        const char c = rest_[0];
        if (c == '[') {
            if (take_bracket("^")) return true;
            return complain("a [ that is not closed");
        }
        if (c == '\\') return take_escape();
        if (c == '{') return take_interval();
        if (c == '(') ++open_groups_;
        if (c == ')' && open_groups_-- == 0) {
            open_groups_ = 0;
            result_ += '\\';
        }
        if (std::string_view("^$.*+?()|").find(c) != std::string_view::npos) {
            result_ += c;
            rest_.remove_prefix(1);
        } else {
            append_escaped(result_, take_character(rest_));
        }
        return true;
    }

    bool take_escape() {
        rest_.remove_prefix(1);
        if (rest_.empty()) return complain("a \\ at the end");
        const char c = rest_[0];
        if (std::string_view("wWsSdDbB").find(c) != std::string_view::npos) {
            result_.append("\\").push_back(c);
            rest_.remove_prefix(1);
            return true;
        }
        if (is_digit(c)) return complain("a reference to a group");
        if (c != '_' && is_word(c)) return complain("a \\ before a letter that means nothing");
        append_escaped(result_, take_character(rest_));
        return true;
    }

    // {n} {n,} {n,m} {,m}
    bool take_interval() {
        const size_t end = rest_.find('}');
        std::string_view inside = rest_.substr(1, end == std::string_view::npos ? end : end - 1);
        const size_t comma = inside.find(',');
        std::string_view least = inside.substr(0, comma);
        std::string_view most = comma == std::string_view::npos ? "" : inside.substr(comma + 1);
        auto digits = [](std::string_view text) {
            return text.size() <= 4 && std::all_of(text.begin(), text.end(), is_digit);
        };
        if (end == std::string_view::npos || !digits(least) || !digits(most) ||
            (least.empty() && most.empty())) {
            return complain("a { that is no repetition");
        }
        result_.append("{").append(least.empty() ? "0" : least);
        if (comma != std::string_view::npos) result_.append(",").append(most);
        result_ += '}';
        rest_.remove_prefix(end + 1);
        return true;
    }

    bool take_wildcard() {
        const bool path = kind_ == pattern_kind::path_wildcards;
        const char c = rest_[0];
        if (c == '[' && take_bracket("^!")) return true;
        if (c == '*' || c == '?') {
            result_ += path ? "[^/]" : ".";
            if (c == '*') result_ += '*';
            while (!rest_.empty() && rest_[0] == c) {
                rest_.remove_prefix(1);
                if (c == '?') break;
            }
            return true;
        }
        if (c == '\\') rest_.remove_prefix(1);
        // A pattern that ends in a backslash matches nothing.
        if (rest_.empty()) {
            result_ += k_no_character;
        } else {
            append_escaped(result_, take_character(rest_));
        }
        return true;
    }

    // Between brackets. False, and nothing taken, when they are not closed or hold what they
    // cannot.
    bool take_bracket(std::string_view negations) {
        std::string_view rest = rest_.substr(1);
        const bool negated = !rest.empty() && negations.find(rest[0]) != std::string_view::npos;
        if (negated) rest.remove_prefix(1);
        character_set set;
        for (bool first = true; rest.empty() || rest[0] != ']' || first; first = false) {
            if (rest.empty() || !take_item(rest, set)) return false;
        }
        if (kind_ == pattern_kind::path_wildcards) negated ? set.add('/', '/') : set.remove('/');
        set.append_to(result_, negated);
        rest_ = rest.substr(1);
        return true;
    }

    // A class, a character or a range.
    bool take_item(std::string_view &rest, character_set &set) {
        if (rest.starts_with("[:")) {
            const size_t end = rest.find(":]");
            if (end == std::string_view::npos) return complain("a [: that is not closed");
            if (!set.add_class(rest.substr(2, end - 2))) {
                return complain("a class that does not exist");
            }
            rest.remove_prefix(end + 2);
            return true;
        }
        char32_t first = 0;
        if (!take_member(rest, first)) return false;
        char32_t last = first;
        if (rest.size() >= 2 && rest[0] == '-' && rest[1] != ']') {
            rest.remove_prefix(1);
            if (!take_member(rest, last)) return false;
        }
        if (last < first) return complain("a range that ends before it begins");
        set.add(first, last);
        return true;
    }

    // A character, perhaps as [.x.] or [=x=], in a shell pattern behind a backslash.
    bool take_member(std::string_view &rest, char32_t &code) {
        const bool quoted = rest.starts_with("[.") || rest.starts_with("[=");
        const char mark = quoted ? rest[1] : '\0';
        if (quoted) rest.remove_prefix(2);
        if (kind_ != pattern_kind::regular && rest.starts_with('\\')) rest.remove_prefix(1);
        if (rest.empty()) return false;
        code = take_character(rest);
        if (!quoted) return true;
        if (rest.size() < 2 || rest[0] != mark || rest[1] != ']') {
            return complain("a collating element of more than one character");
        }
        rest.remove_prefix(2);
        return true;
    }

    pattern_kind kind_;
    std::string_view rest_;
    std::string result_;
    std::string error_;
    size_t open_groups_ = 0;
};

}  // namespace

bool translate_pattern(pattern_kind kind, std::string_view pattern, std::string &translated,
                       std::string &error) {
    translator t(kind, pattern);
    const bool done = t.run();
    (done ? translated : error) = std::move(done ? t.result() : t.error());
    return done;
}

bool is_utf8(std::string_view text) {
    while (!text.empty()) {
        uint64_t word = 0;
        if (text.size() >= sizeof word) {
            memcpy(&word, text.data(), sizeof word);
            if ((word & 0x8080'8080'8080'8080U) == 0) {
                text.remove_prefix(sizeof word);
                continue;
            }
        }
        size_t length = 0;
        if (first_character(text, length) > 0x10FFFF) return false;
        text.remove_prefix(length);
    }
    return true;
}

std::string encode_stray_bytes(std::string_view text) {
    std::string encoded;
    encoded.reserve(text.size() + text.size() / 2);
    while (!text.empty()) {
        size_t length = 0;
        if (first_character(text, length) > 0x10FFFF) {
            const char32_t code = k_stray + static_cast<unsigned char>(text[0]);
            encoded.push_back(static_cast<char>(0xE0 | code >> 12));
            encoded.push_back(static_cast<char>(0x80 | (code >> 6 & 0x3F)));
            encoded.push_back(static_cast<char>(0x80 | (code & 0x3F)));
        } else {
            encoded.append(text.substr(0, length));
        }
        text.remove_prefix(length);
    }
    return encoded;
}

std::string decode_stray_bytes(std::string_view text) {
    std::string decoded;
    for (size_t i = 0; i < text.size(); ++i) {
        const bool stray =
            text.size() - i >= 3 && text[i] == '\xED' && (text[i + 1] & '\xF0') == '\xB0';
        if (!stray) {
            decoded.push_back(text[i]);
            continue;
        }
        decoded.push_back(static_cast<char>((text[i + 1] & 0x03) << 6 | (text[i + 2] & 0x3F)));
        i += 2;
    }
    return decoded;
}

}  // namespace fe

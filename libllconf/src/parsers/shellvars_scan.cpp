#include "shellvars_scan.h"

#include <algorithm>

#include "char_set.h"

namespace llconf {
namespace {

constexpr char_set k_letters{"abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ_"};
constexpr char_set k_name = k_letters.with("0123456789");
constexpr char_set k_plain = k_name.with("./:,@%+=-");
constexpr char_set k_ends_word{" \t\r\n"};
constexpr char_set k_unreadable{";&|<>()`"};
constexpr char_set k_special_in_quotes{"'\"\\\r"};
/* What is left of a file behind a line whose quote is never closed, up to which it is passed over
 * and the lines behind it are read for themselves. */
constexpr std::size_t k_rest = std::size_t{1} << 14;

std::size_t skip_blanks(std::string_view text, std::size_t pos) {
    return k_blank_set.skip(text, pos);
}

struct line_span {
    std::size_t end = 0;   // behind the content
    std::size_t next = 0;  // behind the line end
};

line_span line_at(std::string_view text, std::size_t pos) {
    line_span line;
    std::size_t lf = text.find('\n', pos);
    line.end = std::min(lf, text.size());
    line.next = lf == std::string_view::npos ? text.size() : lf + 1;
    if (line.end > pos && text[line.end - 1] == '\r') --line.end;
    return line;
}

/* Whether the line that ends right before next ends in a backslash. */
bool line_joins_next(std::string_view text, std::size_t next) {
    text = text.substr(0, next);
    if (text.ends_with('\n')) text.remove_suffix(1);
    if (text.ends_with('\r')) text.remove_suffix(1);
    return text.ends_with('\\');
}

/* Reads the value of an assignment, one shell word. */
class word_scanner {
  public:
    word_scanner(std::string_view text, std::size_t pos) : text_(text), pos_(pos) {}

    std::size_t pos() const { return pos_; }

    /* False where the word holds what has no text of its own, or a quote stays open. */
    bool run(std::string &value) {
        while (pos_ < text_.size() && !k_ends_word.has(text_[pos_])) {
            char c = text_[pos_];
            if (c == '\'' || c == '"') {
                if (!quoted(value)) return false;
            } else if (c == '\\') {
                if (!backslash(value, false)) return false;
            } else if (k_unreadable.has(c) || opens_expansion()) {
                return false;
            } else {
                value += c;
                ++pos_;
            }
        }
        return true;
    }

  private:
    bool opens_expansion() const {
        constexpr char_set k_opens{"('\""};
        return text_[pos_] == '$' && pos_ + 1 < text_.size() && k_opens.has(text_[pos_ + 1]);
    }

    std::size_t line_end_length(std::size_t pos) const {
        std::string_view rest = text_.substr(std::min(pos, text_.size()));
        if (rest.starts_with("\n")) return 1;
        return rest.starts_with("\r\n") ? 2 : 0;
    }

    bool quoted(std::string &value) {
        char quote = text_[pos_++];
        while (pos_ < text_.size() && text_[pos_] != quote) {
            if (quote == '"' && text_[pos_] == '\\') {
                if (!backslash(value, true)) return false;
            } else if (text_[pos_] == '\r' && line_end_length(pos_) > 0) {
                ++pos_;
            } else {
                const std::size_t end = k_special_in_quotes.find(text_, pos_ + 1);
                value += text_.substr(pos_, end - pos_);
                pos_ = end;
            }
        }
        return pos_++ < text_.size();
    }

    /* At a line end it joins lines; in double quotes it protects only what is special there. */
    bool backslash(std::string &value, bool in_quotes) {
        std::size_t line_end = line_end_length(pos_ + 1);
        if (line_end > 0) {
            pos_ += 1 + line_end;
            return pos_ < text_.size();
        }
        if (pos_ + 1 >= text_.size()) return false;
        constexpr char_set k_escaped{"$`\"\\"};
        if (in_quotes && !k_escaped.has(text_[pos_ + 1])) value += '\\';
        value += text_[pos_ + 1];
        pos_ += 2;
        return true;
    }

    std::string_view text_;
    std::size_t pos_;
};

/* False for what is no lone assignment; item.end is behind the line then that its quotes reach. */
bool scan_assignment(std::string_view text, std::size_t line_end, shell_item &item) {
    constexpr std::string_view k_export = "export";
    std::size_t at = skip_blanks(text, 0);
    if (text.substr(at, k_export.size()) == k_export) {
        std::size_t behind = skip_blanks(text, at + k_export.size());
        if (behind > at + k_export.size()) at = behind;
    }
    std::size_t equals = text.substr(0, line_end).find('=', at);
    if (equals == std::string_view::npos || !shell_is_name(text.substr(at, equals - at))) {
        return false;
    }
    word_scanner word(text, equals + 1);
    bool readable = word.run(item.value);
    bool closed = word.pos() < text.size() || readable;
    if (closed) {
        item.end = line_at(text, word.pos()).next;
    } else if (text.size() - item.end > k_rest) {
        item.end = text.size();
    }
    if (!readable) return false;
    item.lead = text.substr(0, at);
    item.name = text.substr(at, equals - at);
    item.raw = text.substr(equals + 1, word.pos() - equals - 1);

    line_span line = line_at(text, word.pos());
    std::size_t comment = skip_blanks(text, word.pos());
    if (comment < line.end && (comment == word.pos() || text[comment] != '#')) return false;
    item.tail = text.substr(word.pos(), line.end - word.pos());
    item.end = line.next;
    return true;
}

}  // namespace

bool shell_is_name(std::string_view name) {
    return !name.empty() && k_letters.has(name.front()) && k_name.holds_all(name);
}

void shell_write_value(std::string_view value, std::string &out) {
    if (k_plain.holds_all(value)) {
        out += value;
        return;
    }
    out += '\'';
    for (char c : value) {
        if (c == '\'') {
            out += "'\\''";
        } else {
            out += c;
        }
    }
    out += '\'';
}

shell_item shell_scan(std::string_view text) {
    shell_item item;
    line_span line = line_at(text, 0);
    std::size_t first = std::min(skip_blanks(text, 0), line.end);
    item.end = line.next;
    if (first == line.end) {
        item.kind = shell_kind::empty;
    } else if (text[first] == '#') {
        item.kind = shell_kind::comment;
    } else if (scan_assignment(text, line.end, item)) {
        item.kind = shell_kind::assignment;
    } else {
        while (item.end < text.size() && line_joins_next(text, item.end)) {
            item.end = line_at(text, item.end).next;
        }
    }
    return item;
}

}  // namespace llconf

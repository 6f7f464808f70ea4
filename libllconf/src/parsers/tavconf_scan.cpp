#include "tavconf_scan.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

#include "char_set.h"

namespace llconf {
namespace {

constexpr char_set k_ends_name{" \t{}'\""};
constexpr char_set k_marks{"'\"#()"};  // what counts in a value
constexpr std::size_t k_shown = 40;    // bytes of a faulty line that a message shows

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}

std::string_view trim(std::string_view text) {
    while (!text.empty() && is_blank(text.front()))
        text.remove_prefix(1);
    while (!text.empty() && is_blank(text.back()))
        text.remove_suffix(1);
    return text;
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

std::string quoted_for_message(std::string_view text) {
    if (text.empty()) return "the end of the line";
    bool cut = text.size() > k_shown;
    std::string out = "\"";
    for (char c : text.substr(0, k_shown)) {
        out += static_cast<unsigned char>(c) < 0x20 || c == 0x7f ? '?' : c;
    }
    return out + (cut ? "...\"" : "\"");
}

/* The offset of the quote that closes the one at pos, or npos when the line ends before. */
std::size_t closing_quote(std::string_view line, std::size_t pos) {
    char quote = line[pos];
    for (std::size_t i = pos + 1; i < line.size(); ++i) {
        if (line[i] == '\\') {
            ++i;
        } else if (line[i] == quote) {
            return i;
        }
    }
    return std::string_view::npos;
}

/* A backslash in front of any other character is itself. */
std::string unescape(std::string_view text, bool with_controls) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char next = text[i] == '\\' && i + 1 < text.size() ? text[i + 1] : '\0';
        if (next == '"' || next == '\\') {
            out += next;
        } else if (with_controls && next == 'n') {
            out += '\n';
        } else if (with_controls && next == 't') {
            out += '\t';
        } else {
            out += text[i];
            continue;
        }
        ++i;
    }
    return out;
}

/* Scans a value line by line; a parenthesis or a backslash makes it go on. */
class value_scanner {
  public:
    value_scanner(std::string_view text, tav_item &item, tav_wanted wanted = tav_wanted::all,
                  bool traced = false)
        : text_(text), item_(item), wanted_(wanted), traced_(traced) {}

    /* Where the byte of the value with that number stands. Only once a run has found a value. */
    std::size_t source_of(std::size_t at) const {
        if (segments_.empty()) return item_.value_at;
        if (one_string_) {
            std::size_t source = segments_.front().source + 1;
            for (; at > 0 && source < text_.size(); --at) {
                bool escaped = text_[source] == '\\' && source + 1 < text_.size() &&
                               std::strchr("\"\\nt", text_[source + 1]);
                source += escaped ? 2 : 1;
            }
            return source;
        }
        auto behind = std::ranges::upper_bound(segments_, at, {}, &segment::value);
        const segment &in = *std::prev(behind);
        return in.source + (at - in.value);
    }

    void run(std::size_t pos) {
        while (scan_line(pos)) {
            pos = item_.end;
            if (pos < text_.size()) continue;
            item_.kind = tav_kind::error;
            item_.error_at = depth_ > 0 ? open_at_ : last_line_;
            item_.error =
                depth_ > 0 ? "\"(\" is never closed: expected \")\", found the end of the file"
                           : "expected another line behind the \"\\\", found the end of the file";
            return;
        }
        if (one_string_) {
            std::string_view inner(item_.value);
            item_.value = unescape(inner.substr(1, inner.size() - 2), true);
        }
    }

  private:
    /* True when the value goes on with the next line. */
    bool scan_line(std::size_t pos) {
        const line_span line = line_at(text_, pos);
        std::string_view content = text_.substr(pos, line.end - pos);
        std::size_t comment_at = find_comment(content, pos);
        bool goes_on = depth_ > 0;
        if (comment_at < content.size()) {
            add_comment(trim(content.substr(comment_at)));
            content = content.substr(0, comment_at);
        } else if (!content.empty() && content.back() == '\\') {
            content.remove_suffix(1);
            goes_on = true;
        }
        append(trim(content));
        last_line_ = pos;
        item_.end = line.next;
        return goes_on;
    }

    void add_comment(std::string_view piece) {
        if (wanted_ != tav_wanted::all) return;
        if (!item_.comment.empty()) item_.comment += ' ';
        item_.comment += piece;
    }

    void append(std::string_view piece) {
        if (piece.empty() || wanted_ != tav_wanted::all) return;
        one_string_ = item_.value.empty() && piece.size() > 1 && piece.front() == '"' &&
                      closing_quote(piece, 0) == piece.size() - 1;
        if (!item_.value.empty()) item_.value += ' ';
        if (traced_)
            segments_.push_back(
                {item_.value.size(), static_cast<std::size_t>(piece.data() - text_.data())});
        item_.value += piece;
    }

    /* Counts parentheses up to the comment. Once a quote has no partner on the line, no later one
     * of its kind has: only an escaped one can follow, and a scan from there meets the same pairs.
     */
    std::size_t find_comment(std::string_view content, std::size_t pos) {
        bool open_single = false;
        bool open_double = false;
        for (std::size_t i = k_marks.find(content); i < content.size();
             i = k_marks.find(content, i + 1)) {
            char c = content[i];
            if (c == '\'' || c == '"') {
                bool &unclosed = c == '"' ? open_double : open_single;
                std::size_t close = unclosed ? std::string_view::npos : closing_quote(content, i);
                unclosed = close == std::string_view::npos;
                if (!unclosed) i = close;
            } else if (c == '#' && (i == 0 || is_blank(content[i - 1]))) {
                return i;
            } else if (c == '(') {
                if (depth_++ == 0) open_at_ = pos + i;
            } else if (c == ')' && depth_ > 0) {
                --depth_;
            }
        }
        return content.size();
    }

    /* A part of the value that stands on one line. */
    struct segment {
        std::size_t value;   // where it begins in the value
        std::size_t source;  // and in the text
    };

    std::string_view text_;
    tav_item &item_;
    tav_wanted wanted_;
    bool traced_;
    std::vector<segment> segments_;
    std::size_t depth_ = 0;
    std::size_t open_at_ = 0;
    std::size_t last_line_ = 0;
    bool one_string_ = false;
};

/* One line that is no comment and not empty. */
class line_scanner {
  public:
    line_scanner(std::string_view text, std::size_t pos, line_span line, tav_item &item,
                 tav_wanted wanted)
        : text_(text), item_(item), wanted_(wanted), pos_(pos), line_(line) {}

    void run() {
        item_.end = line_.next;
        if (at('}')) {
            ++pos_;
            item_.kind = tav_kind::close;
            if (!only_comment_left()) fail("expected the end of the line behind \"}\", found ");
        } else if (at('"') ? quoted_name() : plain_name()) {
            behind_name();
        }
    }

  private:
    bool at(char c) const { return pos_ < line_.end && text_[pos_] == c; }
    std::string_view rest() const { return text_.substr(pos_, line_.end - pos_); }
    bool at_blank_or_end() const { return pos_ >= line_.end || is_blank(text_[pos_]); }

    bool fail_with(std::string message) {
        item_.kind = tav_kind::error;
        item_.error = std::move(message);
        item_.error_at = pos_;
        return false;
    }

    bool fail(std::string_view expected) {
        return fail_with(std::string(expected) + quoted_for_message(trim(rest())));
    }

    bool quoted_name() {
        std::size_t close = closing_quote(rest(), 0);
        if (close == std::string_view::npos) return fail("expected a closing '\"', found ");
        item_.name = unescape(rest().substr(1, close - 1), false);
        pos_ += close + 1;
        return true;
    }

    bool plain_name() {
        std::size_t length = k_ends_name.find(rest());
        if (length == 0) return fail("expected a name, found ");
        item_.name = rest().substr(0, length);
        pos_ += length;
        plain_ = true;
        return true;
    }

    void behind_name() {
        bool colon_ends = !item_.name.empty() && item_.name.back() == ':';
        if (item_.name == ".comment" || item_.name == ".empty" || item_.name == ".unparsed") {
            fail_with("the name \"" + item_.name + "\" is reserved");
        } else if (colon_ends && at_blank_or_end()) {
            item_.kind = tav_kind::key;
            item_.value_at = pos_;
            value_scanner(text_, item_, wanted_).run(pos_);
        } else if (colon_ends) {
            fail_with("a blank is missing behind the \":\" of " + quoted_for_message(item_.name));
        } else {
            section();
        }
    }

    void section() {
        std::size_t name_end = pos_;
        while (pos_ < line_.end && is_blank(text_[pos_]))
            ++pos_;
        bool brace = at('{');
        if (brace) {
            ++pos_;
            item_.kind = tav_kind::section_open;
            if (!only_comment_left()) fail("expected the end of the line behind \"{\", found ");
            return;
        }
        bool no_blank = pos_ == name_end && pos_ < line_.end;
        item_.kind = tav_kind::section_alone;
        bool alone = !no_blank && only_comment_left();
        if (plain_ && item_.name.find(':') != std::string::npos) {
            fail_with("a blank is missing behind the \":\" of " + quoted_for_message(item_.name));
        } else if (!alone) {
            fail("expected \"{\" or the end of the line behind " + quoted_for_message(item_.name) +
                 ", found ");
        }
    }

    /* Takes a comment along. A "#" right behind a brace begins none. */
    bool only_comment_left() {
        std::string_view left = trim(rest());
        if (left.empty()) return true;
        bool after_blank = pos_ > 0 && is_blank(text_[pos_]);
        after_blank = after_blank || (pos_ > 0 && is_blank(text_[pos_ - 1]));
        if (left.front() != '#' || !after_blank) return false;
        item_.comment = left;
        return true;
    }

    std::string_view text_;
    tav_item &item_;
    tav_wanted wanted_;
    std::size_t pos_;
    line_span line_;
    bool plain_ = false;
};

}  // namespace

tav_item tav_scan(std::string_view text, std::size_t pos, tav_wanted wanted) {
    tav_item item;
    item.end = pos;
    if (pos >= text.size()) return item;
    line_span line = line_at(text, pos);
    std::size_t start = pos;
    while (start < line.end && is_blank(text[start]))
        ++start;
    item.end = line.next;
    if (start == line.end) {
        item.kind = tav_kind::empty;
    } else if (text[start] == '#') {
        item.kind = tav_kind::comment;
        if (wanted == tav_wanted::all) item.value = text.substr(start, line.end - start);
    } else {
        line_scanner(text, start, line, item, wanted).run();
    }
    return item;
}

std::size_t tav_value_source(std::string_view text, std::size_t at) {
    tav_item item = tav_scan(text, 0);
    if (item.kind != tav_kind::key) return 0;
    item.value.clear();
    item.comment.clear();
    value_scanner scanner(text, item, tav_wanted::all, true);
    scanner.run(item.value_at);
    return std::min(scanner.source_of(at), text.size());
}

bool tav_write_name(std::string_view name, bool lone, std::string &out) {
    if (name.find_first_of(std::string_view("\n\0", 2)) != std::string_view::npos) return false;
    bool key = !name.empty() && name.back() == ':';
    bool plain = !name.empty() && name.front() != '#' &&
                 name.find_first_of(" \t\r{}'\"") == std::string_view::npos &&
                 (key || !lone || name.find(':') == std::string_view::npos);
    if (plain) {
        out += name;
        return true;
    }
    out += '"';
    for (char c : name) {
        if (c == '"' || c == '\\') out += '\\';
        out += c;
    }
    out += '"';
    return true;
}

void tav_write_value(std::string_view value, std::string &out) {
    bool plain = value.find('\n') == std::string_view::npos;
    if (plain && !value.empty()) {
        tav_item item;
        item.kind = tav_kind::key;
        value_scanner(value, item).run(0);
        plain = item.kind == tav_kind::key && item.comment.empty() && item.value == value;
    }
    if (plain) {
        out += value;
        return;
    }
    out += '"';
    for (char c : value) {
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else {
            out += c;
        }
    }
    out += '"';
}

bool tav_is_comment(std::string_view text) {
    return !text.empty() && text.front() == '#' &&
           text.find_first_of("\r\n") == std::string_view::npos && !is_blank(text.back());
}

}  // namespace llconf

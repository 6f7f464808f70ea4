#include "ucfgsh/words.h"

#include <algorithm>

namespace ucfgsh {

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t';
}
bool is_control(char c) {
    return static_cast<unsigned char>(c) < ' ' || c == 127;
}

int hex_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    c = static_cast<char>(c | 0x20);
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

class splitter {
  public:
    explicit splitter(std::string_view line) : line_(line) {}

    words run() {
        for (;;) {
            while (at_ < line_.size() && is_blank(line_[at_]))
                at_++;
            if (at_ >= line_.size() || line_[at_] == '#') break;
            take_word();
        }
        result_.fresh = !result_.open && (line_.empty() || at_ < line_.size() ||
                                          is_blank(line_.back()) || result_.list.empty());
        return std::move(result_);
    }

  private:
    void take_word() {
        word next;
        next.start = at_;
        char quote = 0;
        for (; at_ < line_.size() && (quote != 0 || !is_blank(line_[at_])); at_++) {
            char c = line_[at_];
            if (quote == 0 && (c == '"' || c == '\'')) {
                quote = c;
            } else if (quote != 0 && c == quote) {
                quote = 0;
            } else if (c == '\\' && quote != '\'') {
                if (++at_ >= line_.size()) {
                    result_.open = true;
                    break;
                }
                next.text += quote == '"' ? quoted_escape() : line_[at_];
            } else {
                next.text += c;
            }
        }
        at_ = std::min(at_, line_.size());
        result_.open = result_.open || quote != 0;
        next.raw = line_.substr(next.start, at_ - next.start);
        result_.list.push_back(std::move(next));
    }

    char quoted_escape() {
        switch (line_[at_]) {
            case 'n':
                return '\n';
            case 't':
                return '\t';
            case 'r':
                return '\r';
            case 'x':
                if (at_ + 2 < line_.size() && hex_value(line_[at_ + 1]) >= 0 &&
                    hex_value(line_[at_ + 2]) >= 0) {
                    int value = hex_value(line_[at_ + 1]) * 16 + hex_value(line_[at_ + 2]);
                    at_ += 2;
                    return static_cast<char>(value);
                }
                return 'x';
            default:
                return line_[at_];
        }
    }

    std::string_view line_;
    size_t at_ = 0;
    words result_;
};

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

}  // namespace

words split_words(std::string_view line) {
    return splitter{line}.run();
}

std::string quote_word(std::string_view text) {
    auto special = [](char c) {
        return is_control(c) || c == ' ' || c == '"' || c == '\'' || c == '\\';
    };
    bool bare = !text.empty() && text.front() != '#' && text.front() != '-' &&
                text.front() != '<' && std::none_of(text.begin(), text.end(), special);
    return bare ? std::string{text} : in_quotes(text);
}

std::string show_value(std::string_view text) {
    bool bare = !text.empty() && text.front() != ' ' && text.back() != ' ' && text.front() != '"' &&
                std::none_of(text.begin(), text.end(), is_control);
    return bare ? std::string{text} : in_quotes(text);
}

}  // namespace ucfgsh

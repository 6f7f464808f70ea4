#include "ucfgsh/words.h"

#include <algorithm>

#include "libucfg/quoting.h"

namespace ucfgsh {

namespace {

bool is_blank(char c) {
    return c == ' ' || c == '\t';
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
                next.text += quote == '"' ? ucfg::quoted_escape(line_, at_) : line_[at_];
            } else {
                next.text += c;
            }
        }
        at_ = std::min(at_, line_.size());
        result_.open = result_.open || quote != 0;
        next.raw = line_.substr(next.start, at_ - next.start);
        result_.list.push_back(std::move(next));
    }

    std::string_view line_;
    size_t at_ = 0;
    words result_;
};

}  // namespace

words split_words(std::string_view line) {
    return splitter{line}.run();
}

std::string quote_word(std::string_view text) {
    auto special = [](char c) {
        return ucfg::is_control(c) || c == ' ' || c == '"' || c == '\'' || c == '\\';
    };
    bool bare = !text.empty() && text.front() != '#' && text.front() != '-' &&
                text.front() != '<' && std::none_of(text.begin(), text.end(), special);
    return bare ? std::string{text} : ucfg::in_quotes(text);
}

std::string show_value(std::string_view text) {
    bool bare = !text.empty() && text.front() != ' ' && text.back() != ' ' && text.front() != '"' &&
                std::none_of(text.begin(), text.end(), ucfg::is_control);
    return bare ? std::string{text} : ucfg::in_quotes(text);
}

}  // namespace ucfgsh

/* Paths: what people type, what travels, and the components behind both. */
#include <algorithm>

#include "conn.h"
#include "quoting.h"

namespace {

using namespace ucfg;

constexpr std::string_view k_needs_quotes = ".\"'\\#;<>";

/* Reads components off what was typed. */
class typed_path {
  public:
    explicit typed_path(std::string_view text) : text_(text) {}

    /* The next component, plain; false at a fault. */
    bool next(std::string &component) {
        component.clear();
        char quote = 0;
        for (; at_ < text_.size(); at_++) {
            char c = text_[at_];
            if (quote == 0 && c == '.') break;
            if (quote == 0 && (c == '"' || c == '\'')) {
                quote = c;
            } else if (quote != 0 && c == quote) {
                quote = 0;
            } else if (c == '\\' && quote != '\'' && at_ + 1 < text_.size()) {
                at_++;
                component += quote == '"' ? quoted_escape(text_, at_) : text_[at_];
            } else {
                component += c;
            }
        }
        if (quote != 0) return fault("a quote is not closed");
        if (component.empty()) return fault("a component is empty (two dots, or a dot at an end)");
        if (component.find('\0') != std::string::npos)
            return fault("a component cannot hold a NUL");
        return true;
    }

    /* Steps over the dot behind a component; false at the end. */
    bool more() {
        if (at_ >= text_.size()) return false;
        at_++;
        return true;
    }

    const char *problem() const { return problem_; }

  private:
    bool fault(const char *problem) {
        problem_ = problem;
        return false;
    }

    std::string_view text_;
    size_t at_ = 0;
    const char *problem_ = nullptr;
};

std::string quote_component(std::string_view component) {
    auto special = [](char c) {
        return is_control(c) || c == ' ' || k_needs_quotes.find(c) != std::string_view::npos;
    };
    bool bare = std::none_of(component.begin(), component.end(), special);
    return bare ? std::string{component} : in_quotes(component);
}

std::vector<std::string> split_path(std::string_view path) {
    std::vector<std::string> components;
    while (!path.empty()) {
        size_t dot = std::min(path.find('.'), path.size());
        components.push_back(unescape_text(path.substr(0, dot)));
        path.remove_prefix(std::min(dot + 1, path.size()));
    }
    return components;
}

/* Runs work and hands its text out; null when memory is exhausted. */
template <class body>
char *text_or_null(body &&work) noexcept {
    try {
        return dup_str(work()).release();
    } catch (...) {
        return nullptr;
    }
}

}  // namespace

char *ucfg_path_append(const char *path, const char *component) {
    if (!component || !*component) return nullptr;
    return text_or_null([&] {
        std::string longer = path ? path : "";
        if (!longer.empty()) longer += '.';
        return longer + escape_text(component);
    });
}

ucfg_strings *ucfg_path_split(const char *path) {
    try {
        return make_strings(split_path(path ? path : "")).release();
    } catch (...) {
        return nullptr;
    }
}

char *ucfg_path_parse(const char *typed, const char **problem) {
    const char *ignored = nullptr;
    const char *&fault = problem ? *problem : ignored;
    fault = nullptr;
    if (!typed || !*typed) return text_or_null([] { return std::string{}; });
    try {
        typed_path parser{typed};
        std::string path;
        std::string component;
        do {
            if (!parser.next(component)) {
                fault = parser.problem();
                return nullptr;
            }
            if (!path.empty()) path += '.';
            path += escape_text(component.c_str());
        } while (parser.more());
        return dup_str(path).release();
    } catch (...) {
        fault = "out of memory";
        return nullptr;
    }
}

char *ucfg_path_print(const char *path) {
    return text_or_null([&] {
        std::string typed;
        for (const std::string &component : split_path(path ? path : "")) {
            if (!typed.empty()) typed += '.';
            typed += quote_component(component);
        }
        return typed;
    });
}

char *ucfg_path_quote(const char *component) {
    return text_or_null([&] { return quote_component(component ? component : ""); });
}

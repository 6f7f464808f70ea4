// POSIX extended regular expressions. Compiling one costs far more than matching, and definition
// files use a handful of them over and over, so the last few are kept.
#include <regex.h>

#include <array>
#include <cerrno>
#include <optional>
#include <string>

#include "arguments.h"
#include "pattern_check.h"
#include "utf8.h"

namespace fe {

namespace {

class compiled_pattern {
  public:
    compiled_pattern(std::string_view pattern, size_t size)
        : size_(size), text_(pattern), valid_(regcomp(&regex_, text_.c_str(), REG_EXTENDED) == 0) {}
    compiled_pattern(const compiled_pattern &) = delete;
    compiled_pattern &operator=(const compiled_pattern &) = delete;
    ~compiled_pattern() {
        if (valid_) regfree(&regex_);
    }

    bool valid() const { return valid_; }
    size_t size() const { return size_; }
    const std::string &text() const { return text_; }
    const regex_t *regex() const { return &regex_; }
    unsigned long last_use = 0;
    size_t matched_bytes = 0;

  private:
    size_t size_;
    std::string text_;
    regex_t regex_ = {};
    bool valid_;
};

// Matching leaves states behind in a compiled pattern, more with every new text, so a pattern that
// has seen this much is compiled anew.
constexpr size_t k_most_matched_bytes = size_t{4} << 20;

std::array<std::optional<compiled_pattern>, 16> g_patterns;
unsigned long g_pattern_uses = 0;

// Compiling and matching take time in proportion to the pattern that is written out.
constexpr size_t k_pattern_share = 1024;

// The compiled form of a pattern, ready for a text of that length and paid for; valid until the
// next call. Null when it is no pattern or an unreasonable one.
const regex_t *compile(std::string_view pattern, size_t text_length) {
    auto *slot = &g_patterns.front();
    for (auto &candidate : g_patterns) {
        if (candidate && candidate->text() == pattern) {
            slot = &candidate;
            break;
        }
        if (!candidate || (*slot && candidate->last_use < (*slot)->last_use)) slot = &candidate;
    }
    bool fresh = *slot && (*slot)->text() == pattern;
    if (!fresh || (*slot)->matched_bytes > k_most_matched_bytes) {
        size_t size = measure_pattern(pattern);
        if (size == 0 || !charge(size / 8)) return nullptr;
        slot->emplace(pattern, size);
        if (!(*slot)->valid()) {
            slot->reset();
            return nullptr;
        }
    }
    (*slot)->last_use = ++g_pattern_uses;
    (*slot)->matched_bytes += text_length + 1;
    if (!charge((*slot)->size() * (text_length + 1) / k_pattern_share)) return nullptr;
    return (*slot)->regex();
}

fe_node *func_match(const arguments &args) {
    const regex_t *regex = compile(args[1], args[0].size());
    if (regex == nullptr) return fail_with(EINVAL);
    int result = regexec(regex, args[0].data(), 0, nullptr, 0);
    if (result != 0 && result != REG_NOMATCH) return fail_with(ENOMEM);
    return new_truth(result == 0);
}

using match_offsets = std::array<regmatch_t, 10>;

// \1 to \9 stand for what the groups matched, \\ for a backslash.
void append_replacement(std::string &result, std::string_view text, std::string_view subject,
                        const match_offsets &match) {
    for (size_t i = 0; i < text.size(); ++i) {
        char next = i + 1 < text.size() ? text[i + 1] : '\0';
        if (text[i] != '\\' || (next != '\\' && (next < '1' || next > '9'))) {
            result.push_back(text[i]);
            continue;
        }
        ++i;
        if (next == '\\') {
            result.push_back('\\');
            continue;
        }
        const regmatch_t &group = match[static_cast<size_t>(next - '0')];
        if (group.rm_so < 0) continue;
        auto start = static_cast<size_t>(group.rm_so);
        result.append(subject.substr(start, static_cast<size_t>(group.rm_eo) - start));
    }
}

fe_node *func_regsub(const arguments &args) {
    const std::string_view subject = args[0];
    const regex_t *regex = compile(args[1], subject.size());
    if (regex == nullptr) return fail_with(EINVAL);
    std::string result;
    size_t at = 0;
    while (at <= subject.size()) {
        match_offsets match;
        match[0].rm_so = static_cast<regoff_t>(at);
        match[0].rm_eo = static_cast<regoff_t>(subject.size());
        if (!charge(1 + (subject.size() - at) / 2048)) return nullptr;
        int error = regexec(regex, subject.data(), match.size(), match.data(), REG_STARTEND);
        if (error == REG_NOMATCH) break;
        if (error != 0) return fail_with(ENOMEM);
        auto start = static_cast<size_t>(match[0].rm_so);
        auto end = static_cast<size_t>(match[0].rm_eo);
        result.append(subject.substr(at, start - at));
        append_replacement(result, args[2], subject, match);
        if (result.size() > k_max_text) return fail_with(ENOMEM);
        at = end;
        if (start == end) {
            size_t step = end < subject.size() ? first_length(subject.substr(end)) : 1;
            result.append(subject.substr(std::min(end, subject.size()), step));
            at += step;
        }
    }
    if (at < subject.size()) result.append(subject.substr(at));
    return new_const(result);
}

constexpr builtin k_rows[] = {
    {"match", 2, 2, func_match},
    {"regsub", 3, 3, func_regsub},
};

}  // namespace

const std::span<const builtin> k_pattern_functions = k_rows;

}  // namespace fe

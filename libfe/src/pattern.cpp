// The engine is RE2: it turns a pattern into an automaton, whose states it makes as texts need
// them, in memory that it was given a bound for; where that does not suffice it follows all ways
// through the pattern at once. Either is linear in the text. Compiling costs as much as matching a
// few thousand characters, and the states are what makes matching fast, so patterns are kept.
#include "pattern.h"

#include <algorithm>
#include <cerrno>
#include <unordered_map>

#include "fe/pattern.h"
#include "internal.h"
#include "utf8.h"

namespace fe {

namespace {

constexpr size_t k_longest_pattern = 1000;
constexpr size_t k_most_patterns = 128;
constexpr size_t k_patterns_in_full = 4;  // of the greatest size, that fit in the cache
constexpr size_t k_steps_for_a_node = 64;

size_t g_pattern_memory = size_t{8} << 20;
void (*g_memory_met)(const char *pattern) = nullptr;

// So that a view finds a text.
struct text_hash : std::hash<std::string_view> {
    using is_transparent = void;
};
using pattern_map = std::unordered_map<std::string, pattern, text_hash, std::equal_to<>>;

std::array<pattern_map, 3> g_patterns;  // by kind
size_t g_memory = 0;                    // of them all
unsigned long g_uses = 0;

std::string_view reason_of(RE2::ErrorCode code) {
    switch (code) {
        case RE2::ErrorRepeatArgument:
            return "a repetition of nothing";
        case RE2::ErrorRepeatSize:
        case RE2::ErrorRepeatOp:
            return "a repetition that is out of order or more than 1000 times";
        case RE2::ErrorPatternTooLarge:
            return "it needs more memory than a pattern may take";
        default:
            return "it cannot be read";
    }
}

RE2::Options options() {
    RE2::Options result;
    result.set_posix_syntax(true);
    result.set_perl_classes(true);
    result.set_word_boundary(true);
    result.set_one_line(true);
    result.set_dot_nl(true);
    result.set_longest_match(true);
    result.set_log_errors(false);
    result.set_max_mem(static_cast<int64_t>(g_pattern_memory));
    return result;
}

void drop(pattern_map &from, pattern_map::iterator which) {
    g_memory -= which->second.memory();
    from.erase(which);
}

void drop_oldest() {
    pattern_map *from = nullptr;
    pattern_map::iterator oldest;
    for (pattern_map &patterns : g_patterns) {
        for (auto at = patterns.begin(); at != patterns.end(); ++at) {
            if (from != nullptr && at->second.last_use >= oldest->second.last_use) continue;
            from = &patterns;
            oldest = at;
        }
    }
    drop(*from, oldest);
}

size_t count_patterns() {
    size_t count = 0;
    for (const pattern_map &patterns : g_patterns)
        count += patterns.size();
    return count;
}

pattern *keep_pattern(pattern_kind kind, std::string_view text, pattern made) {
    while (count_patterns() >= k_most_patterns)
        drop_oldest();
    g_memory += made.memory();
    pattern_map &patterns = g_patterns[static_cast<size_t>(kind)];
    pattern *kept = &patterns.emplace(text, std::move(made)).first->second;
    kept->last_use = ++g_uses;
    return kept;
}

pattern *make_pattern(pattern_kind kind, std::string_view text) {
    std::string what;
    pattern made(kind, text, what);
    // Making one takes as long as evaluating a hundred nodes, and more for each instruction.
    if (!charge(100 + made.size())) return nullptr;
    if (made.valid()) return keep_pattern(kind, text, std::move(made));
    fe_fail(EINVAL, std::string(text).c_str(), "no pattern: %s", what.c_str());
    return nullptr;
}

}  // namespace

pattern::pattern(pattern_kind kind, std::string_view text, std::string &what)
    : most_memory_(g_pattern_memory) {
    std::string translated;
    unbounded_ = text.find_first_of("*+{") != std::string_view::npos;
    if (count_characters(text) > k_longest_pattern) {
        what = "it has more than 1000 characters";
        return;
    }
    if (!translate_pattern(kind, text, translated, what)) return;
    regex_ = std::make_unique<RE2>(translated, options());
    size_ = static_cast<size_t>(std::max(0, regex_->ProgramSize()));
    if (regex_->ok()) return;
    const RE2::ErrorCode error = regex_->error_code();
    what = reason_of(error);
    if (error == RE2::ErrorPatternTooLarge && g_memory_met != nullptr) {
        fe_note_impure();
        g_memory_met(std::string(text).c_str());
    }
    regex_.reset();
}

bool pattern::matches(std::string_view text) {
    return run(text, 0, nullptr, 0);
}

bool pattern::find(std::string_view text, size_t at, match_places &places) {
    const int groups = std::min(regex_->NumberOfCapturingGroups(), k_most_groups);
    return run(text, at, places.data(), groups + 1);
}

bool pattern::run(std::string_view text, size_t at, re2::StringPiece *places, int count) {
    try {
        return regex_->Match({text.data(), text.size()}, at, text.size(), RE2::UNANCHORED, places,
                             count);
    } catch (const std::bad_alloc &) {
        regex_.reset();  // what it left half done is not looked at again
        throw;
    }
}

// Every byte of a text may leave a state behind, which has a place for each instruction.
void pattern::expect_text(size_t length) {
    const uint64_t left = states_ + uint64_t{length} * (256 + 4 * size_);
    states_ = static_cast<size_t>(std::min<uint64_t>(most_memory_, left));
}

pattern *find_pattern(pattern_kind kind, std::string_view text, size_t text_length) {
    pattern_map &patterns = g_patterns[static_cast<size_t>(kind)];
    auto known = patterns.find(text);
    if (known != patterns.end() && !known->second.valid()) {
        drop(patterns, known);
        known = patterns.end();
    }
    pattern *found = known != patterns.end() ? &known->second : make_pattern(kind, text);
    if (found == nullptr || !charge(found->size() * (text_length + 1) / k_steps_for_a_node)) {
        return nullptr;
    }
    found->last_use = ++g_uses;
    g_memory -= found->memory();
    found->expect_text(text_length);
    g_memory += found->memory();
    while (g_memory > k_patterns_in_full * g_pattern_memory && count_patterns() > 1)
        drop_oldest();
    return found;
}

std::string check_pattern(std::string_view text) {
    std::string what;
    pattern made(pattern_kind::regular, text, what);
    if (made.valid() && !g_patterns[0].contains(text)) {
        keep_pattern(pattern_kind::regular, text, std::move(made));
    }
    return what;
}

}  // namespace fe

extern "C" {

using namespace fe;

void fe_set_pattern_memory(size_t bytes, void (*met)(const char *pattern)) {
    g_pattern_memory = bytes;
    g_memory_met = met;
}

int fe_match_wildcards(const char *pattern, const char *text, int whole_path) {
    try {
        const std::string_view subject = text;
        fe::pattern *found =
            find_pattern(whole_path != 0 ? pattern_kind::path_wildcards : pattern_kind::wildcards,
                         pattern, subject.size());
        if (found == nullptr) return -1;
        const bool is_clean = is_utf8(subject);
        return found->matches(is_clean ? subject : encode_stray_bytes(subject)) ? 1 : 0;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}
}

// Compiled patterns.
#ifndef FE_PATTERN_CACHE_H
#define FE_PATTERN_CACHE_H

#include <re2/re2.h>

#include <array>
#include <memory>
#include <string>
#include <string_view>

#include "pattern_syntax.h"

namespace fe {

constexpr int k_most_groups = 9;

// The place of a whole match and of its groups, as the engine gives them; one that took no part has
// no data.
using match_places = std::array<re2::StringPiece, k_most_groups + 1>;

class pattern {
  public:
    // `what` is the reason when it could not be made.
    pattern(pattern_kind kind, std::string_view text, std::string &what);

    bool valid() const { return regex_ != nullptr; }
    // Whether a match may go on to the end of the text.
    bool is_unbounded() const { return unbounded_; }
    bool matches(std::string_view text);
    // The leftmost longest match from `at` on.
    bool find(std::string_view text, size_t at, match_places &places);

    // In instructions.
    size_t size() const { return size_; }
    // At most, with what matching texts of the lengths that were expected leaves behind.
    size_t memory() const { return 4096 + 32 * size_ + states_; }
    void expect_text(size_t length);

    unsigned long last_use = 0;

  private:
    bool run(std::string_view text, size_t at, re2::StringPiece *places, int count);

    std::unique_ptr<RE2> regex_;
    size_t most_memory_;
    size_t size_ = 0;
    size_t states_ = 0;
    bool unbounded_;
};

// The compiled form of a pattern for a text of that length, paid for; valid until the next call.
// Null when it is none: the failure is recorded.
pattern *find_pattern(pattern_kind kind, std::string_view text, size_t text_length);

// The complaint about a regular expression that is none; empty for one that is.
std::string check_pattern(std::string_view text);

}  // namespace fe

#endif

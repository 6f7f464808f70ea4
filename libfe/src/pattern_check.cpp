// The C library writes repetitions out before it matches: a{9} becomes nine copies of a, a+ two,
// and nesting multiplies them, so a short pattern may take all memory. This is a scan over the
// outline of a pattern that finds out beforehand. It accepts what is no pattern at all: regcomp
// refuses that.
#include "pattern_check.h"

#include <algorithm>
#include <cstddef>
#include <vector>

#include "internal.h"
#include "utf8.h"

namespace fe {

namespace {

constexpr size_t k_longest_pattern = 1000;
constexpr size_t k_most_repetitions = 1000;
constexpr size_t k_largest_expansion = 10'000;

struct weight {
    size_t repetitions;  // the largest product of bounds on the way down
    size_t expansion;    // characters when everything is written out
};

size_t multiply(size_t a, size_t b) {
    return b != 0 && a > 1'000'000 / b ? 1'000'000 : a * b;
}

class scanner {
  public:
    explicit scanner(std::string_view pattern) : rest_(pattern) {}

    size_t measure() {
        groups_.push_back({1, 1});
        while (!rest_.empty()) {
            if (!take_item()) return 0;
        }
        while (groups_.size() > 1)
            close_group();
        end_atom();
        return fits(groups_.front()) ? groups_.front().expansion : 0;
    }

  private:
    static bool fits(const weight &w) {
        return w.repetitions <= k_most_repetitions && w.expansion <= k_largest_expansion;
    }

    // What has been read of an atom with its repetitions counts in the group around it.
    void end_atom() {
        weight &group = groups_.back();
        group.repetitions = std::max(group.repetitions, atom_.repetitions);
        group.expansion = std::min<size_t>(group.expansion + atom_.expansion, 1'000'000);
        atom_ = {1, 0};
    }

    void begin_atom() {
        end_atom();
        atom_ = {1, 1};
    }

    void close_group() {
        end_atom();
        weight group = groups_.back();
        groups_.pop_back();
        end_atom();
        atom_ = group;
    }

    void repeat(size_t bound, size_t copies) {
        atom_.repetitions = multiply(atom_.repetitions, bound);
        atom_.expansion = multiply(atom_.expansion, copies);
    }

    bool take_item() {
        char c = rest_[0];
        rest_.remove_prefix(1);
        switch (c) {
            case '\\':
                begin_atom();
                if (rest_.empty()) return true;
                if (rest_[0] >= '1' && rest_[0] <= '9') return false;
                rest_.remove_prefix(1);
                return true;
            case '[':
                begin_atom();
                take_bracket();
                return true;
            case '(':
                end_atom();
                groups_.push_back({1, 1});
                return true;
            case ')':
                if (groups_.size() > 1) close_group();
                return true;
            case '+':
                repeat(1, 2);
                return true;
            case '{':
                take_bound();
                return fits(atom_);
            case '*':
            case '?':
                return true;
            default:
                begin_atom();
                return true;
        }
    }

    void take_bracket() {
        size_t at = rest_.starts_with('^') ? 1 : 0;
        if (at < rest_.size() && rest_[at] == ']') ++at;
        while (at < rest_.size() && rest_[at] != ']') {
            char kind = at + 1 < rest_.size() ? rest_[at + 1] : '\0';
            if (rest_[at] == '[' && (kind == ':' || kind == '.' || kind == '=')) {
                size_t end = rest_.find(kind, at + 2);
                while (end != std::string_view::npos && rest_.substr(end + 1, 1) != "]") {
                    end = rest_.find(kind, end + 1);
                }
                at = end == std::string_view::npos ? rest_.size() : end + 2;
            } else {
                ++at;
            }
        }
        rest_.remove_prefix(std::min(at + 1, rest_.size()));
    }

    size_t take_digits() {
        size_t number = 0;
        while (!rest_.empty() && is_digit(rest_[0])) {
            number = std::min<size_t>(number * 10 + static_cast<size_t>(rest_[0] - '0'), 100'000);
            rest_.remove_prefix(1);
        }
        return number;
    }

    // Behind "{": n} or n,} or n,m} or ,m}
    void take_bound() {
        size_t least = take_digits();
        size_t most = least;
        if (rest_.starts_with(',')) {
            rest_.remove_prefix(1);
            most = std::max(least, take_digits());
        }
        repeat(std::max<size_t>(most, 1), most + 1);
        if (rest_.starts_with('}')) rest_.remove_prefix(1);
    }

    std::string_view rest_;
    std::vector<weight> groups_;
    weight atom_ = {1, 0};
};

}  // namespace

size_t measure_pattern(std::string_view pattern) {
    if (count_characters(pattern) > k_longest_pattern) return 0;
    return scanner(pattern).measure();
}

}  // namespace fe

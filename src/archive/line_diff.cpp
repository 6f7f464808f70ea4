/* The fewest changes between two texts, found as E. Myers has shown: with each further line that
 * is taken out or put in, as far as the texts can then be followed on each diagonal. */

#include "archive/line_diff.h"

#include <algorithm>
#include <span>

namespace {

/* Time and memory go with the square of it. */
constexpr long k_most_edits = 500;

using lines = std::span<const std::string_view>;

/* How far the texts are followed, in lines of the first, for each diagonal: the lines of the first
 * less those of the second. */
class frontier {
  public:
    explicit frontier(long edits)
        : middle_(edits + 2), reached_(2 * static_cast<size_t>(middle_) + 1, -1) {}
    long &at(long diagonal) { return reached_[static_cast<size_t>(middle_ + diagonal)]; }
    long at(long diagonal) const { return reached_[static_cast<size_t>(middle_ + diagonal)]; }
    /* Whether the next edit on the way to a diagonal puts a line of the second text in. */
    bool puts_in(long diagonal) const { return at(diagonal + 1) > at(diagonal - 1); }

  private:
    long middle_; /* beside the diagonals of so many edits, those that the next ones look at */
    std::vector<long> reached_;
};

/* The frontiers behind each number of edits, up to the one before the last; false when they are too
 * many. */
bool follow(lines base, lines other, std::vector<frontier> &behind) {
    const long base_end = static_cast<long>(base.size());
    const long other_end = static_cast<long>(other.size());
    frontier before{0};
    before.at(1) = 0;
    for (long edits = 0; edits <= k_most_edits; edits++) {
        frontier now{edits};
        for (long diagonal = -edits; diagonal <= edits; diagonal += 2) {
            long at =
                before.puts_in(diagonal) ? before.at(diagonal + 1) : before.at(diagonal - 1) + 1;
            while (at < base_end && at - diagonal < other_end &&
                   base[static_cast<size_t>(at)] == other[static_cast<size_t>(at - diagonal)])
                at++;
            now.at(diagonal) = at;
            if (at == base_end && at - diagonal == other_end) return true;
        }
        behind.push_back(now);
        before = std::move(now);
    }
    return false;
}

/* From the end back to the beginning, where skipped equal lines lie before both. */
std::vector<line_change> way_back(const std::vector<frontier> &behind, long base_at, long other_at,
                                  size_t skipped) {
    std::vector<line_change> changes;
    for (size_t edits = behind.size(); edits-- > 0;) {
        const frontier &before = behind[edits];
        const long diagonal = base_at - other_at;
        const bool puts_in = before.puts_in(diagonal);
        const long from = puts_in ? diagonal + 1 : diagonal - 1;
        base_at = before.at(from);
        other_at = base_at - from;
        const size_t base = skipped + static_cast<size_t>(base_at);
        const size_t other = skipped + static_cast<size_t>(other_at);
        line_change one{base, base + (puts_in ? 0 : 1), other, other + (puts_in ? 1 : 0)};
        if (!changes.empty() && changes.back().base_from == one.base_to &&
            changes.back().other_from == one.other_to) {
            one.base_to = changes.back().base_to;
            one.other_to = changes.back().other_to;
            changes.pop_back();
        }
        changes.push_back(one);
    }
    std::reverse(changes.begin(), changes.end());
    return changes;
}

}  // namespace

text_lines lines_of(const std::string &text) {
    text_lines all;
    for (std::string_view rest = text; !rest.empty();) {
        const size_t newline = rest.find('\n');
        all.push_back(rest.substr(0, newline == std::string_view::npos ? newline : newline + 1));
        rest.remove_prefix(all.back().size());
    }
    return all;
}

std::optional<std::vector<line_change>> changes_between(const text_lines &base,
                                                        const text_lines &other) {
    const size_t first = static_cast<size_t>(
        std::mismatch(base.begin(), base.end(), other.begin(), other.end()).first - base.begin());
    const lines base_rest = lines{base}.subspan(first);
    const lines other_rest = lines{other}.subspan(first);
    const size_t last = static_cast<size_t>(
        std::mismatch(base_rest.rbegin(), base_rest.rend(), other_rest.rbegin(), other_rest.rend())
            .first -
        base_rest.rbegin());
    const lines old = base_rest.first(base_rest.size() - last);
    const lines fresh = other_rest.first(other_rest.size() - last);
    std::vector<frontier> behind;
    if (!follow(old, fresh, behind)) return std::nullopt;
    return way_back(behind, static_cast<long>(old.size()), static_cast<long>(fresh.size()), first);
}

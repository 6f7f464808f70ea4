#include "ucfgd/nearest.h"

#include <algorithm>
#include <cstddef>
#include <vector>

namespace {

constexpr size_t k_longest = 64; /* what is longer is no word that somebody has typed */

}  // namespace

size_t count_slips(std::string_view a, std::string_view b) {
    std::vector<size_t> before(b.size() + 1);
    std::vector<size_t> last(b.size() + 1);
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); j++)
        row[j] = j;
    for (size_t i = 1; i <= a.size(); i++) {
        std::swap(before, last);
        std::swap(last, row);
        row[0] = i;
        for (size_t j = 1; j <= b.size(); j++) {
            const size_t wrong = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            row[j] = std::min({last[j] + 1, row[j - 1] + 1, wrong});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                row[j] = std::min(row[j], before[j - 2] + 1);
        }
    }
    return row[b.size()];
}

std::string_view nearest_word(std::string_view word, std::span<const std::string_view> known) {
    std::string_view best;
    if (word.size() > k_longest) return best;
    size_t fewest = std::max<size_t>(1, word.size() / 3) + 1;
    for (std::string_view candidate : known) {
        if (candidate.size() > k_longest) continue;
        const size_t count = count_slips(word, candidate);
        if (count >= fewest) continue;
        fewest = count;
        best = candidate;
    }
    return best;
}

#ifndef UCFGD_TREE_PATH_SEGMENT_H
#define UCFGD_TREE_PATH_SEGMENT_H

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string_view>

/* How a dotted path is cut into components, before anything is unescaped. Internal to the tree. */

inline constexpr std::size_t k_max_segment = 255;

struct path_segment {
    std::size_t length;
    bool goes_on; /* a "." follows: there is another component behind it */
};

/* The component at the start of path. One of more than k_max_segment characters is cut there, and
 * since no "." follows the cut, it is the last one. */
inline path_segment first_segment(std::string_view path) {
    const size_t within = std::min(path.size(), k_max_segment + 1);
    const void *dot = within > 0 ? std::memchr(path.data(), '.', within) : nullptr;
    if (!dot) return {std::min(path.size(), k_max_segment), false};
    return {static_cast<size_t>(static_cast<const char *>(dot) - path.data()), true};
}

#endif

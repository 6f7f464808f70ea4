#ifndef UCFGD_TREE_PATH_SEGMENT_H
#define UCFGD_TREE_PATH_SEGMENT_H

#include <cstddef>

/* How a dotted path is cut into components, before anything is unescaped. Internal to the tree. */

inline constexpr std::size_t k_max_segment = 255;

struct path_segment {
    std::size_t length;
    bool goes_on; /* a "." follows: there is another component behind it */
};

/* The component at the start of path. One of more than k_max_segment characters is cut there, and
 * since no "." follows the cut, it is the last one. */
inline path_segment first_segment(const char *path) {
    std::size_t length = 0;
    while (length < k_max_segment && path[length] != '\0' && path[length] != '.') {
        length++;
    }
    return {length, path[length] == '.'};
}

#endif

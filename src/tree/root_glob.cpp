#include "tree/root_glob.h"

#include <cstring>
#include <new>
#include <string_view>

#include "daemon/dirs.h"
#include "ucfgd/owners.h"

namespace {

std::string prefixed(const char *pattern) {
    owned_str full{prefix_ucfgdconffilename(pattern)};
    if (!full) throw std::bad_alloc{};
    return full.get();
}

std::string escaped_for_glob(std::string_view text) {
    std::string escaped;
    for (char c : text) {
        if (std::strchr("*?[\\", c)) escaped += '\\';
        escaped += c;
    }
    return escaped;
}

}  // namespace

root_glob::root_glob(const char *pattern)
    : full_(prefixed(pattern)), prefix_length_(full_.size() - std::strlen(pattern)) {
    std::string sought = escaped_for_glob({full_.data(), prefix_length_}) + pattern;
    if (glob(sought.c_str(), 0, nullptr, &matches_) != 0) matches_.gl_pathc = 0;
}

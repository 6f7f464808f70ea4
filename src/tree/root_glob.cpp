#include "tree/root_glob.h"

#include <libdaemon/dlog.h>

#include <cerrno>
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

/* glob gives its caller no place to keep this in. */
int g_unreadable = 0;

int note_unreadable(const char * /*path*/, int reason) {
    if (reason != ENOENT && reason != ENOTDIR) g_unreadable = reason;
    return 0;
}

}  // namespace

root_glob::root_glob(const char *pattern)
    : full_(prefixed(pattern)), prefix_length_(full_.size() - std::strlen(pattern)) {
    std::string sought = escaped_for_glob({full_.data(), prefix_length_}) + pattern;
    g_unreadable = 0;
    int status = glob(sought.c_str(), 0, note_unreadable, &matches_);
    if (status != 0) matches_.gl_pathc = 0;
    if (status == GLOB_NOSPACE) g_unreadable = ENOMEM;
    if (g_unreadable == 0) return;
    daemon_log(LOG_ERR, "Error: Looking for '%s' failed: %s", full_.c_str(),
               std::strerror(g_unreadable));
}

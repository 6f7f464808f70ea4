#include "daemon/descriptors.h"

#include <sys/resource.h>

#include <algorithm>

namespace {

/* More than the limit on connections may be. Where a child must close all that there may be one by
 * one, an unlimited number would take for ever. */
constexpr rlim_t k_enough = 1 << 17;

bool g_raised = false;
rlimit g_before{};

}  // namespace

void descriptors_raise(void) {
    if (!g_raised && getrlimit(RLIMIT_NOFILE, &g_before) != 0) return;
    rlimit most = g_before;
    most.rlim_cur = std::max(most.rlim_cur, std::min(most.rlim_max, k_enough));
    g_raised = setrlimit(RLIMIT_NOFILE, &most) == 0;
}

void descriptors_lower(void) {
    if (g_raised) setrlimit(RLIMIT_NOFILE, &g_before);
}

long descriptors_most(void) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return k_descriptors_reserved;
    return static_cast<long>(std::min(limit.rlim_cur, k_enough));
}

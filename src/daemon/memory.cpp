#include "daemon/memory.h"

#include <fcntl.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "daemon/loop.h"
#include "ucfgd/owners.h"

/* What a large request has taken is freed behind it, but the allocator keeps it, for years where no
 * other large one comes. Giving it back takes some milliseconds, so that is done apart from
 * requests, and only where the process has really grown. */

namespace {

constexpr long k_wait_milliseconds = 2000;
constexpr long k_much = 2L << 20;

loop_timer g_timer;
long g_resident = -1; /* bytes, when memory was last given back */

/* -1 where /proc is missing. */
long resident_bytes() {
    const unique_fd fd{open("/proc/self/statm", O_RDONLY | O_CLOEXEC)};
    char text[128];
    const ssize_t got = fd ? read(fd.get(), text, sizeof text - 1) : -1;
    if (got <= 0) return -1;
    text[got] = '\0';
    const char *blank = strchr(text, ' ');
    return blank ? std::strtol(blank, nullptr, 10) * sysconf(_SC_PAGESIZE) : -1;
}

void give_back(void *) {
    const errno_guard keep;
    const long resident = resident_bytes();
    if (resident >= 0 && g_resident >= 0 && resident < g_resident + k_much) {
        g_resident = std::min(g_resident, resident);
        return;
    }
#ifdef __GLIBC__
    malloc_trim(0);
#endif
    g_resident = resident_bytes();
}

}  // namespace

void memory_give_back_later(void) {
    if (g_timer.due == 0) loop_set_timer(&g_timer, k_wait_milliseconds, give_back, nullptr);
}

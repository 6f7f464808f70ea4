#include "daemon/notify.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "daemon/loop.h"
#include "ucfgd/owners.h"

namespace {

std::string g_socket;
long g_watchdog_milliseconds = 0; /* how often it wants to hear from us; 0: never */
loop_timer g_watchdog;

/* A name that begins with '@' is in the abstract namespace, where a null byte stands for it. */
void tell(std::string_view text) {
    errno_guard keep;
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (g_socket.empty() || g_socket.size() >= sizeof address.sun_path) return;
    std::ranges::copy(g_socket, address.sun_path);
    if (g_socket[0] == '@') address.sun_path[0] = '\0';
    const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + g_socket.size());
    const unique_fd fd{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)};
    if (!fd) return;
    sendto(fd.get(), text.data(), text.size(), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr *>(&address), size);
}

void feed_watchdog(void * /*data*/) {
    tell("WATCHDOG=1");
    loop_set_timer(&g_watchdog, g_watchdog_milliseconds, feed_watchdog, nullptr);
}

long number_in(const char *name) {
    const char *text = getenv(name);
    return text ? std::strtol(text, nullptr, 10) : 0;
}

}  // namespace

void notify_begin(void) {
    errno_guard keep;
    const char *named = getenv("NOTIFY_SOCKET");
    g_socket = named ? named : "";
    const long microseconds = number_in("WATCHDOG_USEC");
    const bool is_ours = !getenv("WATCHDOG_PID") || number_in("WATCHDOG_PID") == getpid();
    if (microseconds > 0 && is_ours) g_watchdog_milliseconds = std::max(microseconds / 2000, 1L);
    for (const char *name : {"NOTIFY_SOCKET", "WATCHDOG_USEC", "WATCHDOG_PID"})
        unsetenv(name);
}

void notify_ready(void) {
    tell("READY=1");
    if (g_watchdog_milliseconds > 0) feed_watchdog(nullptr);
}

void notify_reloading(void) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    tell("RELOADING=1\nMONOTONIC_USEC=" +
         std::to_string(int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000));
}

void notify_stopping(void) {
    tell("STOPPING=1");
}

#include "daemon/loop_wait.h"

#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <cerrno>
#include <ctime>
#include <new>
#include <vector>

#include "ucfgd/owners.h"

namespace {

constexpr int64_t k_milliseconds = 1000;
constexpr int64_t k_nanoseconds_each = 1'000'000;
constexpr size_t k_first_events = 64;

/* Somebody who reads must also see an end and an error, and a writer an error; a writer is told of
 * an end too, which it would wait for in vain otherwise. */
constexpr uint32_t k_readable = EPOLLIN | EPOLLHUP | EPOLLERR;
constexpr uint32_t k_writable = EPOLLOUT | EPOLLHUP | EPOLLERR;

struct watched_fd {
    fd_callback *first = nullptr; /* its records, linked by next_alike */
    uint32_t asked = 0;           /* what the kernel knows */
    uint32_t ready = 0;           /* what the last wait found */
    bool always = false;          /* a file that epoll does not take: it is always ready */
};

std::vector<watched_fd> g_watched; /* by descriptor */
std::vector<epoll_event> g_events;
size_t g_found = 0; /* events of the last wait */
int g_always = 0;

unique_fd g_epoll;
unique_fd g_timer;
constexpr int64_t k_unknown = -1;
int64_t g_armed = k_unknown; /* what the timer is set to */

watched_fd &entry_of(int fd) {
    return g_watched[static_cast<size_t>(fd)];
}

uint32_t interest(const fd_callback *cb) {
    if (cb->type == FD_CALLBACK_READ) return EPOLLIN;
    if (cb->type == FD_CALLBACK_WRITE) return EPOLLOUT;
    return 0;
}

bool control(int operation, int fd, uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = fd;
    return epoll_ctl(g_epoll.get(), operation, fd, &event) == 0;
}

/* A descriptor that others have closed and opened again is not what the kernel knew. */
bool ask(int fd, uint32_t before, uint32_t events) {
    if (events == 0) {
        control(EPOLL_CTL_DEL, fd, 0);
        return true;
    }
    const int first = before == 0 ? EPOLL_CTL_ADD : EPOLL_CTL_MOD;
    const int second = before == 0 ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
    if (control(first, fd, events)) return true;
    return (errno == EEXIST || errno == ENOENT) && control(second, fd, events);
}

void set_always(watched_fd &entry, bool always) {
    g_always += static_cast<int>(always) - static_cast<int>(entry.always);
    entry.always = always;
}

void arm(int64_t due) {
    if (due == g_armed) return;
    itimerspec when{};
    if (due != 0) {
        const int64_t left = std::max<int64_t>(due - loop_now(), 0);
        when.it_value.tv_sec = static_cast<time_t>(left / k_milliseconds);
        /* None at all would disarm it. */
        when.it_value.tv_nsec = static_cast<long>(left % k_milliseconds * k_nanoseconds_each + 1);
    }
    timerfd_settime(g_timer.get(), 0, &when, nullptr);
    g_armed = due;
}

/* All that is ready, since the loop has an order of its own. */
int wait_for_all(int milliseconds) {
    for (;;) {
        const int count = epoll_wait(g_epoll.get(), g_events.data(),
                                     static_cast<int>(g_events.size()), milliseconds);
        if (count < static_cast<int>(g_events.size())) return count;
        try {
            g_events.resize(2 * g_events.size());
        } catch (const std::bad_alloc &) {
            return count;
        }
        milliseconds = 0;
    }
}

void hand_out(const watched_fd &entry, void (*found)(fd_callback *cb)) {
    for (fd_callback *cb = entry.first; cb; cb = cb->next_alike)
        found(cb);
}

/* Seldom enough for a walk over all. */
int find_always_ready(void (*found)(fd_callback *cb)) {
    int count = 0;
    for (watched_fd &entry : g_watched) {
        if (!entry.always) continue;
        entry.ready = entry.asked;
        hand_out(entry, found);
        ++count;
    }
    return count;
}

}  // namespace

bool wait_open() try {
    if (g_events.empty()) g_events.resize(k_first_events);
    g_epoll.reset(epoll_create1(EPOLL_CLOEXEC));
    g_timer.reset(timerfd_create(CLOCK_BOOTTIME, TFD_NONBLOCK | TFD_CLOEXEC));
    g_armed = k_unknown;
    g_found = 0;
    for (watched_fd &entry : g_watched) {
        entry.asked = entry.ready = 0;
        set_always(entry, false);
    }
    return g_epoll && g_timer && control(EPOLL_CTL_ADD, g_timer.get(), EPOLLIN);
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return false;
}

void wait_close() {
    g_epoll.reset();
    g_timer.reset();
}

bool wait_add(fd_callback *cb) try {
    const auto fd = static_cast<size_t>(cb->fd);
    if (fd >= g_watched.size()) g_watched.resize(std::max(fd + 1, 2 * g_watched.size()));
    watched_fd &entry = entry_of(cb->fd);
    cb->next_alike = entry.first;
    entry.first = cb;
    entry.asked = 0; /* whatever it was, it may be another file now */
    return true;
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return false;
}

void wait_remove(const fd_callback *cb) {
    fd_callback **link = &entry_of(cb->fd).first;
    while (*link != cb)
        link = &(*link)->next_alike;
    *link = cb->next_alike;
    wait_tell(cb->fd);
}

bool wait_knows(int fd) {
    return entry_of(fd).first != nullptr;
}

bool wait_tell(int fd) {
    watched_fd &entry = entry_of(fd);
    uint32_t wanted = 0;
    for (const fd_callback *cb = entry.first; cb; cb = cb->next_alike)
        wanted |= interest(cb);
    if (wanted == entry.asked || !g_epoll) return true;
    const bool taken = ask(fd, entry.asked, wanted);
    if (!taken && errno != EPERM) return false;
    set_always(entry, !taken);
    entry.asked = wanted;
    return true;
}

int wait_for(int64_t due, int milliseconds, void (*found)(fd_callback *cb)) {
    for (size_t i = 0; i < g_found; i++) {
        const int fd = g_events[i].data.fd;
        if (fd != g_timer.get()) entry_of(fd).ready = 0;
    }
    g_found = 0;
    arm(due);
    const int count = wait_for_all(g_always > 0 ? 0 : milliseconds);
    if (count < 0) return errno == EINTR ? -1 : k_wait_astray;
    g_found = static_cast<size_t>(count);
    int ready = g_always > 0 ? find_always_ready(found) : 0;
    for (size_t i = 0; i < g_found; i++) {
        const epoll_event &event = g_events[i];
        if (event.data.fd == g_timer.get()) {
            g_armed = k_unknown;
            continue;
        }
        watched_fd &entry = entry_of(event.data.fd);
        if (entry.asked == 0) return k_wait_astray;
        entry.ready = event.events;
        hand_out(entry, found);
        ++ready;
    }
    return ready;
}

bool wait_found_readable(const fd_callback *cb) {
    const watched_fd &entry = entry_of(cb->fd);
    return (entry.asked & EPOLLIN) != 0 && (entry.ready & k_readable) != 0;
}

bool wait_found_writable(const fd_callback *cb) {
    const watched_fd &entry = entry_of(cb->fd);
    return (entry.asked & EPOLLOUT) != 0 && (entry.ready & k_writable) != 0;
}

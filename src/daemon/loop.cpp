#include "daemon/loop.h"

#include <errno.h>
#include <libdaemon/daemon.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "daemon/loop_wait.h"
#include "ucfgd/owners.h"

/* The daemon's folder, for its next owner.
 *
 * Everything runs in one thread around the loop below. Whoever waits for something registers a
 * descriptor and a function: listeners (listen), connections (connection), libdaemon's signal pipe
 * (signals), and the pipes of child processes (src/session). Nobody else ever waits, so a function
 * that blocks stops every client.
 *
 * A round has two passes: call what the wait found ready, then remove what is finished and tell the
 * kernel what the others wait for. Both go in the order of the list, but touch only what is ready
 * and what is marked: thousands of connections that are silent cost nothing. Records that their
 * owners change as they like are marked for good; the connections' are quiet, and marked by the
 * functions that change them. Nothing is unlinked while functions are being called. They only mark,
 * and they may mark any record, their own or one that has not had its turn: so the state and the
 * type of a record are looked at again right before its function is called. Sessions follow the
 * same rule through the sweep hook, which runs when no function does.
 *
 * Whoever waits for a time sets a timer; whoever has stopped in the middle of its work to let
 * others have their turn tells so with loop_work_left, and goes on in the sweep. Once the loop
 * stops, nothing is registered, so that nothing is started that would keep it from its end.
 *
 * A request costs one wait, one read and one write. Keep it so: connections write their replies
 * at once and are watched for writing only when the socket did not take everything, and the clock
 * costs no system call.
 *
 * loop, trace and dirs are used by every other folder and know none of them. The rest of this
 * folder is the top of the house: options and config read the settings, startup is the order in
 * which everything is made, main calls it.
 */

static_assert(offsetof(fd_callback, next) == 0);

fd_callback *g_cb_list = nullptr;
fd_callback *g_timecb_list = nullptr;
fd_callback *g_cb_plain = nullptr;
int64_t (*g_loop_clock)(void) = nullptr;

namespace {

constexpr int64_t k_milliseconds = 1000;
constexpr int64_t k_nanoseconds_each = 1'000'000;
constexpr int k_retry_milliseconds = 100;

/* Where the next record of each list is linked. */
fd_callback **g_cb_tail = &g_cb_list;
fd_callback **g_timecb_tail = &g_timecb_list;
fd_callback **g_plain_tail = &g_cb_plain;

/* Quiet records that have changed since the last wait, linked like the plain ones. */
fd_callback *g_changed = nullptr;
fd_callback **g_changed_tail = &g_changed;

uint64_t g_last_place = 0;
size_t g_count = 0;

/* The records that are ready, then those to be removed. There is always room for all. */
std::vector<fd_callback *> g_chosen;

/* The kernel had no memory to watch some record. */
bool g_retry = false;

/* Timers that are set, the first one due at the head. */
loop_timer *g_timers = nullptr;

/* Cleared by the wait that it makes short. */
bool g_work_left = false;

/* Set until the loop returns. */
bool g_stopping = false;

void (*g_sweep)(void) = nullptr;
void (*g_closed)(void) = nullptr;
void (*g_before_wait)(void) = nullptr;

struct removal {
    bool stopped = false;
    bool closed = false;
};

void append(fd_callback **&tail, fd_callback *cb) {
    cb->next = nullptr;
    cb->link = tail;
    *tail = cb;
    tail = &cb->next;
}

void take_out(fd_callback **&tail, const fd_callback *cb) {
    *cb->link = cb->next;
    if (cb->next)
        cb->next->link = cb->link;
    else
        tail = cb->link;
}

void mark(fd_callback *cb) {
    if (cb->marked != 0 || cb->place == 0) return;
    cb->marked = 1;
    cb->next_marked = nullptr;
    fd_callback **&tail = cb->quiet != 0 ? g_changed_tail : g_plain_tail;
    *tail = cb;
    tail = &cb->next_marked;
}

/* Keeps those for which the test is true; the others may be gone then. */
template <class test>
void filter(fd_callback **link, fd_callback **&tail, test stays) {
    while (fd_callback *cb = *link) {
        fd_callback *next = cb->next_marked;
        if (stays(cb))
            link = &cb->next_marked;
        else
            *link = next;
    }
    tail = link;
}

template <class test>
void filter_marked(test stays) {
    filter(&g_cb_plain, g_plain_tail, stays);
    filter(&g_changed, g_changed_tail, stays);
}

void choose_finished(fd_callback *first) {
    for (fd_callback *cb = first; cb; cb = cb->next_marked)
        if (cb->state == FD_CALLBACK_FINISHED || cb->state == FD_CALLBACK_STOP)
            g_chosen.push_back(cb);
}

void leave(fd_callback *cb) {
    wait_remove(cb);
    take_out(g_cb_tail, cb);
    cb->place = 0;
    g_count--;
}

void choose(fd_callback *cb) {
    if (cb->type != FD_CALLBACK_PARKED) g_chosen.push_back(cb);
}

void put_chosen_in_order() {
    if (g_chosen.size() > 1) std::ranges::sort(g_chosen, {}, &fd_callback::place);
}

/* By index, since functions may add records. */
void dispatch() {
    put_chosen_in_order();
    for (size_t i = 0; i < g_chosen.size(); i++) {
        fd_callback *cb = g_chosen[i];
        if (cb->state == FD_CALLBACK_FINISHED) continue;
        if (cb->type == FD_CALLBACK_READ && wait_found_readable(cb)) cb->cb(cb->fd, cb->data);
        if (cb->type == FD_CALLBACK_WRITE && wait_found_writable(cb)) cb->cb(cb->fd, cb->data);
    }
}

void close_of(const fd_callback *cb) {
    if (close(cb->fd) != 0) daemon_log(LOG_ERR, "close fd=%d: %s", cb->fd, strerror(errno));
}

removal remove_finished() {
    removal result;
    g_chosen.clear();
    choose_finished(g_cb_plain);
    choose_finished(g_changed);
    if (g_chosen.empty()) return result;
    put_chosen_in_order();
    for (fd_callback *cb : g_chosen) {
        result.stopped = cb->state == FD_CALLBACK_STOP;
        if (result.stopped) break;
        leave(cb);
        if (!wait_knows(cb->fd)) close_of(cb);
        result.closed = true;
    }
    filter_marked([](fd_callback *cb) {
        if (cb->place != 0) return true;
        std::free(cb);
        return false;
    });
    return result;
}

/* A descriptor that somebody else has closed cannot be watched, but its owner may still hold the
 * record: so it is parked and not removed. False when it has to be tried again. */
bool tell(fd_callback *cb) {
    if (cb->watched == cb->type) return true;
    const bool told = wait_tell(cb->fd);
    if (!told && (errno == ENOMEM || errno == ENOSPC)) {
        if (!g_retry) daemon_log(LOG_ERR, "cannot watch fd=%d now: %s", cb->fd, strerror(errno));
        return false;
    }
    if (!told) {
        daemon_log(LOG_ERR, "fd=%d: %s, no longer watched", cb->fd, strerror(errno));
        cb->type = FD_CALLBACK_PARKED;
    }
    cb->watched = cb->type;
    return true;
}

void tell_marked() {
    bool retry = false;
    filter_marked([&](fd_callback *cb) {
        const bool told = tell(cb);
        retry |= !told;
        if (!told || !cb->quiet) return true;
        cb->marked = 0;
        return false;
    });
    g_retry = retry;
}

/* The kernel knows nothing yet. False when there is nothing to wait with. */
bool begin_anew() {
    for (fd_callback *cb = g_cb_list; cb; cb = cb->next) {
        cb->watched = -1;
        mark(cb);
    }
    if (wait_open()) return true;
    daemon_log(LOG_ERR, "cannot wait: %s", strerror(errno));
    return false;
}

void call_time_callbacks() {
    for (fd_callback *cb : removal_safe(g_timecb_list))
        if (cb->state != FD_CALLBACK_FINISHED) cb->cb(-1, cb->data);
    for (fd_callback *cb : removal_safe(g_timecb_list)) {
        if (cb->state != FD_CALLBACK_FINISHED) continue;
        close_of(cb);
        loop_del_time_callback(cb);
    }
}

void call_due_timers() {
    if (!g_timers) return;
    /* Those that are set meanwhile have to wait for the next round. */
    const int64_t now = loop_now();
    while (g_timers && g_timers->due <= now) {
        loop_timer *timer = g_timers;
        loop_clear_timer(timer);
        timer->act(timer->data);
    }
}

/* Chooses what is ready. */
int wait_for_events() {
    tell_marked();
    if (g_before_wait) g_before_wait();
    g_chosen.clear();
    const int most = g_work_left ? 0 : g_retry ? k_retry_milliseconds : -1;
    g_work_left = false;
    return wait_for(g_timers ? g_timers->due : 0, most, choose);
}

/* Everything behind a wait that found something or was short. True when the loop is over. */
bool serve() {
    dispatch();
    call_due_timers();
    if (g_sweep) g_sweep();
    removal result = remove_finished();
    if (result.stopped) return true;
    if (!g_cb_list) {
        daemon_log(LOG_NOTICE, "loop: no more sockets to listen, returning");
        return true;
    }
    if (result.closed && g_closed) g_closed();
    return false;
}

/* Appends a record of either kind. */
int add(fd_callback *cb, bool quiet) try {
    if (!cb || cb->fd < 0 || g_stopping) {
        errno = !cb ? EINVAL : cb->fd < 0 ? EBADF : ECANCELED;
        return -1;
    }
    if (g_chosen.capacity() <= g_count) g_chosen.reserve(2 * g_count + 1);
    if (!wait_add(cb)) return -1;
    append(g_cb_tail, cb);
    g_count++;
    cb->place = ++g_last_place;
    cb->quiet = quiet ? 1 : 0;
    cb->watched = -1;
    cb->marked = 0;
    mark(cb);
    return 0;
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return -1;
}

}  // namespace

fd_callback *create_fd_callback(int fd, int type, int (*callback)(int fd, void *data), void *data) {
    auto *cb = static_cast<fd_callback *>(std::calloc(1, sizeof(fd_callback)));
    if (!cb) return nullptr;
    cb->fd = fd;
    cb->type = type;
    cb->cb = callback;
    cb->data = data;
    return cb;
}

int loop_add_callback(fd_callback *cb) {
    return add(cb, false);
}

int loop_add_quiet_callback(fd_callback *cb) {
    return add(cb, true);
}

void loop_watch(fd_callback *cb, int type) {
    if (!cb || cb->type == type) return;
    cb->type = type;
    mark(cb);
}

void loop_finish(fd_callback *cb) {
    if (!cb) return;
    cb->state = FD_CALLBACK_FINISHED;
    mark(cb);
}

void loop_del_callback(fd_callback *cb) {
    if (!cb || cb->place == 0) return;
    leave(cb);
    filter_marked([=](const fd_callback *other) { return other != cb; });
    std::free(cb);
}

int loop_add_time_callback(fd_callback *cb) {
    if (!cb) {
        errno = EINVAL;
        return -1;
    }
    append(g_timecb_tail, cb);
    return 0;
}

void loop_del_time_callback(fd_callback *cb) {
    if (!cb || !cb->link) return;
    take_out(g_timecb_tail, cb);
    std::free(cb);
}

void loop_set_hooks(void (*sweep)(void), void (*closed)(void)) {
    g_sweep = sweep;
    g_closed = closed;
}

void loop_set_before_wait(void (*before_wait)(void)) {
    g_before_wait = before_wait;
}

void loop_stop(void) {
    g_stopping = true;
}

int loop_stopping(void) {
    return g_stopping ? 1 : 0;
}

void loop_finish_all(void) {
    loop_stop();
    for (fd_callback *cb = g_cb_list; cb; cb = cb->next)
        loop_finish(cb);
}

int64_t loop_now(void) {
    if (g_loop_clock) return g_loop_clock();
    struct timespec now {};
    if (clock_gettime(CLOCK_BOOTTIME, &now) != 0) return 0;
    return now.tv_sec * k_milliseconds + now.tv_nsec / k_nanoseconds_each;
}

void loop_set_timer(loop_timer *timer, long milliseconds, void (*act)(void *data), void *data) {
    loop_clear_timer(timer);
    /* One more, since the clock's present millisecond has begun already. */
    timer->due = loop_now() + std::max(milliseconds, 0L) + 1;
    timer->act = act;
    timer->data = data;
    loop_timer **link = &g_timers;
    while (*link && (*link)->due <= timer->due)
        link = &(*link)->next;
    timer->next = *link;
    *link = timer;
}

void loop_clear_timer(loop_timer *timer) {
    if (timer->due == 0) return;
    timer->due = 0;
    for (loop_timer **link = &g_timers; *link; link = &(*link)->next) {
        if (*link != timer) continue;
        *link = timer->next;
        return;
    }
}

void loop_work_left(void) {
    g_work_left = true;
}

void loop(int /*timeout*/) {
    bool runs = begin_anew();
    while (runs) {
        const int ready = wait_for_events();
        if (ready == k_wait_astray) {
            runs = begin_anew();
            loop_work_left(); /* what was left is so still */
        }
        if (ready < 0) continue;
        if (ready == 0) call_time_callbacks();
        runs = !serve();
    }
    wait_close();
    g_stopping = false;
}

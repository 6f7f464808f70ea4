#include "daemon/loop.h"

#include <errno.h>
#include <fcntl.h>
#include <libdaemon/daemon.h>
#include <sys/select.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "ucfgd/owners.h"

/* The daemon's folder, for its next owner.
 *
 * Everything runs in one thread around the loop below. Whoever waits for something registers a
 * descriptor and a function: listeners (listen), connections (connection), libdaemon's signal pipe
 * (signals), and the pipes of child processes (src/session). Nobody else ever waits, so a function
 * that blocks stops every client.
 *
 * A round has two passes over one list: call what select found ready, then remove what is finished
 * and note what the others wait for. Nothing is unlinked while functions are being called. They
 * only mark, and they may mark any record, their own or one that has not had its turn: so the state
 * and the type of a record are looked at again right before its function is called. Sessions follow
 * the same rule through the sweep hook, which runs when no function does.
 *
 * Whoever waits for a time sets a timer; whoever has stopped in the middle of its work to let
 * others have their turn tells so with loop_work_left, and goes on in the sweep. Once the loop
 * stops, nothing is registered, so that nothing is started that would keep it from its end.
 *
 * A request costs one select, one read and one write. Keep it so: connections write their replies
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
int64_t (*g_loop_clock)(void) = nullptr;

namespace {

constexpr int64_t k_milliseconds = 1000;
constexpr int64_t k_microseconds = 1000;
constexpr int64_t k_nanoseconds_each = 1'000'000;
/* A wait stands still while the machine sleeps, the clock of the timers does not. So a timer whose
 * time has come meanwhile is late by this much, and not by the rest of the wait. */
constexpr int64_t k_longest_wait = 1000;

/* Where the next record of each list is linked. */
fd_callback **g_cb_tail = &g_cb_list;
fd_callback **g_timecb_tail = &g_timecb_list;

/* Timers that are set, the first one due at the head. */
loop_timer *g_timers = nullptr;

/* Cleared by the wait that it makes short. */
bool g_work_left = false;

/* Set until the loop returns. */
bool g_stopping = false;

void (*g_sweep)(void) = nullptr;
void (*g_closed)(void) = nullptr;
void (*g_before_wait)(void) = nullptr;

/* The descriptors that are waited for. */
struct watch_sets {
    fd_set read{};
    fd_set write{};
    int highest = 0;

    void add(const fd_callback *cb) {
        if (cb->type == FD_CALLBACK_READ) FD_SET(cb->fd, &read);
        if (cb->type == FD_CALLBACK_WRITE) FD_SET(cb->fd, &write);
        highest = std::max(highest, cb->fd);
    }
};

struct removal {
    bool stopped = false;
    bool closed = false;
};

void append(fd_callback **&tail, fd_callback *cb) {
    *tail = cb;
    tail = &cb->next;
}

void unlink_and_free(fd_callback **list, fd_callback **&tail, fd_callback *cb) {
    for (fd_callback **link = list; *link; link = &(*link)->next) {
        if (*link != cb) continue;
        *link = cb->next;
        if (tail == &cb->next) tail = link;
        std::free(cb);
        return;
    }
}

watch_sets collect() {
    watch_sets sets;
    for (const fd_callback *cb = g_cb_list; cb; cb = cb->next)
        sets.add(cb);
    return sets;
}

/* The walk ends with the last of the descriptors that are ready. */
void dispatch(const watch_sets &sets, int ready) {
    for (fd_callback *cb : removal_safe(g_cb_list)) {
        if (ready <= 0) return;
        if (cb->state == FD_CALLBACK_FINISHED) continue;
        if (cb->type == FD_CALLBACK_READ && FD_ISSET(cb->fd, &sets.read)) {
            ready--;
            cb->cb(cb->fd, cb->data);
        }
        if (cb->type == FD_CALLBACK_WRITE && FD_ISSET(cb->fd, &sets.write)) {
            ready--;
            cb->cb(cb->fd, cb->data);
        }
    }
}

/* Removes finished records, and adds the others to the sets where there are some: one walk does
 * both. */
removal remove_finished(fd_callback **list, fd_callback **&tail, watch_sets *sets) {
    removal result;
    fd_callback **link = list;
    while (fd_callback *cb = *link) {
        if (cb->state == FD_CALLBACK_STOP) {
            result.stopped = true;
            return result;
        }
        if (cb->state != FD_CALLBACK_FINISHED) {
            if (sets) sets->add(cb);
            link = &cb->next;
            continue;
        }
        if (close(cb->fd) != 0) daemon_log(LOG_ERR, "close fd=%d: %s", cb->fd, strerror(errno));
        *link = cb->next;
        std::free(cb);
        result.closed = true;
    }
    tail = link;
    return result;
}

/* A descriptor that somebody else has closed would make every select fail at once, for ever. Its
 * owner may still hold the record, so that it is parked and not removed. */
void park_closed_descriptors() {
    for (fd_callback *cb = g_cb_list; cb; cb = cb->next) {
        if (cb->type == FD_CALLBACK_PARKED || fcntl(cb->fd, F_GETFD) >= 0) continue;
        daemon_log(LOG_ERR, "fd=%d: %s, no longer watched", cb->fd, strerror(errno));
        cb->type = FD_CALLBACK_PARKED;
    }
}

void call_time_callbacks() {
    for (fd_callback *cb : removal_safe(g_timecb_list))
        if (cb->state != FD_CALLBACK_FINISHED) cb->cb(-1, cb->data);
    remove_finished(&g_timecb_list, g_timecb_tail, nullptr);
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

/* How long the next select may wait: null for ever. */
timeval *next_wait(timeval &wait) {
    wait = {};
    if (g_work_left) return &wait;
    if (!g_timers) return nullptr;
    int64_t left = std::clamp<int64_t>(g_timers->due - loop_now(), 0, k_longest_wait);
    wait.tv_sec = static_cast<time_t>(left / k_milliseconds);
    wait.tv_usec = static_cast<suseconds_t>(left % k_milliseconds * k_microseconds);
    return &wait;
}

/* Everything behind a wait that found something or was short; wanted is what to wait for next. True
 * when the loop is over. */
bool serve(const watch_sets &sets, int ready, watch_sets &wanted) {
    dispatch(sets, ready);
    call_due_timers();
    if (g_sweep) g_sweep();
    wanted = {};
    removal result = remove_finished(&g_cb_list, g_cb_tail, &wanted);
    if (result.stopped) return true;
    if (!g_cb_list) {
        daemon_log(LOG_NOTICE, "loop: no more sockets to listen, returning");
        return true;
    }
    if (result.closed && g_closed) {
        g_closed(); /* which may have changed what is waited for */
        wanted = collect();
    }
    return false;
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
    if (!cb || cb->fd < 0 || cb->fd >= FD_SETSIZE || g_stopping) {
        errno = !cb ? EINVAL : cb->fd < 0 ? EBADF : g_stopping ? ECANCELED : EMFILE;
        return -1;
    }
    append(g_cb_tail, cb);
    return 0;
}

void loop_del_callback(fd_callback *cb) {
    unlink_and_free(&g_cb_list, g_cb_tail, cb);
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
    unlink_and_free(&g_timecb_list, g_timecb_tail, cb);
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
        cb->state = FD_CALLBACK_FINISHED;
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
    watch_sets wanted = collect();
    for (;;) {
        if (g_before_wait) g_before_wait();
        watch_sets sets = wanted;
        timeval wait;
        timeval *limit = next_wait(wait);
        g_work_left = false;
        int ready = select(sets.highest + 1, &sets.read, &sets.write, nullptr, limit);
        if (ready == 0) call_time_callbacks();
        if (ready >= 0) {
            if (serve(sets, ready, wanted)) break;
            continue;
        }
        if (errno == EBADF) park_closed_descriptors();
        wanted = collect();
    }
    g_stopping = false;
}

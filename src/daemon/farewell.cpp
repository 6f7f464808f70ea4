#include "daemon/farewell.h"

#include <errno.h>
#include <sys/socket.h>

#include <cstdlib>
#include <utility>

#include "daemon/loop.h"
#include "session/limits.h"
#include "session/session.h"
#include "ucfgd/databuf.h"
#include "ucfgd/owners.h"
#include "ucfgd/slist.h"

namespace {

constexpr int64_t k_milliseconds = 1000;

/* What a client that is dismissed may still send: many times what it was dismissed for. */
constexpr size_t k_drained_most = size_t{128} << 20;

struct farewell {
    farewell *next;
    databuf *output;
    fd_callback *out; /* the loop's */
    fd_callback *in;  /* the loop's, of a client that is still sending; null for others */
    size_t drained;
    int64_t due; /* loop_now when patience ends */
};

/* The oldest first. */
farewell *g_farewells = nullptr;
loop_timer g_timer;

void finish(fd_callback *cb) {
    if (!cb) return;
    loop_finish(cb);
    cb->data = nullptr;
}

void end(farewell *last) {
    g_farewells = slist_unlink(g_farewells, last);
    finish(last->out);
    finish(last->in);
    destroy_databuf(last->output);
    std::free(last);
}

bool would_wait() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

int send_some(int fd, void *data) {
    auto *last = static_cast<farewell *>(data);
    if (!last) return -1;
    const int sent = databuf_sendout(last->output, fd);
    const bool later = sent < 0 && would_wait();
    if (later || (sent > 0 && databuf_pending(last->output) > 0)) return 0;
    if (sent < 0 || !last->in) {
        end(last);
        return -1;
    }
    shutdown(fd, SHUT_WR);
    loop_watch(last->out, FD_CALLBACK_PARKED);
    return 0;
}

/* A connection that is closed with something unread is reset, and its client loses what it has not
 * read either. */
int drain_some(int fd, void *data) {
    auto *last = static_cast<farewell *>(data);
    if (!last) return -1;
    static char nobodys[65536];
    const ssize_t got = recv(fd, nobodys, sizeof nobodys, MSG_DONTWAIT);
    if (got < 0 && would_wait()) return 0;
    if (got > 0 && (last->drained += static_cast<size_t>(got)) < k_drained_most) return 0;
    if (got != 0 || databuf_pending(last->output) == 0) {
        end(last);
        return -1;
    }
    finish(std::exchange(last->in, nullptr));
    return 0;
}

void end_late(void *) {
    while (g_farewells && g_farewells->due <= loop_now()) {
        limit_met(k_limit_farewell_time, "closing a connection that does not take its output");
        end(g_farewells);
    }
    if (g_farewells)
        loop_set_timer(&g_timer, static_cast<long>(g_farewells->due - loop_now()), end_late,
                       nullptr);
}

fd_callback *adopt(fd_callback *&registration, int type, int (*callback)(int, void *),
                   farewell *last) {
    fd_callback *cb = std::exchange(registration, nullptr);
    if (!cb) return nullptr;
    cb->cb = callback;
    cb->data = last;
    loop_watch(cb, type);
    return cb;
}

void take(ccd_session *session, bool still_sends) {
    const long patience = limit_value(k_limit_farewell_time);
    if (!session->fdcb_out || databuf_pending(session->outbuf) == 0 || patience == 0) return;
    auto *last = static_cast<farewell *>(std::calloc(1, sizeof(farewell)));
    if (!last) return;
    last->output = std::exchange(session->outbuf, nullptr);
    last->out = adopt(session->fdcb_out, FD_CALLBACK_WRITE, send_some, last);
    if (still_sends) last->in = adopt(session->fdcb_in, FD_CALLBACK_READ, drain_some, last);
    last->due = loop_now() + patience * k_milliseconds;
    g_farewells = slist_append(g_farewells, last);
    if (g_timer.due == 0) loop_set_timer(&g_timer, patience * k_milliseconds, end_late, nullptr);
}

}  // namespace

void farewell_take(ccd_session *session) {
    take(session, false);
}

void farewell_dismiss(ccd_session *session) {
    take(session, true);
}

long farewell_count() {
    long count = 0;
    for (const farewell *last = g_farewells; last; last = last->next)
        count++;
    return count;
}

bool farewell_drop_oldest() {
    if (!g_farewells) return false;
    limit_met(k_limit_connections, "closing a connection that only takes its last output");
    end(g_farewells);
    return true;
}

#include "daemon/farewell.h"

#include <errno.h>

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

struct farewell {
    farewell *next;
    databuf *output;
    fd_callback *cb; /* the loop's */
    int64_t due;     /* loop_now when patience ends */
};

/* The oldest first. */
farewell *g_farewells = nullptr;
loop_timer g_timer;

void end(farewell *last) {
    g_farewells = slist_unlink(g_farewells, last);
    loop_finish(last->cb);
    last->cb->data = nullptr;
    destroy_databuf(last->output);
    std::free(last);
}

int send_some(int fd, void *data) {
    auto *last = static_cast<farewell *>(data);
    if (!last) return -1;
    const int sent = databuf_sendout(last->output, fd);
    const bool later = sent < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
    if (later || (sent > 0 && databuf_pending(last->output) > 0)) return 0;
    end(last);
    return -1;
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

}  // namespace

void farewell_take(ccd_session *session) {
    const long patience = limit_value(k_limit_farewell_time);
    if (!session->fdcb_out || databuf_pending(session->outbuf) == 0 || patience == 0) return;
    auto *last = static_cast<farewell *>(std::calloc(1, sizeof(farewell)));
    if (!last) return;
    last->output = std::exchange(session->outbuf, nullptr);
    last->cb = std::exchange(session->fdcb_out, nullptr);
    last->cb->cb = send_some;
    last->cb->data = last;
    loop_watch(last->cb, FD_CALLBACK_WRITE);
    last->due = loop_now() + patience * k_milliseconds;
    g_farewells = slist_append(g_farewells, last);
    if (g_timer.due == 0) loop_set_timer(&g_timer, patience * k_milliseconds, end_late, nullptr);
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

#include "daemon/connection.h"

#include <errno.h>
#include <libdaemon/daemon.h>
#include <syslog.h>

#include <cstdio>
#include <cstring>

#include "daemon/farewell.h"
#include "daemon/log.h"
#include "daemon/loop.h"
#include "daemon/memory.h"
#include "daemon/trace.h"
#include "session/session.h"

namespace {

constexpr int k_trace_everything = 5;

bool would_wait() {
    return errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR;
}

int pending_output(const ccd_session *session) {
    return session->outbuf ? databuf_pending(session->outbuf) : 0;
}

void log_connection_closed(const ccd_session *session, int fd) {
    log_protocol_f("X(%d): Connection closed from listen/%s\n", fd,
                   session->listenname ? session->listenname : "");
}

/* Input that the backlog had stopped is read again once the client has taken enough of it. A locked
 * session is left to the job that holds it, one whose lines wait for their turn to that turn: were
 * its end of input read before, the lines would go with the session. */
void reenable_input(ccd_session *session) {
    int osize = pending_output(session);
    fd_callback *in = session->fdcb_in;
    if (!in || osize >= k_session_output_limit || (in->type & FD_CALLBACK_READ) ||
        (session->flags & k_session_locked) || session->stalled || session->login_ticket != 0)
        return;
    trace(3, "reenabling input osize=%d\n", osize);
    loop_watch(in, FD_CALLBACK_READ);
}

/* Sends what the socket takes. A socket that takes nothing now stays watched; -1 when the
 * connection was given up. */
int send_pending(ccd_session *session, int fd) {
    int pending = pending_output(session);
    if (pending > 0) {
        int sent = session_flushout(session, fd);
        if (sent < 1 && !(sent < 0 && would_wait())) {
            daemon_log(LOG_ERR, "session_flushout() failed: %s; closing session", strerror(errno));
            close_session(session);
            return -1;
        }
        if (sent == pending) loop_watch(session->fdcb_out, FD_CALLBACK_PARKED);
    }
    reenable_input(session);
    return 0;
}

/* Replies leave at once, which saves a round through the loop; only what the socket does not take
 * waits for the write side. A session that the input has ended goes as soon as its last reply is
 * out. */
int reply_at_once(ccd_session *session) {
    if (!session->fdcb_out || pending_output(session) == 0) return 0;
    if (send_pending(session, session->fdcb_out->fd) != 0) return -1;
    if (session->state != k_session_logout || pending_output(session) > 0) return 0;
    session_discard(session);
    return -1;
}

int end_of_input(ccd_session *session, int fd, int received) {
    if (received == 0)
        daemon_log(LOG_NOTICE, "client closed connection");
    else
        daemon_log(LOG_ERR, "session_flushin() failed: %s; closing session", strerror(errno));
    log_connection_closed(session, fd);
    if (received == 0) farewell_take(session);
    close_session(session);
    return -1;
}

int dismiss(ccd_session *session) {
    farewell_dismiss(session);
    close_session(session);
    return -1;
}

int process_input(ccd_session *session) {
    if (session->flags & k_session_locked) {
        trace(4, "session is locked\n");
        return 0;
    }
    if (session->type == 0) session->type = 1;
    memory_give_back_later();
    session_process_input(session);
    if (session->refused) return dismiss(session);
    return reply_at_once(session);
}

}  // namespace

int read_callback(int fd, void *data) {
    auto *session = static_cast<ccd_session *>(data);
    if (!session || !session->inbuf) return -1;
    session_timeout_check_all(session);
    int received = session_flushin(session, fd);
    int result = 0;
    if (received > 0)
        result = process_input(session);
    else if (received == 0 || !would_wait())
        result = end_of_input(session, fd, received);
    if (g_debug_level >= k_trace_everything) session_dump_all(session);
    return result;
}

int write_callback(int fd, void *data) {
    auto *session = static_cast<ccd_session *>(data);
    if (!session || !session->fdcb_out) return -1;
    if (session->refused) return dismiss(session);
    if (send_pending(session, fd) != 0) return -1;
    if (session->state != k_session_logout) return 0;
    farewell_take(session);
    session_discard(session);
    return -1;
}

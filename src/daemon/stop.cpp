#include "daemon/stop.h"

#include <libdaemon/daemon.h>
#include <syslog.h>

#include "daemon/listen.h"
#include "daemon/loop.h"
#include "daemon/notify.h"
#include "session/bgexec.h"
#include "session/limits.h"
#include "session/session.h"
#include "ucfgd/databuf.h"
#include "ucfgd/owners.h"

namespace {

constexpr long k_milliseconds = 1000;

loop_timer g_patience;

/* Running or in line, its client waits for an answer. */
bool has_commit(const ccd_session *session) {
    for (const bgexec_ctx *job = g_bgexec_ctx_list; job; job = job->next)
        if (job->writes && job->session == session) return true;
    return false;
}

bool has_answer(const ccd_session *session) {
    return session->fdcb_out && databuf_pending(session->outbuf) > 0;
}

void patience_is_over(void *) {
    if (const bgexec_ctx *job = bgexec_running_writer())
        limit_met(k_limit_stop_time, "the commit of process %ld goes on alone",
                  static_cast<long>(job->pid));
    loop_finish_all();
}

/* The pipes of jobs and the signal pipe stay, for the end of the commit to be seen. */
void close_the_house() {
    for (fd_callback *cb = g_cb_plain; cb; cb = cb->next_marked)
        if (cb->cb == listen_callback) cb->state = FD_CALLBACK_FINISHED;
    for (ccd_session *session : removal_safe(g_session_list))
        if (!has_commit(session)) session_discard(session);
}

}  // namespace

void stop_begin(void) {
    notify_stopping();
    const bgexec_ctx *commit = bgexec_running_writer();
    const long patience = limit_value(k_limit_stop_time);
    if (loop_stopping() || !commit || patience == 0) {
        loop_clear_timer(&g_patience);
        loop_finish_all();
        return;
    }
    daemon_log(LOG_NOTICE, "waiting for the commit of process %ld", static_cast<long>(commit->pid));
    loop_stop();
    close_the_house();
    loop_set_timer(&g_patience, patience * k_milliseconds, patience_is_over, nullptr);
}

void stop_go_on(void) {
    if (!loop_stopping() || bgexec_running_writer()) return;
    for (const ccd_session *session = g_session_list; session; session = session->next)
        if (has_answer(session)) return;
    loop_clear_timer(&g_patience);
    loop_finish_all();
}

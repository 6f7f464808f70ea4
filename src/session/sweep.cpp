/* What happens between two dispatch passes, when no callback holds a session. */

#include "session/bgexec.h"
#include "session/commit.h"
#include "session/login_gate.h"
#include "session/restore.h"
#include "session/session.h"
#include "session/turns.h"
#include "ucfgd/owners.h"

namespace {

void close_those_without_replies() {
    for (ccd_session *session = g_session_list; session; session = session->next)
        if (session->output_lost && session->inbuf) close_session(session);
}

void destroy_discarded() {
    for (ccd_session *session : removal_safe(g_session_list)) {
        if (!session->discarded) continue;
        remove_session(session);
        destroy_session(session);
    }
}

}  // namespace

int session_wait_bg(void) {
    bgexec_reap();
    restore_next();
    session_commit_next();
    return 0;
}

void session_sweep(void) {
    bgexec_resume_output();
    login_gate_sweep();
    if (g_session_sweep_needed) {
        g_session_sweep_needed = 0;
        turn_round();
        close_those_without_replies();
        session_bound_suspended();
        destroy_discarded();
    }
    turn_end_round();
}

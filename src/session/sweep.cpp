/* What happens between two dispatch passes, when no callback holds a session. */

#include "session/bgexec.h"
#include "session/commit.h"
#include "session/session.h"
#include "ucfgd/owners.h"

namespace {

/* A session whose output is still too much stays stalled: session_process_input marks it again. */
void go_on_with_input(void) {
    for (ccd_session *session : removal_safe(g_session_list)) {
        if (session->stalled && !session->discarded) session_process_input(session);
    }
}

}  // namespace

int session_wait_bg(void) {
    bgexec_reap();
    session_commit_next();
    go_on_with_input();
    return 0;
}

void session_sweep(void) {
    bgexec_resume_output();
    if (!g_session_sweep_needed) return;
    g_session_sweep_needed = 0;
    go_on_with_input();
    for (ccd_session *session : removal_safe(g_session_list)) {
        if (!session->discarded) continue;
        remove_session(session);
        destroy_session(session);
    }
}

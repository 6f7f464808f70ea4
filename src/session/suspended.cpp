/* The bounds of what stays behind when connections go. */

#include <libdaemon/dlog.h>

#include "session/limits.h"
#include "session/session.h"

namespace {

struct tally {
    long sessions = 0;
    size_t bytes = 0;
    ccd_session *oldest = nullptr;
};

/* Without a connection nothing edits the session's trees, so that they are measured once; what a
 * commit of it gives back when it ends is counted a little longer. */
size_t size_of(ccd_session *session) {
    if (session->holds == 0) {
        session->holds = sizeof(*session);
        if (session->backend_ctx != g_trns_ctx)
            session->holds += trns_ctx_size(session->backend_ctx);
    }
    return session->holds;
}

tally count_suspended() {
    tally all;
    for (ccd_session *session = g_session_list; session; session = session->next) {
        if (session->left == 0 || session->discarded) continue;
        all.sessions++;
        all.bytes += size_of(session);
        if (!all.oldest || session->left < all.oldest->left) all.oldest = session;
    }
    return all;
}

bool meets(limit_id id, size_t amount, const ccd_session *oldest) {
    if (amount <= static_cast<size_t>(limit_value(id))) return false;
    limit_met(id, "session of user '%s' ended without its connection, with its changes",
              oldest->username ? oldest->username : "");
    return true;
}

}  // namespace

void session_bound_suspended(void) {
    for (;;) {
        const tally all = count_suspended();
        if (!all.oldest) return;
        if (!meets(k_limit_suspended_sessions, static_cast<size_t>(all.sessions), all.oldest) &&
            !meets(k_limit_suspended_memory, all.bytes, all.oldest)) {
            return;
        }
        session_discard(all.oldest);
    }
}

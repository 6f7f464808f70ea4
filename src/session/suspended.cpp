/* The bounds of what stays behind when connections go. */

#include <algorithm>
#include <new>
#include <vector>

#include "session/limits.h"
#include "session/session.h"

namespace {

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

bool is_suspended(const ccd_session *session) {
    return session->left != 0 && !session->discarded;
}

/* Those without a connection, the oldest first; without the memory for all of them only the first
 * few of the list. */
std::vector<ccd_session *> all_suspended() {
    std::vector<ccd_session *> all;
    try {
        for (ccd_session *session = g_session_list; session; session = session->next)
            if (is_suspended(session)) all.push_back(session);
    } catch (const std::bad_alloc &) {
        g_session_sweep_needed = 1;
    }
    std::ranges::sort(all, {}, &ccd_session::left);
    return all;
}

bool is_beyond(limit_id id, size_t amount) {
    return amount > static_cast<size_t>(limit_value(id));
}

bool meets(limit_id id, size_t amount, const ccd_session *oldest) {
    if (!is_beyond(id, amount)) return false;
    limit_met(id, "session of user '%s' ended without its connection, with its changes",
              oldest->username ? oldest->username : "");
    return true;
}

}  // namespace

void session_bound_suspended(void) {
    size_t sessions = 0;
    size_t bytes = 0;
    for (ccd_session *session = g_session_list; session; session = session->next) {
        if (!is_suspended(session)) continue;
        sessions++;
        bytes += size_of(session);
    }
    if (!is_beyond(k_limit_suspended_sessions, sessions) &&
        !is_beyond(k_limit_suspended_memory, bytes))
        return;
    for (ccd_session *oldest : all_suspended()) {
        if (!meets(k_limit_suspended_sessions, sessions, oldest) &&
            !meets(k_limit_suspended_memory, bytes, oldest))
            return;
        sessions--;
        bytes -= size_of(oldest);
        session_discard(oldest);
    }
}

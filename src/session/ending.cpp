/* How sessions end: the idle rule, termination, and what a terminated one is told. */

#include <cerrno>
#include <cstdlib>

#include "daemon/trace.h"
#include "hlxauth/hlxauth.h"
#include "session/bgexec.h"
#include "session/login.h"
#include "session/protocol.h"
#include "ucfgd/owners.h"
#include "ucfgd/uptime.h"

namespace {

const char *reason_name(int reason) {
    switch (reason) {
        case k_reason_logout:
            return "LOGOUT";
        case k_reason_forced:
            return "FORCED";
        case k_reason_timeout:
            return "TIMEOUT";
        default:
            return "unknown";
    }
}

const char *text_or_empty(const char *text) {
    return text ? text : "";
}

/* While the AAA store knows the session, its own life time governs. Once it does not, the ordinary
 * limit does, from the next check on. A store that another program holds has said nothing. */
void check_aaa_identifier(ccd_session *session) {
    const int status = hlx_auth_session_sid_check(session->hlxaaa_sid);
    if (status == HLX_AUTH_SID_VALID) return;
    if (status == HLX_AUTH_SID_ERR && errno == ETIMEDOUT) return;
    trace(4, "HLX AAA session %s is no longer valid\n", session->hlxaaa_sid);
    free(session->hlxaaa_sid);
    session->hlxaaa_sid = nullptr;
}

}  // namespace

void session_terminate_with_reason(ccd_session *session, int reason) {
    bgexec_hang_up(session);
    session->state = k_session_logout;
    session->state_reason = reason;
    session->last_action = request_time;
    trace(4, "session %s terminated with reason %s\n", text_or_empty(session->sessionid),
          reason_name(reason));
}

void session_writef_logout_reason(ccd_session *session, const char *id) {
    switch (session->state_reason) {
        case k_reason_forced:
            session_writef(session, "%s INUSE you have been logged out\n", id);
            break;
        case k_reason_timeout:
            session_writef(session, "%s NO timed out\n", id);
            break;
        default:
            session_writef(session, "%s NO logged out\n", id);
    }
}

void session_timeout_check(ccd_session *session) {
    if (session->state == k_session_logout) return;
    if (session->hlxaaa_sid) {
        check_aaa_identifier(session);
        return;
    }
    if ((session->flags & k_session_locked) != 0 || session->last_action == 0) return;
    const long idle = request_time - session->last_action;
    if (idle <= session->timeout) return;
    trace(4, "user %s SESSION %s timed out due to inactivity (idle=%lu, timeout=%i)\n",
          text_or_empty(session->username), text_or_empty(session->sessionid),
          static_cast<unsigned long>(idle), session->timeout);
    session_terminate_with_reason(session, k_reason_timeout);
}

void session_timeout_check_all(ccd_session *current) {
    static long previous = 0;
    request_time = get_uptime();
    if (request_time == previous) return;
    previous = request_time;
    for (ccd_session *session : removal_safe(g_session_list)) {
        if (session->discarded) continue;
        if (session->state != k_session_logout) {
            session_timeout_check(session);
        } else if (session != current && request_time - session->last_action > g_session_timeout) {
            session_discard(session);
        }
    }
}

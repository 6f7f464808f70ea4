#ifndef UCFGD_SESSION_LOGIN_GATE_H
#define UCFGD_SESSION_LOGIN_GATE_H

#include "session/session.h"

/* When a log-in may be tried, and what becomes of those that were refused.
 *
 * A password costs its hash, and nothing else is done meanwhile. So all sessions together try one
 * log-in a round of the loop, and between two of them everybody's requests have their turn. Who was
 * refused waits before the next one: not the connection, of which there can be many, but the peer,
 * which is the user at the other end of a local socket, or the address of the other end. A session
 * that has to wait keeps its line and all behind it; its turn comes in the order of the waiting.
 *
 * Refusals are logged and emitted as events one by one only as long as a peer makes few of them in
 * a minute. Then they are counted, and one line and one event tell how many there were. */

#ifdef __cplusplus
extern "C" {
#endif

/* Whether the session may try a log-in now; this round's try is its own then. Otherwise it waits,
 * and login_gate_sweep goes on with its input. */
int login_gate_pass(ccd_session *session);

/* Whether the refusals of the session's peer are only counted at present. */
int login_gate_is_quiet(const ccd_session *session);

/* Delays the peer's next log-in; ends the session with its reply when it was refused too often. */
void login_gate_refuse(ccd_session *session);

/* Logs and emits a refusal, or counts it. */
void login_gate_report(const ccd_session *session, const char *user);

/* Gives one waiting session its try, and begins the next round. For the sweep. */
void login_gate_sweep(void);

/* Tells of what was only counted so far, before the end. */
void login_gate_finish(void);

#ifdef __cplusplus
}
#endif

#endif

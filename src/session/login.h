#ifndef UCFGD_SESSION_LOGIN_H
#define UCFGD_SESSION_LOGIN_H

#include "session/session.h"

/* How a session is logged in, resumed and terminated.
 *
 * Handlers (session_process_...) take the tag and the unparsed arguments, as protocol.h says, and
 * write their reply. They return 0 unless it says otherwise.
 */

#ifdef __cplusplus
extern "C" {
#endif

enum { k_sessionid_size = 17 }; /* 16 hexadecimal digits and a NUL */

int session_process_noop(ccd_session *session, const char *id, const char *args);

/* LOGIN, or LOGINFORCE with force: the latter terminates every other session that may write. */
int session_process_login(ccd_session *session, const char *id, const char *args, int force);

/* Returns -1. */
int session_process_logout(ccd_session *session, const char *id, const char *args);

/* Moves a suspended session, with its job and lock, into the session that asks. */
int session_process_resume(ccd_session *session, const char *id, const char *args);

/* Puts a session into the logged-in state: a new identifier, the user and the permission bits, a
 * fresh view of the files, and for a writer a private transaction context. Returns 0; -1 with errno
 * when there is no identifier or no memory to be had, and then the session is as it was. */
int session_login(ccd_session *session, const char *id, const char *user, int perms);

/* Makes a session identifier from the system's random source: buffer receives 16 lower-case
 * hexadecimal digits and a NUL. Returns 0; -1 with errno when there is no randomness. */
int create_sessionid(char *buffer);

/* Ends a session for one of the reasons of session.h. The record lingers. */
void session_terminate_with_reason(ccd_session *session, int reason);

/* Writes why the session cannot be used any more. */
void session_writef_logout_reason(ccd_session *session, const char *id);

#ifdef __cplusplus
}
#endif

#endif

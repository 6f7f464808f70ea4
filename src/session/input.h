#ifndef UCFGD_SESSION_INPUT_H
#define UCFGD_SESSION_INPUT_H

#include "session/session.h"

/* What framing needs to know about the input buffer. The session has one (it is not closed). */

#ifdef __cplusplus
extern "C" {
#endif

/* Drops the control characters, but not the newlines, of what arrived since the last call. */
void session_filter_input(ccd_session *session);

/* Takes the session's turn: executes lines until it is over. What session_process_input does when
 * nobody else comes first. */
int session_take_turn(ccd_session *session);

/* Whether the line is a request to log in. */
int session_is_login(const char *text);

/* Gives back the storage of lines that have been consumed. */
void session_settle_input(ccd_session *session);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_SESSION_COMMIT_H
#define UCFGD_SESSION_COMMIT_H

#include "session/session.h"

/* Writing a session's changes to the real files, and what a client may ask about its context.
 *
 * Handlers take the tag and the unparsed arguments, as protocol.h says, write their reply and
 * return 0.
 */

#ifdef __cplusplus
extern "C" {
#endif

/* Starts the commit in a child and locks the session until it has ended. While another session's
 * commit runs, it waits, locked, for that one to complete. */
int session_process_commit(ccd_session *session, const char *id, const char *args);

/* Takes up a commit that waits, if none runs; called after jobs have completed. */
void session_commit_next(void);

/* Takes up what a commit, or the putting back behind it, has left in the files: the trees are read
 * again. The session, which may be null, gets its answer, OK for error 0, and is unlocked. */
void session_commit_end(ccd_session *session, const char *id, int error);

int session_process_current(ccd_session *session, const char *id, const char *args);
int session_process_update(ccd_session *session, const char *id, const char *args);
int session_process_dirty(ccd_session *session, const char *id, const char *args);
int session_process_revert(ccd_session *session, const char *id, const char *args);

#ifdef __cplusplus
}
#endif

#endif

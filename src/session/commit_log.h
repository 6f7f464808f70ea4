#ifndef UCFGD_SESSION_COMMIT_LOG_H
#define UCFGD_SESSION_COMMIT_LOG_H

#include "session/session.h"

/* What a commit has changed, for the log: one line for the commit and one for each parameter, with
 * the user and a mark of the session. Both functions are for the child of the commit, and do
 * nothing unless the main configuration asks for them. */

#ifdef __cplusplus
extern "C" {
#endif

/* From the main configuration, "log-changes: yes". */
extern int g_log_changes;

/* Before the session's edits are taken over: compares them with what is committed. */
void commit_log_look(ccd_session *session);

/* Once the commit has succeeded. */
void commit_log_tell(const ccd_session *session);

#ifdef __cplusplus
}
#endif

#endif

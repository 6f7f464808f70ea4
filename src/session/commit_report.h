#ifndef UCFGD_SESSION_COMMIT_REPORT_H
#define UCFGD_SESSION_COMMIT_REPORT_H

#include "session/session.h"

/* What the child of a commit and the daemon tell each other beyond the exit status: who commits,
 * for the archive; and why a commit failed, in words. Commits run one at a time, so there is one of
 * each. */

#ifdef __cplusplus
extern "C" {
#endif

/* Before the fork: forgets what an earlier child has left. */
void commit_report_begin(void);

/* In the child: names the session as the author of what is committed now. */
void commit_report_author(const ccd_session *session);

/* In the child, at its end: leaves the error record, cut to what a reply holds, to the daemon. */
void commit_report_leave(void);

/* In the daemon: makes what the child has left the error record. 1; 0 when it left none. */
int commit_report_take(void);

#ifdef __cplusplus
}
#endif

#endif

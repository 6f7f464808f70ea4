#ifndef UCFGD_SESSION_RESTORE_H
#define UCFGD_SESSION_RESTORE_H

#include "session/bgexec.h"

/* Putting files back without anybody's asking: after a commit whose child was killed, after one
 * that could not put them back itself, and when a trial is over. It happens in a child, like a
 * commit, and no commit runs beside it. */

#ifdef __cplusplus
extern "C" {
#endif

/* When the loop begins: goes on with what the start has left. */
void restore_begin(void);

/* Puts back after a commit that failed with that error number. The job's session stays locked; when
 * the files are back, or could not be put back, session_commit_end answers it. False when no child
 * could be started: then it is tried again later, and the caller answers. */
bool restore_after(const bgexec_ctx *commit, int error);

/* Asks for a child as soon as none runs that writes files. */
void restore_demand(void);

/* Starts the child that was asked for, if it may run; called after jobs have completed. */
void restore_next(void);

/* Whether a commit is open whose child has ended, when none runs. */
bool restore_is_needed(void);

/* What the client is told of an attempt that failed and is made again: " since TIME, which failed:
 * REASON; tried again in N seconds". Empty when none has failed. */
const char *restore_trouble(void);

/* Whether an interrupted commit still waits to be put back, so that no other may begin. */
bool restore_is_owed(void);

#ifdef __cplusplus
}
#endif

#endif

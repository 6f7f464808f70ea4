#ifndef UCFGD_SESSION_TRIAL_H
#define UCFGD_SESSION_TRIAL_H

#include "session/session.h"

/* What the daemon knows of the commit on trial, and when it ends. The archive has the truth, which
 * children change: they commit, confirm and cancel. So the daemon looks there whenever a child has
 * ended that may have done so. */

#ifdef __cplusplus
extern "C" {
#endif

/* Reads from the archive whether a trial runs, and sets the timer of its end. */
void trial_look(void);

/* An action has ended, which may have confirmed or cancelled: then the trees are read again. */
void trial_action_ended(void);

/* Whether a session's commit has to wait for the end of a trial; then the error record says whose
 * trial it is, how many seconds are left, and until when, or what keeps it from being undone. A
 * session joins a trial of its own user by an order for one. */
bool trial_refuses(const ccd_session *session);

/* The running trial's newest commit, who made it, and the milliseconds that are left, 0 while it is
 * being undone. False when no trial runs. */
typedef struct trial_view {
    long number;
    const char *user; /* borrowed until the next look */
    int64_t left;
} trial_view;
bool trial_running(trial_view *view);

#ifdef __cplusplus
}
#endif

#endif

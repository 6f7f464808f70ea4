#ifndef UCFGD_ARCHIVE_TRIALS_H
#define UCFGD_ARCHIVE_TRIALS_H

#ifndef __cplusplus
#    error "trials.h is for C++ sources"
#endif

#include <stdint.h>

#include <string>
#include <vector>

#include "archive/record.h"

/* Commits on trial: in effect, and undone by themselves unless somebody confirms in time.
 *
 *  1. The time runs on the clock that nobody sets (loop_now), so it goes on while the machine
 * sleeps and while the daemon is down. A reboot ends it: the clock's boot is part of the record.
 *  2. Commits that join a running trial share its end: they are confirmed and undone together.
 *  3. Whoever confirms and whoever undoes hold the archive's lock, so that one of them comes too
 *     late and is told so. They may be different processes.
 *  4. Functions return 0, or -1 with errno: ENOENT when no trial runs, EAGAIN when another process
 *     has held the lock for too long, EALREADY when the trial is being undone already: one of its
 *     commits is, and the others could not be, as yet.
 *  5. While a trial runs no commit is done for good: behind the newest that is, none is on trial.
 */

/* What the running trial is; empty without one. The oldest commit stands first. */
std::vector<commit_record> trial_commits(void);

/* Milliseconds until it ends: 0 when its time is over or belongs to another boot, -1 when no trial
 * runs. */
int64_t trial_left(void);

/* Marks the record of a new commit as one on trial for so many seconds from now. */
void trial_begin(commit_record &record, long seconds);

/* Gives the commits of the running trial a new end, so many seconds from now. */
int trial_extend(long seconds);

/* The commits of the trial are for good. */
int trial_confirm(void);

/* Undoes the commits of the trial, the newest first; those whose files could not all be put back
 * stay on trial, so that it can be tried again. The records of those that were undone go to
 * `undone`. */
int trial_undo(std::vector<commit_record> &undone);

/* What can be done of that before the modules are known: the files. The commits stay on trial.
 * Waits so many milliseconds at most for whoever holds the archive. */
int trial_put_back_files(long milliseconds);

#endif

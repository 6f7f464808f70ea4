#ifndef UCFGD_SESSION_COUNTERS_H
#define UCFGD_SESSION_COUNTERS_H

#ifndef __cplusplus
#    error "counters.h is for C++ sources"
#endif

#include <ctime>

/* What has happened since the daemon's start, for daemoncount(). Counted in the daemon itself,
 * never in a child. */
struct daemon_counters {
    unsigned long commits = 0;         /* of edits, that succeeded */
    unsigned long failed_commits = 0;  /* that had begun to write */
    unsigned long refused_commits = 0; /* for a conflict, a trial, or edits that no file can hold */
    unsigned long refused_logins = 0;
    time_t last_commit = 0; /* by the wall clock, 0 before the first */
};

inline daemon_counters g_counters;

#endif

#ifndef UCFGD_SESSION_COMMIT_WATCH_H
#define UCFGD_SESSION_COMMIT_WATCH_H

#ifndef __cplusplus
#    error "commit_watch.h is for C++ sources"
#endif

/* In the child of an action: writes one line for each commit from that number on, 0 for those that
 * are still to come, and stays until the client has gone. A line is the number, the user, the state
 * in which the commit ended, and its files. 0; -1 with errno when commits cannot be watched. */
int watch_commits(long from);

#endif

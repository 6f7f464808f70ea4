#ifndef UCFGD_DAEMON_RELOAD_H
#define UCFGD_DAEMON_RELOAD_H

/* Reading the daemon's own files again while it runs. */

struct options;

/* Keeps what of the command line a check needs. Throws std::bad_alloc. */
void reload_keep_options(const options &given);

/* For SIGHUP: checks the files in a child and, when nothing is wrong, takes them up as soon as no
 * commit runs or waits. What came of it is logged, and told by the function reloadstatus. While one
 * reload is under way another is remembered. */
void reload_begin(void);

#endif

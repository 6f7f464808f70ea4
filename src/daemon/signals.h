#ifndef UCFGD_DAEMON_SIGNALS_H
#define UCFGD_DAEMON_SIGNALS_H

#ifdef __cplusplus
extern "C" {
#endif

/* Makes libdaemon's signal pipe for every signal that the daemon acts on. Whatever the daemon was
 * started with, it ignores SIGPIPE and leaves all others to the system. Returns 0; otherwise errno
 * tells why not. */
int signals_install(void);

/* In a child: default handlers for all signals. */
void signals_reset(void);

/* Acts on every pending signal; a callback of the loop on the signal pipe, without data. Returns 0.
 */
int signal_callback(int fd, void *data);

#ifdef __cplusplus
}
#endif

#endif

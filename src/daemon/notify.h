#ifndef UCFGD_DAEMON_NOTIFY_H
#define UCFGD_DAEMON_NOTIFY_H

#ifdef __cplusplus
extern "C" {
#endif

/* Tells the service manager how far the daemon is, where one asks to be told: it names a datagram
 * socket in the environment variable NOTIFY_SOCKET. Without one nothing is sent.
 *
 * What is sent is a few lines of text; nobody waits for the manager, and what it does not take is
 * lost. errno stays as it was.
 */

/* Takes the manager's words out of the environment: they are not for the commands that are run. */
void notify_begin(void);

/* Connections are taken from now on; also the end of a reload. Begins to answer the watchdog, if
 * there is one. */
void notify_ready(void);

/* The configuration is being read anew; notify_ready ends that. */
void notify_reloading(void);

/* The daemon is about to end. */
void notify_stopping(void);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_DAEMON_LISTEN_H
#define UCFGD_DAEMON_LISTEN_H

/* Listening sockets, and the way from a connection to a session.
 *
 *  1. Descriptors that are handed out belong to the caller until they are registered.
 *  2. What cannot be opened at start-up ends the daemon with status 1, after one log line, unless
 * the function says otherwise; the PID file is removed before.
 *  3. Sockets are closed in programs that the daemon starts.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;

/* Opens and registers every listener of the section, one a child, and then the signal pipe. Entries
 * that name no type, an unknown one, or TLS are skipped. Returns 0. The section must live as long
 * as the loop runs. */
int listen_setup(const struct cnfnode *section);

/* Not 0 for a type of listeners. */
int listen_knows_type(const char *type);

/* Goes by another listen section from now on; null is one without listeners. How clients log in is
 * what it says; listeners that are not in it are closed. What would take a new socket is logged and
 * waits for the next start. The section must live as long as the one before. */
void listen_take_up(struct cnfnode *section);

/* A local socket at path (under the root prefix) with these permission bits; what is there is
 * replaced. */
int listen_sock_un(const char *path, int mode);

/* An IPv4 socket on an address and a decimal port. */
int listen_sock_in(const char *ip, const char *port);

/* A socket on the first address of a host name or address that can be bound; -1 after a log line
 * when none can. */
int listen_sock_in6(const char *hostname, const char *service);

/* Accepts one connection and makes it a session; data is the listener's node. Returns 0, or -1 when
 * there is no new session. A listener for which no descriptor is left pauses, for a tenth of a
 * second at most. */
int listen_callback(int fd, void *data);

/* Watches paused listeners again; also for the loop, when it has closed a descriptor. */
void listen_resume(void);

#ifdef __cplusplus
}
#endif

#endif

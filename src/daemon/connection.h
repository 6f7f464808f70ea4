#ifndef UCFGD_DAEMON_CONNECTION_H
#define UCFGD_DAEMON_CONNECTION_H

/* Moving bytes between a connection's socket and its session's buffers.
 *
 *  1. Both are callbacks of the loop with the session as data; null gives -1.
 *  2. The socket is in blocking mode, but nothing here ever waits: one read when there is something
 * to read, and writes that take what the socket takes now.
 *  3. The session record survives both calls; the connection may be gone afterwards. It goes when
 *     the client ends its input or fails, when a line or a request is too long, and with a
 *     terminated session; replies that are left are still sent (farewell.h).
 *  4. Lines that arrive are executed at once unless others come first; then the sweep does it.
 */

#ifdef __cplusplus
extern "C" {
#endif

/* Reads once, executes complete lines and sends the replies. Returns 0, or -1 when the connection
 * has been closed. */
int read_callback(int fd, void *data);

/* Sends what is pending. Returns 0, or -1 when the connection has been closed. */
int write_callback(int fd, void *data);

#ifdef __cplusplus
}
#endif

#endif

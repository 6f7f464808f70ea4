#ifndef UCFGD_DAEMON_FAREWELL_H
#define UCFGD_DAEMON_FAREWELL_H

/* Output that outlives its session.
 *
 * A client that ends its input, or logs out, ends its session at once. What its socket has not
 * taken by then is still sent, for as long as the limit allows; the connection is closed behind it.
 * Such a connection counts as one, and is the first to go when places are short.
 */

struct ccd_session;

/* Takes the pending output and the write side from a session that is about to be closed. Nothing
 * happens where nothing is pending. */
void farewell_take(ccd_session *session);

/* The same for a client that is still sending: when it has been sent everything it is told the end,
 * and what it sends is read and dropped until it closes, so that it gets to read why. */
void farewell_dismiss(ccd_session *session);

/* How many there are. */
long farewell_count();

/* Closes the oldest. False when there is none. */
bool farewell_drop_oldest();

#endif

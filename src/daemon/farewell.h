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

/* How many there are. */
long farewell_count();

/* Closes the oldest. False when there is none. */
bool farewell_drop_oldest();

#endif

#ifndef UCFGD_DAEMON_PLACES_H
#define UCFGD_DAEMON_PLACES_H

/* The places that connections take: how many there are, who gets one, and who has to leave.
 *
 *  1. A place is two descriptors, so there are as many as the limit says, or fewer where
 *     descriptors are short. Some are kept for each listener: a crowd on one of them does not keep
 *     anybody from another.
 *  2. Only a connection that never logged in, or whose session has ended, is made to leave, the
 *     oldest first. Where there is none, the newcomer is turned away.
 *  3. For callbacks of the loop: who leaves is discarded and goes with the next sweep.
 */

#include <sys/types.h>

/* No user: what TCP tells of a peer. */
constexpr uid_t k_no_user = static_cast<uid_t>(-1);

/* Makes room for a newcomer from this user on the listener. False when there is none; that has been
 * logged and counted. */
bool place_for(const char *listener, uid_t user);

/* Sees to it that a connection that was just listed logs in in time. */
void watch_for_login();

#endif

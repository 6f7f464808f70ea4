#ifndef UCFGD_AUTH_GRANTS_H
#define UCFGD_AUTH_GRANTS_H

#ifndef __cplusplus
#    error "grants.h is for C++ sources"
#endif

/* What the tables of users and groups grant a user.
 *
 * The row of the user and that of the account's primary group count always. A group's row with
 * "members: all" counts for each of its members. Who that is depends on who vouches for the user:
 * after a log-in by the peer's credentials it is the process at the other end, whose groups the
 * kernel tells (SO_PEERGROUPS); after any other one it is the group database.
 */

struct ccd_session;

struct grant {
    int perms = 0;                   /* k_perm_ bits of session.h */
    const char *exec_user = nullptr; /* borrowed from the tables; null for none */
};

/* By the user's name and its account's primary group. */
grant granted_to(const char *user);

/* Adds what the groups that count all their members grant the user of a log-in that the method has
 * accepted. With a null method: the most that any method could add, for refusals in advance. */
void grant_to_members(const ccd_session *session, const char *user, const char *method,
                      grant &granted);

#endif

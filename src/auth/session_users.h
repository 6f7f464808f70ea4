#ifndef UCFGD_AUTH_SESSION_USERS_H
#define UCFGD_AUTH_SESSION_USERS_H

/* The users and groups tables of the main configuration: who gets which permission bits, and under
 * which account a session's programs run.
 *
 *  1. A record owns its name and its exec user. Lists are linked through `next`, in file order, the
 *     default row "%default" first.
 *  2. What cannot be allocated gives null and errno ENOMEM.
 *  3. Names are compared byte by byte, case included.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;

typedef struct session_user {
    struct session_user *next;
    char *name;
    int perms;       /* k_perm_ bits of session.h */
    char *exec_user; /* null for none */
    int all_members; /* of a group's row: it counts for each member, not by primary group only */
} session_user;

/* The two tables; null when the configuration has no such node. */
extern session_user *g_users_list;
extern session_user *g_groups_list;

/* A new record with a copy of the name (which may be null), no bits and no exec user. */
session_user *create_session_user(const char *name);

/* Free a record, or every record from the given one on; null is accepted. */
void destroy_session_user(session_user *user);
void destroy_session_user_list(session_user *list);

/* Appends a record; returns the head. */
session_user *append_session_user(session_user *list, session_user *user);

/* A new record from one row of the configuration. It starts from the default row's bits (but not
 * from its exec user) when one is given. */
session_user *create_session_user_from_conf(const struct cnfnode *node,
                                            const session_user *default_user);

/* The table of a "users" or "groups" node. The default row counts only where it is the node's first
 * child; otherwise an empty one stands in for it. */
session_user *read_session_users(const struct cnfnode *node);

/* The first record of that name, or null; borrowed. */
session_user *find_session_user(session_user *list, const char *name);

/* The same, falling back to the default row. */
session_user *find_session_user_or_default(session_user *list, const char *name);

#ifdef __cplusplus
}
#endif

#endif

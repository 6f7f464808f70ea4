#ifndef HLXAUTH_HLXAUTH_H
#define HLXAUTH_HLXAUTH_H

#include <stddef.h>
#include <stdint.h>

/* The AAA session store: sessions that a login service has authenticated, in shared memory, for any
 * program of the same user to check.
 *
 *  1. An identifier is a text of 32 hexadecimal digits from the system's random source. Who holds
 *     it holds the session; keep it out of logs and argument lists.
 *  2. Every call looks into the store afresh and holds its lock only for that time. A program that
 *     dies in between harms nobody: the next one repairs what was being written. One that stops in
 *     between is waited for a second, in hlx_auth_session_sid_check a twentieth of that; the calls
 *     of the next ten seconds do not wait again.
 *  3. Strings are copied in both directions; nothing here is borrowed, nothing is to be freed but
 *     what a comment says.
 *  4. Results are 0, or -1 with errno, unless a comment says otherwise. Every function that looks
 *     into the store may fail with ETIMEDOUT: another program holds its lock; EPERM: the store is
 *     another user's, or others may use it; EINVAL: it is damaged; ENOMEM; or why it cannot be
 *     opened. A store that another user has made under root's nose is removed by root's next call.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;

enum {
    HLX_AUTH_SID_SIZE = 32,   /* digits of an identifier */
    HLX_AUTH_USER_SIZE = 64,  /* longest user name and group name, with their NUL */
    HLX_AUTH_GROUPS_MAX = 16, /* groups a session may have */
    HLX_AUTH_ACL_SIZE = 4096, /* longest access-control list, with its NUL */
    HLX_AUTH_SESSIONS_MAX = 1024
};

/* Bits of a session's attribute flags. */
enum {
    HLX_AUTH_FLAG_NO_LOGIN = 0x4, /* not valid for a login at the configuration daemon */
    HLX_AUTH_FLAG_NO_ACL = 0x100  /* no access-control list is set up for it */
};

typedef enum sid_status {
    HLX_AUTH_SID_ERR = -1,
    HLX_AUTH_SID_VALID = 0,
    HLX_AUTH_SID_EINVAL = 1, /* the text is no identifier */
    HLX_AUTH_SID_ERANGE = 2, /* unknown, expired or revoked */
    HLX_AUTH_SID_NULL = 3    /* there is no text */
} sid_status;

/* An identifier as a record; sid is not terminated. */
typedef struct sid_data {
    char sid[HLX_AUTH_SID_SIZE];
    int sid_sz;
} sid_data;

/* A session as the store has it. */
typedef struct hlx_auth_session {
    char sid[HLX_AUTH_SID_SIZE + 1];
    char user[HLX_AUTH_USER_SIZE];
    char groups[HLX_AUTH_GROUPS_MAX][HLX_AUTH_USER_SIZE];
    int group_count;
    int flags;
    int64_t created;             /* seconds since the epoch */
    int64_t lifetime;            /* seconds that it has left; -1 for no end */
    char acl[HLX_AUTH_ACL_SIZE]; /* one rule a line, "allow PATTERN" or "deny PATTERN" */
} hlx_auth_session;

/* Names the store, "/" and a word without slashes; null restores the name that was built in. The
 * name is copied. For tests, and for machines that keep several. */
int hlx_auth_set_store(const char *name);

/* What the store says of an identifier: a sid_status, HLX_AUTH_SID_ERR with errno when it cannot be
 * asked. */
int hlx_auth_session_sid_check(const char *sid);

/* Fills data from a text; EINVAL when it is no identifier. The store is not asked. */
int hlx_auth_session_sid_data(const char *sid, sid_data *data);

/* The session's attribute flags; -1 when there is no such session. */
int hlx_auth_session_get_attr_flag(const sid_data *data);

/* Makes a session of wanted's user, groups and flags that lives for wanted's lifetime (-1: until it
 * is revoked) and stores its identifier in sid, which has HLX_AUTH_SID_SIZE + 1 bytes. The user's
 * name may be empty. ENOSPC when the store is full; EINVAL for a name that is too long or holds
 * control characters, an empty group, too many of them, or negative flags; EIO without a random
 * source. */
int hlx_auth_session_create(const hlx_auth_session *wanted, char *sid);

/* Ends a session; ENOENT when there is none. */
int hlx_auth_session_revoke(const char *sid);

/* Copies a session; ENOENT when there is none. */
int hlx_auth_session_get(const char *sid, hlx_auth_session *session);

/* The live sessions, oldest first, as a new array that the caller frees with free(); their number
 * in *count. Null with *count 0 when there are none (errno 0) and when it fails. */
hlx_auth_session *hlx_auth_session_list(size_t *count);

/* Checks the four trees, computes the session's access-control list from the authorization tree and
 * stores it with the session.
 *
 * An authorization tree has one entry a group, whose children are rules named "allow" or "deny" (a
 * ":" may end the name) with a pattern as their value. The rules of the session's groups count, in
 * the session's order of groups; those of the group "user" when it has none. The other trees hold
 * named entries. EINVAL for a tree that does not fit, ENOSPC for a list that is too long, ENOENT
 * for a session that has gone. */
int lib_hlxaaa_acl_init(const sid_data *data, const struct cnfnode *acl,
                        const struct cnfnode *radius, const struct cnfnode *tacacs,
                        const struct cnfnode *appliance);

#ifdef __cplusplus
}
#endif

#endif

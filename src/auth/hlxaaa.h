#ifndef UCFGD_AUTH_HLXAAA_H
#define UCFGD_AUTH_HLXAAA_H

/* Log-ins with a session of the AAA store (hlxauth/hlxauth.h) in place of a password.
 *
 *  1. Arguments are borrowed for the call; no exception leaves it. errno carries nothing.
 *  2. A store that cannot be asked refuses: the reason is logged as an error.
 *  3. Both ask the store in the daemon's thread, for at most a second when another program holds
 * it.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct ccd_session;
struct sid_data;

/* Whether pass is the identifier of a live session that is valid for a login, and user is
 * ".hlxaaa", in upper or lower case. Returns 0, and the session keeps a copy of the identifier in
 * its hlxaaa_sid; 1 for refused, also where an argument is null. */
int session_auth_hlxaaa(struct ccd_session *session, const char *user, const char *pass);

/* Sets up the access-control list of an AAA session from the backend modules "authorization",
 * "radserv", "tacusrlvl" and "appliance". Returns 0; 0 also where there is nothing to do: without
 * an identifier or a master context, and for a session that is unknown or is to have no list; -1,
 * which is logged, when a module is missing or its tree does not fit. */
int hlxaaa_acl_init(const struct sid_data *sid);

#ifdef __cplusplus
}
#endif

#endif

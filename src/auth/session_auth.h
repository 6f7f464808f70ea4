#ifndef UCFGD_AUTH_SESSION_AUTH_H
#define UCFGD_AUTH_SESSION_AUTH_H

/* Whether a user and a password are accepted on a connection.
 *
 *  1. Arguments are borrowed for the call. Copies of the password are wiped before they are freed.
 *  2. Results are 0 for accepted and not 0 for refused; errno carries nothing.
 *  3. All of it runs inside the event loop: a slow method stops everybody.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct ccd_session;
struct cnfnode;
struct pam_message;
struct pam_response;

/* What the authentication service had to say, for the client of a refused login; null for nothing.
 * Owned here; the next session_auth frees it. */
extern char *g_auth_message;

/* Not 0 while the refusals of a peer are only counted; set before a log-in. */
extern int g_auth_quiet;

/* Logs an error of a log-in, unless g_auth_quiet is set. */
void auth_log(const char *format, ...)
#ifdef __GNUC__
    __attribute__((format(printf, 1, 2)))
#endif
    ;

/* The main configuration. Set and destroyed by the start-up code. */
extern struct cnfnode *g_conftree;

/* Not 0 for the name of a method. */
int session_auth_knows(const char *method);

/* Tries the methods of the session's listener in their order. The first that accepts is noted in
 * the session's auth_method. Returns 0; otherwise the last tried method's refusal, or -1 when none
 * was tried. */
int session_auth(struct ccd_session *session, const char *user, const char *pass);

/* The methods that take a password: 0 accepted, 1 refused. */
int session_auth_pam(struct ccd_session *session, const char *user, const char *pass);
int session_auth_passwd(struct ccd_session *session, const char *user, const char *pass);
int session_auth_shadow(struct ccd_session *session, const char *user, const char *pass);

/* The conversation of the PAM method; appdata_ptr is its ccd_auth_context. */
int session_pam_conv(int num_msg, const struct pam_message **msg, struct pam_response **resp,
                     void *appdata_ptr);

#ifdef __cplusplus
}
#endif

#endif

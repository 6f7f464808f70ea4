#ifndef UCFGD_AUTH_SESSION_AUTH_H
#define UCFGD_AUTH_SESSION_AUTH_H

#ifdef __cplusplus
extern "C" {
#endif

struct ccd_session;
struct cnfnode;
struct pam_message;
struct pam_response;

extern char *g_auth_message;
extern struct cnfnode *g_conftree;

int session_auth(struct ccd_session *session, const char *user, const char *pass);
int session_auth_pam(struct ccd_session *session, const char *user, const char *pass);
int session_auth_passwd(struct ccd_session *session, const char *user, const char *pass);
int session_auth_shadow(struct ccd_session *session, const char *user, const char *pass);
int session_pam_conv(int num_msg, const struct pam_message **msg, struct pam_response **resp,
                     void *appdata_ptr);

#ifdef __cplusplus
}
#endif

#endif

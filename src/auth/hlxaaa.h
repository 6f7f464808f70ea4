#ifndef UCFGD_AUTH_HLXAAA_H
#define UCFGD_AUTH_HLXAAA_H

#ifdef __cplusplus
extern "C" {
#endif

struct ccd_session;
struct sid_data;

int session_auth_hlxaaa(struct ccd_session *session, const char *user, const char *pass);
int hlxaaa_acl_init(const struct sid_data *sid);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_AUTH_AUTH_CONTEXT_H
#define UCFGD_AUTH_AUTH_CONTEXT_H

#ifdef __cplusplus
extern "C" {
#endif

struct ccd_session;

/* What the PAM conversation answers with. The strings are owned by whoever made the record. */
typedef struct ccd_auth_context {
    char *username;
    char *password;
    struct ccd_session *session;
} ccd_auth_context;

#ifdef __cplusplus
}
#endif

#endif

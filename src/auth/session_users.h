#ifndef UCFGD_AUTH_SESSION_USERS_H
#define UCFGD_AUTH_SESSION_USERS_H

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;

typedef struct session_user {
    struct session_user *next;
    char *name;
    int perms;
    char *exec_user;
} session_user;

extern session_user *g_users_list;
extern session_user *g_groups_list;

session_user *create_session_user(const char *name);
void destroy_session_user(session_user *user);
void destroy_session_user_list(session_user *list);
session_user *append_session_user(session_user *list, session_user *user);
session_user *create_session_user_from_conf(const struct cnfnode *node,
                                            const session_user *default_user);
session_user *read_session_users(const struct cnfnode *node);
session_user *find_session_user(session_user *list, const char *name);
session_user *find_session_user_or_default(session_user *list, const char *name);

#ifdef __cplusplus
}
#endif

#endif

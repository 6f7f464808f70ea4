#ifndef UCFGD_SESSION_SESSION_H
#define UCFGD_SESSION_SESSION_H

#include <stdio.h>
#include <sys/socket.h>

#include "daemon/loop.h"
#include "tree/trns.h"
#include "ucfgd/databuf.h"
#include "ucfgd/lines.h"

#ifdef __cplusplus
extern "C" {
#endif

struct ccd_path_value_item;
struct ucred;

enum session_state {
    k_session_new = 0,
    k_session_logged = 1,
    k_session_logout = 2,
    k_session_suspended = 3
};
enum session_reason { k_reason_logout = 0, k_reason_forced = 1, k_reason_timeout = 2 };
enum { k_session_locked = 1 };                               /* bit of `flags` */
enum { k_perm_exec = 1, k_perm_write = 2, k_perm_read = 4 }; /* bits of `perms` */

typedef struct ccd_session {
    struct ccd_session *next;
    int type;
    int flags;
    int state;
    int state_reason;
    databuf *inbuf;
    databuf *outbuf;
    fd_callback *fdcb_in;
    fd_callback *fdcb_out;
    line *curr_cmd;
    char *username;
    char *sessionid;
    int perms;
    char *exec_user;
    char *listenname;
    struct ucred *ucred;
    char *auth_method;
    void *pamh;
    long last_action;
    int timeout;
    struct trns_ctx *backend_ctx;
    struct trns_ctx *backend_ctx_sub;
    struct ccd_path_value_item *sanity_list;
    char *hlxaaa_sid;
    /* private fields of the implementation may follow */
} ccd_session;

extern ccd_session *g_session_list;
extern ccd_session *g_current_session;
extern long request_time;
extern int g_session_timeout;
extern int g_access_override;
extern FILE *g_protocol_log_fptr;

ccd_session *create_session(void);
void destroy_session(ccd_session *session);
void close_session(ccd_session *session);
void add_session(ccd_session *session);
void remove_session(ccd_session *session);

int session_write(ccd_session *session, const void *data, size_t size);
int session_writef(ccd_session *session, const char *format, ...)
#ifdef __GNUC__
    __attribute__((format(printf, 2, 3)))
#endif
    ;
int session_write_databuf(ccd_session *session, const char *id, databuf *buffer, int final);
int session_flushout(ccd_session *session, int fd);
int session_flushout_nb(ccd_session *session, int fd);
int session_flushin(ccd_session *session, int fd);
int session_process_input(ccd_session *session);

void session_timeout_check(ccd_session *session);
void session_timeout_check_all(ccd_session *current);
void session_dump_all(ccd_session *current);

/* Reaps finished background jobs; called when a child may have ended. */
int session_wait_bg(void);

/* Destroys what was marked during a dispatch pass; the loop calls it between passes. */
void session_sweep(void);

#ifdef __cplusplus
}
#endif

#endif

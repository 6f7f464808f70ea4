#ifndef UCFGD_SESSION_SESSION_H
#define UCFGD_SESSION_SESSION_H

#include <stddef.h>
#include <stdint.h>

#include "daemon/loop.h"
#include "tree/trns.h"
#include "ucfgd/databuf.h"
#include "ucfgd/lines.h"

/* The session: one record for each connection, and for each login that outlives its connection.
 *
 *  1. A session owns its buffers, strings, collected lines and its private transaction context; the
 *     root context is shared and never destroyed with a session. The two registrations belong to
 *     the loop.
 *  2. Every session is in g_session_list from add_session to its destruction. Code that runs below
 *     a callback calls close_session or session_discard; the record itself goes in session_sweep,
 *     when nobody holds a pointer to it.
 *  3. inbuf and outbuf are null once the connection is gone. Writing to such a session does
 *     nothing and succeeds.
 *  4. Times are whole seconds of system uptime (get_uptime).
 *  5. Functions return 0, or -1 with errno where a system call failed. Session arguments must not
 *     be null unless the function says so.
 *  6. One thread: nothing here locks.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct ccd_path_value_item;
struct ucred;

enum session_state {
    k_session_new = 0,      /* connected, not logged in */
    k_session_logged = 1,   /* logged in */
    k_session_logout = 2,   /* terminated; stays to tell the client why */
    k_session_suspended = 3 /* the connection is gone; waits for RESUME */
};
enum session_reason { k_reason_logout = 0, k_reason_forced = 1, k_reason_timeout = 2 };
enum { k_session_locked = 1 };                               /* bit of `flags` */
enum { k_perm_exec = 1, k_perm_write = 2, k_perm_read = 4 }; /* bits of `perms` */

enum { k_default_session_timeout = 1800 }; /* seconds */

/* Pending output from which on a session's input is no longer read. */
enum { k_session_output_limit = 1048576 };

typedef struct ccd_session {
    struct ccd_session *next;
    int type;  /* 0 until the client first sends data, then 1 */
    int flags; /* k_session_locked while a background job owns the session */
    int state;
    int state_reason;
    databuf *inbuf;
    databuf *outbuf;
    fd_callback *fdcb_in;
    fd_callback *fdcb_out;
    line *curr_cmd; /* the lines of the request collected so far, the final one last */
    char *username;
    char *sessionid;
    int perms;
    char *exec_user; /* the account that programs run under; null for none */
    char *listenname;
    struct ucred *ucred; /* null when the socket knows no peer */
    char *auth_method;
    void *pamh;
    long last_action; /* 0 exempts from the idle rule */
    int timeout;      /* seconds */
    struct trns_ctx *backend_ctx;
    struct trns_ctx *backend_ctx_sub; /* while a request edits */
    struct ccd_path_value_item *sanity_list;
    char *hlxaaa_sid;
    /* Private from here on. */
    line final_line;       /* the line being executed; its text lies in inbuf */
    line **curr_cmd_tail;  /* where the next collected line is linked */
    size_t curr_cmd_bytes; /* what the collected lines hold */
    struct ccd_path_value_item *sanity_last;
    int filtered;               /* bytes of inbuf that are free of control characters */
    int scanned;                /* bytes of inbuf that hold no newline */
    int stalled;                /* session_sweep processes its input */
    int64_t awaits;             /* loop_now until which commands that run ahead are waited for */
    int heavy;                  /* its last turn was a long one */
    unsigned long queue;        /* its place among the stalled ones */
    unsigned long login_ticket; /* its place among those whose log-in has to wait; 0: it has not */
    long refusals;              /* log-ins that were refused on this connection */
    int refused;                /* its request was too long: it is only told so and closed */
    int output_lost;            /* a reply found no memory: session_sweep closes it */
    int discarded;              /* session_sweep destroys it */
    int64_t connected;          /* loop_now when its connection was accepted */
    unsigned long left;         /* its place among those without a connection; 0 with one */
    char *commit_comment;       /* of the next commit; null for none */
    long commit_trial;          /* seconds that the next commit is on trial; 0: it is for good */
    size_t holds;               /* about what it holds without a connection; 0: not known yet */
    struct ccd_session **link;  /* what points at it in the list */
} ccd_session;

/* All sessions, in the order of their connections. */
extern ccd_session *g_session_list;

/* How many there are. */
extern long g_session_count;

/* The session whose line is being executed; null between lines. */
extern ccd_session *g_current_session;

/* Uptime at the start of the current read event. */
extern long request_time;

/* Not 0 while some session is stalled or discarded. */
extern int g_session_sweep_needed;

/* From the main configuration: the idle limit of new sessions, which is also how long a terminated
 * one lingers; and whether access methods are passed over (1) and ACCESS answers "1" (2). */
extern int g_session_timeout;
extern int g_access_override;

/* A new session with two empty buffers, not in the list, without a transaction context. Null (errno
 * ENOMEM) when memory is exhausted. */
ccd_session *create_session(void);

/* Frees everything that the session owns, marks each registration whose data it is finished, and
 * makes its background jobs forget it. It must not be in the list any more. Null is accepted. */
void destroy_session(ccd_session *session);

/* Gives up the connection: marks both registrations finished and frees the buffers. A logged-in
 * session is suspended and can be resumed; a terminated one stays terminated; one that never logged
 * in goes with the next sweep. The record survives the call. */
void close_session(ccd_session *session);

/* Closes the session and leaves the record to the next sweep: it can no longer be resumed. For
 * callers inside a callback, where destroy_session would come too early. */
void session_discard(ccd_session *session);

/* Leaves the session's input to the next sweep, behind those that are stalled already. */
void session_stall(ccd_session *session);

/* Frees the lines collected for the current request. */
void session_free_collected(ccd_session *session);

/* Forgets what was said of the next commit: its comment, its trial. */
void session_forget_commit_order(ccd_session *session);

void add_session(ccd_session *session);

/* Unlinks the session from the list, if it is there; nothing is freed. */
void remove_session(ccd_session *session);

/* Sends what the socket takes of the pending output, without ever waiting. Returns the bytes sent,
 * 0 when nothing was pending, -1 with errno (EAGAIN when the socket takes nothing now). A
 * descriptor that is no socket is written to. */
int session_flushout(ccd_session *session, int fd);

/* The same behind a test, so that it returns 0 where session_flushout gives EAGAIN. */
int session_flushout_nb(ccd_session *session, int fd);

/* Reads once, at most 1024 bytes, and stops reading from a locked session that has a lot waiting.
 * Returns what read() returned. */
int session_flushin(ccd_session *session, int fd);

/* Frames and executes the complete lines in inbuf, up to one that locks the session, then sets what
 * the registrations watch. Returns 0; -1 when the session was closed for a line that is too long,
 * or refused for such a request: then the caller closes it. The record survives the call. */
int session_process_input(ccd_session *session);

/* Applies the idle rule to one session: a session past its limit is terminated. */
void session_timeout_check(ccd_session *session);

/* Sets request_time and, at most once a second, applies the idle rule to all sessions and discards
 * terminated ones (but not current, which may be null) that have lingered long enough. */
void session_timeout_check_all(ccd_session *current);

/* Ends the oldest of the sessions without a connection, as far as they are beyond the limits of
 * their number and memory: they can no longer be resumed. Called by the sweep. */
void session_bound_suspended(void);

/* Prints all sessions on standard output, current (which may be null) marked. */
void session_dump_all(ccd_session *current);

/* Completes the background jobs whose child has ended; called when one may have. Returns 0. */
int session_wait_bg(void);

/* Destroys what was discarded, and goes on with sessions and jobs that waited for output to drain.
 * The loop calls it after each dispatch pass. */
void session_sweep(void);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_SESSION_BGEXEC_H
#define UCFGD_SESSION_BGEXEC_H

#include <sys/types.h>

#include "session/session.h"

/* Background jobs: children whose output the loop collects and whose end completes a request; and
 * the synchronous runner of external programs. For the daemon's own commands and for feature
 * modules.
 *
 *  1. A job owns its tag and its buffers. Its registrations belong to the loop once bgfork has
 *     returned in the parent.
 *  2. A job does not own its session: the session is null when it has been destroyed meanwhile, and
 *     another one when a client has resumed it.
 *  3. The daemon's ends of the pipes do not block. A child starts with nothing open but its three
 *     pipes, with an empty signal mask and default handlers (SIGPIPE stays ignored until a program
 *     is executed).
 *  4. A user id is switched to with the account's groups. When any step of that fails, nothing is
 *     executed and the child ends with status 1.
 *  5. Each child of bgfork leads a process group of its own.
 */

#ifdef __cplusplus
extern "C" {
#endif

typedef struct bgexec_ctx {
    struct bgexec_ctx *next;
    pid_t pid; /* 0 for a job that waits to be started */
    ccd_session *session;
    char *id;
    databuf *ibuf;
    databuf *obuf;
    databuf *ebuf;
    fd_callback *cb_in;
    fd_callback *cb_out;
    fd_callback *cb_err;
    void (*cb_exit)(struct bgexec_ctx *job, int status); /* with the wait status */
    int writes; /* it replaces the modules' files: one such job runs at a time; others are actions
                 */
    int holds_edits; /* of a commit: there is something to write */
    int answer;      /* of a job that ends a commit which failed: the error number for its client */
    /* Private from here on. */
    int status;
    char *user;       /* whose job it is, also when the session has gone; null for nobody's */
    long started;     /* uptime */
    loop_timer timer; /* of a job that may take only so long */
    int ended_for;    /* the error number for which the daemon has ended it, 0 for none */
} bgexec_ctx;

/* The bytes that a collector takes from its pipe in one call, if they are there. */
enum { k_bgexec_turn_size = 16384 };

/* The jobs whose children run, in the order of their start, and those that wait. */
extern bgexec_ctx *g_bgexec_ctx_list;

/* A new job that is in no list. It takes over the buffers, each of which may be null, copies the
 * tag, and makes a registration without a descriptor for each handler that is given, with the job
 * as its data. Null (errno ENOMEM) when memory is exhausted; then the buffers are still the
 * caller's. */
bgexec_ctx *create_bgexec_ctx(ccd_session *session, const char *id, databuf *ibuf, databuf *obuf,
                              databuf *ebuf, int (*cb_in)(int fd, void *data),
                              int (*cb_out)(int fd, void *data), int (*cb_err)(int fd, void *data),
                              void (*cb_exit)(bgexec_ctx *job, int status));

/* The same for a job that replaces files, of which one runs at a time: what its child puts out is
 * thrown away. */
bgexec_ctx *create_bgexec_writer(ccd_session *session, const char *id,
                                 void (*cb_exit)(bgexec_ctx *job, int status));

/* Frees a job that is in no list, with buffers, and with registrations that never reached the
 * loop; those that did are marked finished. Null is accepted. */
void destroy_bgexec_ctx(bgexec_ctx *job);

/* Puts a job in the list, locks its session, and waits for the child from now on. */
void bgexec_start(bgexec_ctx *job, pid_t pid);

/* The running job that replaces files, borrowed, or null. */
bgexec_ctx *bgexec_running_writer(void);

/* How many actions of a user run, of all users for null. An action goes on, and counts, when its
 * connection or its session has gone. */
long bgexec_count_actions(const char *user);

/* Ends a running child with everything that it has started and that has stayed in its process
 * group. The job is completed, as one that a signal has ended, when the child has been reaped. */
void bgexec_end(bgexec_ctx *job, int error);

/* Tells the actions of a session that its connection has gone. They go on; who asks
 * bgexec_client_line hears of it. */
void bgexec_hang_up(ccd_session *session);

/* In the child of an action: keeps the standard input, of which nothing is ever read, as the client
 * line, and gives the action and its programs an empty one. */
void bgexec_keep_client_line(void);

/* There: a descriptor that is ready for reading when the client, or the daemon, has gone; -1
 * elsewhere. */
int bgexec_client_line(void);

/* Unlocks the session of a completed job; the sweep goes on with the lines that arrived meanwhile.
 * Null is accepted. */
void bgexec_unlock(ccd_session *session);

/* Completes the jobs whose children have ended: takes their last output, calls the completion
 * function and destroys them. */
void bgexec_reap(void);

/* Makes every job of `from` a job of `to`, which may be null. */
void bgexec_move_session(ccd_session *from, ccd_session *to);

/* Wakes jobs whose output was held back because their session's client did not read. */
void bgexec_resume_output(void);

/* Forks a child with three pipes. In the parent the registrations, each of which may be null, get
 * the pipes' ends and are added to the loop; the child's process id is returned, or a negative
 * value with errno, and then the registrations are still the caller's. In the child, 0: the caller
 * ends it with bgexit or by executing a program. */
pid_t bgfork(fd_callback *cb_in, fd_callback *cb_out, fd_callback *cb_err);

/* Ends a forked child: flushes its output and exits without the parent's exit functions. */
void bgexit(int status)
#ifdef __GNUC__
    __attribute__((noreturn))
#endif
    ;

/* Writes what an action has put out as reply lines behind the tag, at most 13 characters of it, and
 * the number of the stream, 1 or 2; with final, the last line too. */
void bgexec_write_output(const bgexec_ctx *job, databuf *buffer, int stream, int final);

/* Handlers of the jobs' pipes, with the job as data: the output of ADMIN becomes reply lines as it
 * arrives, and -1 tells the end of the pipe. The output of COMMIT is thrown away, but what it logs
 * on its standard error goes to the daemon's own while the daemon logs there; the result is 0. */
int bgexec_std_in(int fd, void *data);
int bgexec_std_out(int fd, void *data);
int bgexec_std_err(int fd, void *data);
int bgcommit_std_out(int fd, void *data);
int bgcommit_std_err(int fd, void *data);

/* Completion functions of the two commands that have jobs. */
void session_admin_cb_exit(bgexec_ctx *job, int status);
void session_commit_cb_exit(bgexec_ctx *job, int status);

/* bgfork, then executes a file, searched on the path, under a user id. Returns what bgfork returns
 * in the parent. */
pid_t bgexec_file(const char *file, char *const argv[], uid_t uid, fd_callback *cb_in,
                  fd_callback *cb_out, fd_callback *cb_err);

/* Executes a file, searched on the path, under a user id, and waits for its end. stdin_cb is called
 * when the child takes input, the others when it has written; each gets the descriptor and cb_data,
 * and a result below 1 closes that pipe. The wait status goes to *pstatus, which may be null.
 * Returns 0; negative with errno when the child could not be started. Waits as long as the program
 * runs, or a process that has its pipes: in the daemon itself everybody waits along. */
int exec_file(const char *file, char *const argv[], uid_t uid, int (*stdin_cb)(int fd, void *data),
              int (*stdout_cb)(int fd, void *data), int (*stderr_cb)(int fd, void *data),
              void *cb_data, int *pstatus);

/* What execute hands to the callbacks of exec_file. */
typedef struct exec_cb_context {
    databuf *dbuf_in;
    databuf *dbuf_out;
    databuf *dbuf_err;
} exec_cb_context;

/* The same with the whole input given and the whole output returned: each output is a new block
 * that the caller frees, with a NUL behind its size bytes, or null and size 0 when empty. Returns
 * 0; -1 with errno when memory is exhausted or the child could not be started. */
int execute(const char *filename, char *const argv[], uid_t uid, const char *data_in, int in_size,
            char **p_data_out, int *p_out_size, char **p_data_err, int *p_err_size, int *pstatus);

#ifdef __cplusplus
}
#endif

#endif

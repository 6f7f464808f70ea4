/* libucfg: talk to the Unified Configuration Daemon from a program.
 *
 * Rules of this interface:
 *
 *  1. Handles. Everything goes through a `ucfg_conn`, one connection and at most one session. The
 *     library keeps no state outside of it, so that any number of connections may live in one
 *     process. One connection serves one thread at a time.
 *  2. Results. A function that talks to the daemon returns a `ucfg_code`: `k_ucfg_ok` (0), or what
 *     went wrong. ucfg_text(), ucfg_error_id() and ucfg_error_arg() then say more; they describe
 *     the last call on that connection and stay valid until the next one. `errno` means nothing to
 *     the caller and may change.
 *  3. Ownership. What an output parameter receives belongs to the caller: strings go back through
 *     ucfg_free(), records through the destroy function beside them; both accept null. On failure
 *     an output parameter holds null. Strings given to the library are copied.
 *  4. Null. Paths may be null or "" where the root is meant; a null value counts as "". Anything
 *     else that must not be null is answered with `k_ucfg_usage`.
 *  5. Encoding. Values, names, arguments and passwords are plain C strings, as people write them;
 *     the library escapes and unescapes. Paths are "wire paths": components escaped one by one and
 *     joined with dots. ucfg_path_parse() makes one of what a user types, ucfg_path_append() of
 *     plain names; a path of plain identifiers ("system.hostname") is its own wire path.
 *  6. Time is in milliseconds; a negative time-out waits for ever.
 *  7. Nothing that the peer sends can make the library grow without bound, read out of bounds or
 *     raise SIGPIPE. A reply that breaks the limits closes the connection (`k_ucfg_protocol`).
 */
#ifndef UCFG_UCFG_H
#define UCFG_UCFG_H

#include <signal.h>
#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* The outcome of a call. The first five are the daemon's own verdicts. */
enum ucfg_code {
    k_ucfg_ok = 0,
    k_ucfg_refused,     /* NO: permission, log-in or time-out */
    k_ucfg_malformed,   /* BAD: the daemon did not understand the request */
    k_ucfg_failed,      /* ERR: understood, but it did not work */
    k_ucfg_inuse,       /* INUSE: the session was taken over, or is still connected */
    k_ucfg_unreachable, /* no connection could be made */
    k_ucfg_lost,        /* the connection ended; reconnect and ucfg_resume() may bring it back */
    k_ucfg_timeout,     /* no answer in time; a late one is skipped by the next call */
    k_ucfg_interrupted, /* the flag of ucfg_set_interrupt() was raised */
    k_ucfg_protocol,    /* the peer does not speak the protocol, or broke a limit */
    k_ucfg_too_long, /* a path, value or batch that the protocol cannot carry, and nothing was sent;
                      * or a value or text of more than 16 KiB to be read, whose end would be lost
                      */
    k_ucfg_usage,    /* an argument that no daemon could make sense of; nothing was sent */
    k_ucfg_no_memory
};

/* Permission bits of a session. */
enum { k_ucfg_perm_exec = 1, k_ucfg_perm_write = 2, k_ucfg_perm_read = 4, k_ucfg_perm_all = 7 };

/* The two trees of the daemon. */
enum ucfg_tree { k_ucfg_parameters = 0, k_ucfg_management = 1 };

typedef struct ucfg_conn ucfg_conn;

/* ---- the connection ---- */

/* A new handle, not connected; null when out of memory. */
ucfg_conn *ucfg_create(void);

/* Closes the connection without logging out (the daemon keeps the session for a resume) and frees
 * the handle. Null is accepted. */
void ucfg_destroy(ucfg_conn *conn);

/* Connects to a local socket. Null means the one that the environment variable UCFGD_SOCKET names
 * (which a program with more rights than its caller does not look at), else "/dev/ucfgd". An open
 * connection is closed first. errno says why nobody answers: ENOENT or ECONNREFUSED while the
 * daemon is not there. */
int ucfg_connect_local(ucfg_conn *conn, const char *path);

/* Connects over TCP, trying every address of the host; a null host is "127.0.0.1", a null port
 * "222". The port is a number from 1 to 65535 or the name of a service. */
int ucfg_connect_tcp(ucfg_conn *conn, const char *host, const char *port);

/* Connects again to where the last ucfg_connect_ call went. No session is restored by it. */
int ucfg_reconnect(ucfg_conn *conn);

/* Takes over a connected stream socket, which belongs to the handle from now on, on failure too. */
int ucfg_attach(ucfg_conn *conn, int fd);

/* Closes the connection and keeps the handle, its session id included. */
void ucfg_close(ucfg_conn *conn);

/* 1 when the connection is open and the peer has not closed it, else 0. Sends nothing. */
int ucfg_alive(ucfg_conn *conn);

/* Where the handle leads to, for messages: "/dev/ucfgd" or "host:port"; borrowed until the next
 * ucfg_connect_ call, "" before the first. */
const char *ucfg_peer(const ucfg_conn *conn);

/* How long a request may wait without a byte from the daemon (default 60 s), and the same for
 * ucfg_commit() and ucfg_admin(), whose work may take its time (default: for ever). The first also
 * bounds connecting and sending. */
void ucfg_set_timeout(ucfg_conn *conn, int milliseconds);
void ucfg_set_job_timeout(ucfg_conn *conn, int milliseconds);

/* The most bytes that one reply may hold, 64 MiB at first. */
void ucfg_set_reply_limit(ucfg_conn *conn, size_t bytes);

/* A flag that a signal handler sets to end a wait with `k_ucfg_interrupted`; null switches it off.
 * The flag must outlive the handle or be switched off; the caller resets it. */
void ucfg_set_interrupt(ucfg_conn *conn, volatile sig_atomic_t *flag);

/* ---- what the last call said ---- */

/* Its ucfg_code. */
int ucfg_last(const ucfg_conn *conn);

/* The daemon's text behind its status word, or the library's description of the failure; never
 * null. Borrowed until the next call. */
const char *ucfg_text(const ucfg_conn *conn);

/* The id of the daemon's error record ("error.exists"), or null; borrowed until the next call. */
const char *ucfg_error_id(const ucfg_conn *conn);

/* The argument of that number (from 0) of the error record, or null; borrowed likewise. */
const char *ucfg_error_arg(const ucfg_conn *conn, size_t number);

/* The name of a code, such as "refused"; a constant. */
const char *ucfg_code_name(int code);

/* ---- the session ---- */

struct ucfg_credentials {
    const char *user;     /* required; the protocol has no place for blanks in it */
    const char *password; /* null: none, for peer credentials */
    int perms;            /* the bits asked for; 0 asks for all that the user may have */
    int timeout;          /* idle limit in seconds, 0: the daemon's own */
    int force;            /* nonzero logs every other writer out */
};

/* Logs in. Afterwards ucfg_session_id(), ucfg_perms() and ucfg_user() describe the session.
 * `k_ucfg_refused`: wrong credentials; the connection stays open for another attempt. */
int ucfg_login(ucfg_conn *conn, const struct ucfg_credentials *with);

/* Takes up the session of that id, whose connection was lost; null means the handle's own last
 * session. Uncommitted changes come back with it. `k_ucfg_refused`: no such session any more;
 * `k_ucfg_inuse`: its old connection is still open, so try again a little later. */
int ucfg_resume(ucfg_conn *conn, const char *session_id);

/* Ends the session, with its uncommitted changes, and closes the connection. */
int ucfg_logout(ucfg_conn *conn);

/* Asks for nothing: keeps a session from timing out. */
int ucfg_noop(ucfg_conn *conn);

/* The session's id (16 digits), user and permission bits; "" and 0 before a log-in. After a resume
 * by another handle's id the bits are not known and count as all. Borrowed until the next log-in.
 */
const char *ucfg_session_id(const ucfg_conn *conn);
const char *ucfg_user(const ucfg_conn *conn);
int ucfg_perms(const ucfg_conn *conn);

/* ---- queries ---- */

/* A list of strings. `items` holds `count` of them; free with ucfg_destroy_strings(). */
struct ucfg_strings {
    size_t count;
    char **items;
};
void ucfg_destroy_strings(struct ucfg_strings *strings);

/* The value of a parameter. */
int ucfg_get(ucfg_conn *conn, const char *path, char **value);

/* The values of many parameters, asked for without waiting in between. The callback gets, in order,
 * the index, and the value (borrowed for the call; null when it could not be had) with the code of
 * that request. A nonzero result of the callback asks for nothing more, and the call returns ok.
 * Failures of single requests do not end the call either. */
typedef int (*ucfg_value_callback)(size_t index, const char *value, int code, void *data);
int ucfg_get_many(ucfg_conn *conn, const char *const *paths, size_t count,
                  ucfg_value_callback callback, void *data);

/* The names of a node's children, plain. */
int ucfg_list(ucfg_conn *conn, enum ucfg_tree tree, const char *path, struct ucfg_strings **names);

/* All nodes below a node, depth first, as wire paths relative to it. */
int ucfg_list_all(ucfg_conn *conn, enum ucfg_tree tree, const char *path,
                  struct ucfg_strings **paths);

/* The help text of a parameter, "" when it has none. */
int ucfg_help(ucfg_conn *conn, const char *path, char **text);

/* A node's attributes. */
struct ucfg_attr {
    char *ops;                    /* a letter per operation: g s a d m h A I, l: has children */
    long length;                  /* the longest value in characters, 0: no limit */
    struct ucfg_strings *choices; /* never null, perhaps empty */
    struct ucfg_strings *flags;   /* never null, perhaps empty */
    char *type;                   /* null when it has none */
};
int ucfg_attr_of(ucfg_conn *conn, enum ucfg_tree tree, const char *path, struct ucfg_attr **attr);
void ucfg_destroy_attr(struct ucfg_attr *attr);

/* What the access method of a node says to `perms` (letters r, w, x) and further arguments; "1"
 * grants. */
int ucfg_access(ucfg_conn *conn, enum ucfg_tree tree, const char *path, const char *perms,
                const char *const *args, size_t count, char **verdict);

/* The text of a management node. */
int ucfg_info(ucfg_conn *conn, const char *path, const char *const *args, size_t count,
              char **text);

/* Runs a management action. Its output lines go to the callback as they arrive: stream 1 is the
 * standard output, 2 the standard error; the text is borrowed for the call. */
typedef void (*ucfg_output_callback)(int stream, const char *text, void *data);
int ucfg_admin(ucfg_conn *conn, const char *path, const char *const *args, size_t count,
               ucfg_output_callback callback, void *data);

/* ---- changes ---- */

/* Each changes one thing in the session's own copy; ucfg_commit() makes the changes real. A value
 * may have several lines. */
int ucfg_set(ucfg_conn *conn, const char *path, const char *value);
int ucfg_add(ucfg_conn *conn, const char *path, const char *name);
int ucfg_del(ucfg_conn *conn, const char *path, const char *name);
int ucfg_move(ucfg_conn *conn, const char *path, const char *first, const char *second);

enum ucfg_op { k_ucfg_set, k_ucfg_add, k_ucfg_del, k_ucfg_move };

/* One item of a batch: the arguments as of the call of that name (`second`: for a move only). */
struct ucfg_item {
    enum ucfg_op op;
    const char *path;
    const char *value;
    const char *second;
};

/* What became of one item: its code, text, error id and arguments. `text` and `args` are never
 * null; `id` is null when there is no error record. An item that passed while another one was
 * refused has `k_ucfg_ok` too, although nothing was applied. */
struct ucfg_item_result {
    int code;
    char *text;
    char *id;
    struct ucfg_strings *args;
};
struct ucfg_batch {
    size_t count;
    struct ucfg_item_result *results;
};

/* Applies all items, or none when any is refused. `batch` (may be null) receives one result an item
 * whenever the daemon answered, also when the call returns a failure. */
int ucfg_submit(ucfg_conn *conn, const struct ucfg_item *items, size_t count,
                struct ucfg_batch **batch);
void ucfg_destroy_batch(struct ucfg_batch *batch);

/* Writes the session's changes to the files. `k_ucfg_failed` with the text "commit conflict":
 * somebody else has committed since; ucfg_revert() and make the changes again. */
int ucfg_commit(ucfg_conn *conn);

/* Drops the session's changes. */
int ucfg_revert(ucfg_conn *conn);

/* Brings a clean session up to what others have committed. */
int ucfg_update(ucfg_conn *conn);

/* ok: nobody has committed since the session last read; failed: "commit conflict". */
int ucfg_current(ucfg_conn *conn);

/* Whether the session holds changes. */
int ucfg_dirty(ucfg_conn *conn, int *dirty);

/* ---- the protocol itself ---- */

/* One data line of a reply: the tag's extension ("1", "error.arg") and the text as it was sent. */
struct ucfg_line {
    struct ucfg_line *next;
    char *qualifier;
    char *text;
};
/* A whole reply. `text` is what followed the status word; `cut` is nonzero when a line was as long
 * as the daemon's buffer and so probably lost its end. */
struct ucfg_reply {
    int code;
    char *text;
    struct ucfg_line *lines;
    int cut;
};
void ucfg_destroy_reply(struct ucfg_reply *reply);

/* Sends `count` continuation lines (the text behind the tag and its full stop, may be null when
 * count is 0) and the command line, all of it without tags, and waits for the reply, which is
 * handed out whenever the daemon answered. For commands that this header does not know. */
int ucfg_request(ucfg_conn *conn, const char *const *continuation, size_t count,
                 const char *command, struct ucfg_reply **reply);

/* For pass-through: sends bytes as they are; reads the next line, without its newline. Do not mix
 * with other calls while replies are outstanding. ucfg_fd() is the socket, -1 when not connected;
 * ucfg_raw_pending() says whether a line is buffered already. */
int ucfg_raw_write(ucfg_conn *conn, const char *data, size_t size);
int ucfg_raw_read(ucfg_conn *conn, char **line);
int ucfg_fd(const ucfg_conn *conn);
int ucfg_raw_pending(const ucfg_conn *conn);

/* ---- paths and escaping ---- */

/* A new escaped or unescaped copy, null when out of memory. */
char *ucfg_escape(const char *text);
char *ucfg_unescape(const char *text);

/* The path with one plain component more; null when out of memory or the component is empty. */
char *ucfg_path_append(const char *path, const char *component);

/* The plain components of a wire path; null when out of memory. An empty path has none. */
struct ucfg_strings *ucfg_path_split(const char *path);

/* A wire path from what people type: components separated by dots, where one that holds dots,
 * blanks or quotes is written in quotes ("my.host".address), or with a backslash before the
 * character. In double quotes \n, \t and \xHH mean what they mean in C. Null, with an explanation
 * in `*problem` (a constant, when given), for an empty component or an open quote. */
char *ucfg_path_parse(const char *typed, const char **problem);

/* The opposite: how to type that path; null when out of memory. */
char *ucfg_path_print(const char *path);

/* How to type one plain component; null when out of memory. */
char *ucfg_path_quote(const char *component);

/* Frees a string of this library. */
void ucfg_free(char *text);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_SESSION_PROTOCOL_H
#define UCFGD_SESSION_PROTOCOL_H

#include "session/session.h"

/* Lines in, commands, replies out.
 *
 *  1. `id` is the client's tag, with which every line of the reply begins; borrowed for the call.
 *  2. `args` is the rest of the request line behind the command word, unparsed and still escaped;
 *     borrowed for the call.
 *  3. A reply line carries no control character but the newline at its end.
 *  4. What is written is buffered; the event loop sends it.
 */

#ifdef __cplusplus
extern "C" {
#endif

enum {
    k_line_size = 16384,   /* one request line, one reply, one line of a child, with its NUL */
    k_tag_size = 256,      /* a tag with its NUL */
    k_word_size = 1024,    /* an argument word with its NUL, where nothing else is said */
    k_request_new = 65536, /* what collected lines may take before login */
    k_request_read = 4 * 1048576 /* and after it, for who must not write */
};

typedef int session_handler(ccd_session *session, const char *id, const char *args);

/* One row of the command table. */
typedef struct session_command {
    const char *word;
    session_handler *handler;
    int needs_login;
    int takes_args;
    const char *help; /* one line */
} session_command;

/* The command table and its length. */
const session_command *session_commands(size_t *count);

/* Appends bytes to the output as they are and turns write watching on; the protocol log gets them
 * too. Returns 0; -1 (ENOMEM) when memory is exhausted. */
int session_write(ccd_session *session, const void *data, size_t size);

/* Formats one reply line or more and writes it. What does not fit 16383 characters is cut before
 * the last newline; a control character in the text becomes a blank. Returns what session_write
 * returns. */
int session_writef(ccd_session *session, const char *format, ...)
#ifdef __GNUC__
    __attribute__((format(printf, 2, 3)))
#endif
    ;

/* The reply line of these three texts, as session_writef makes it of "%s%s%s\n". For what nearly
 * every request is answered with. */
int session_write_reply(ccd_session *session, const char *id, const char *literal,
                        const char *text);

/* A value and the end of a reply: what the two lines id ".1 " value and id " OK" are. */
int session_write_value(ccd_session *session, const char *id, const char *value);

/* Takes the complete lines off a child's output and writes each behind id, without its control
 * characters; with final, what is left too, even when nothing is. A null session discards them.
 * Returns 0. */
int session_write_databuf(ccd_session *session, const char *id, databuf *buffer, int final);

/* Executes one framed line. Returns what the command returned, -1 for a terminated session. */
int session_process_line(ccd_session *session, const char *text);

/* Executes one complete request: cmdline is its final line, tag included. */
int session_process_command(ccd_session *session, const char *id, const char *cmdline);

int session_process_notimplemented(ccd_session *session, const char *id, const char *args);
int session_process_invalid(ccd_session *session, const char *id, const char *args);
int session_process_notlogged(ccd_session *session, const char *id, const char *args);

#ifdef __cplusplus
}
#endif

#endif

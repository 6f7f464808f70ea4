#ifndef UCFGD_DAEMON_LOG_H
#define UCFGD_DAEMON_LOG_H

#include <stdbool.h>
#include <stddef.h>

/* Where everything that is logged leaves the process: log lines, trace lines and the protocol log.
 *
 *  1. Nothing here ever waits. What a reader does not take now is queued, up to the limit
 *     `log-queue` for each way out; lines beyond it are dropped and counted, and when the queue has
 *     moved on a line tells how many. Lines keep their order, and none leaves in part.
 *  2. Log lines are written with daemon_log, which is defined here in place of libdaemon's, and so
 *     are syslog(3) and its kin, which libraries and PAM modules call: whoever logs in this process
 *     goes the same way.
 *  3. A log line is one line: control characters in it become blanks, so that no text from outside
 *     can pass for a line of its own. What is longer than 16 KiB is cut.
 *  4. While the loop runs, lines that no error is among are gathered and leave together, at the
 *     latest before the loop waits, before a reply is sent and before a fork: what a client has
 *     been told of is in the log. Those for the system log leave at once.
 *  5. A forked child has queues of its own, empty at first. Whoever ends a process calls
 *     log_finish.
 *  6. errno is kept by all functions that do not return a result.
 */

#ifdef __cplusplus
extern "C" {
#endif

/* Who is asked before each log line, without newline, leaves the process; null for nobody. A line
 * that is answered with true goes no further. */
typedef bool (*log_observer)(int priority, const char *text);
void log_set_observer(log_observer observer);

/* The least important priority, as syslog numbers them, whose lines are logged: LOG_DEBUG until it
 * is set. Others are not even formatted. What is not written with daemon_log does not go by it. */
void log_set_level(int priority);

/* Whether a line of that priority is logged, for callers that would make a text in vain. */
int log_takes(int priority);

/* From now on gathers lines, or not (0) any more. Whoever turns it on sees to log_flush. */
void log_gather(int on);

/* Lets the lines that are gathered leave. Costs nothing when there are none. */
void log_flush(void);

/* How many lines daemon_log was given, those included that the level leaves out. */
unsigned long log_line_count(void);

/* Writes text, whole lines, to standard output (1) or standard error (2). */
void log_text(int fd, const char *text, size_t size);

/* Opens the protocol log, readable for the daemon's own user alone: a file, which is emptied, or a
 * FIFO, whether somebody reads it or not. Returns 0; -1 with errno, and then there is none. */
int log_open_protocol(const char *path);

/* Whether there is a protocol log, for callers that would make a text in vain. */
int log_protocol_is_open(void);

/* Writes the text behind the prefix to the protocol log, and a newline where it has none. */
void log_protocol(const char *prefix, const char *text, size_t size);

/* Writes a formatted line there. */
void log_protocol_f(const char *format, ...)
#ifdef __GNUC__
    __attribute__((format(printf, 1, 2)))
#endif
    ;

/* Before the process ends: gives the readers of what is queued half a second to take it. Errors
 * that no system log took are written to standard error. */
void log_finish(void);

/* The system log's socket; a test has its own. */
extern const char *g_log_socket;

#ifdef __cplusplus
}
#endif

#endif

#ifndef TAVEVENT_TAVEVENT_H
#define TAVEVENT_TAVEVENT_H

#include <stddef.h>

/* Events for the programs that watch the machine: one line of JSON each, appended to a file.
 *
 *   {"time": 1711447081.250, "pid": 612, "event": 2, "args": ["admin", 6]}
 *
 *  1. The format has one letter a value: "s" a text (const char *, null counts as the empty text),
 * "i" an integer (int). A null format is the empty one.
 *  2. A line is appended with a single write, so that the lines of several programs do not mix.
 *  3. Where the file cannot be opened, or is a FIFO that takes no more, the line goes to syslog,
 * and that counts as success. A line for which the disk has no room is not left there in part.
 *  4. Bytes of a text that form no character of UTF-8 are replaced, so that a line is always JSON.
 *  5. Results are 0, or -1 with errno: EINVAL for a format with another letter, or one that does
 * not fit the texts given.
 */

#ifdef __cplusplus
extern "C" {
#endif

/* The numbers in use. */
enum {
    TAVEVENT_LOGIN = 2,
    TAVEVENT_LOGOUT = 3,
    TAVEVENT_LOGIN_FAILED = 4,
    TAVEVENT_LOGIN_FORCED = 13
};

/* Emits an event whose values are the further arguments, as the format says. */
int writeevt(int number, const char *format, ...);

/* Emits an event whose values are count texts. A text at an "i" must be a decimal integer. */
int writeevt_list(int number, const char *format, size_t count, const char *const *texts);

/* Sets the event file, "/var/log/tavevent.jsonl" otherwise; the name is copied, and null restores
 * the default. 0, or -1 with errno ENOMEM. */
int tavevent_set_file(const char *path);

#ifdef __cplusplus
}
#endif

#endif

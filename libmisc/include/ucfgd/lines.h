#ifndef UCFGD_LINES_H
#define UCFGD_LINES_H

#include <stddef.h>
#include <stdio.h>

/* Lists of owned strings: command arguments, attribute lists, error arguments, multi-line replies.
 *
 *  1. A list is a pointer to its first element; the empty list is null.
 *  2. An element owns its text, which is NUL-terminated or null.
 *  3. Texts are bytes; no encoding is assumed.
 *  4. What cannot be allocated gives null and errno ENOMEM.
 */

#ifdef __cplusplus
extern "C" {
#endif

typedef struct line {
    struct line *next;
    char *line;
} line;

/* A new element with a copy of text (a null text gives an element with a null text), its next null.
 */
struct line *create_line(const char *text);

/* Frees the text and the element; null is accepted. */
void destroy_line(struct line *l);

/* Destroys every element from the given one on; null is accepted. */
void destroy_line_list(struct line *list);

/* Links l behind the last element; returns the head. Walks: see slist.h, rule 3. */
struct line *append_line(struct line *list, struct line *l);

/* Makes l the first element; returns it. */
struct line *prepend_line(struct line *list, struct line *l);

/* Replaces the text with a copy of value, which may be null or lie inside the old text. Returns 0;
 * -1 when memory is exhausted, and then the old text stays. */
int line_setval(struct line *l, const char *value);

/* Reads a stream to its end, in file order. Each element keeps the newline at its end; a line of
 * more than 4094 bytes is split over several elements. The caller owns the list; the stream stays
 * open. Memory exhaustion ends the list early, with errno ENOMEM. */
struct line *read_lines(FILE *file);

/* Splits size bytes into elements, one a line, each with its newline, up to a NUL if there is one.
 * Control characters other than the tab are dropped, and a line of more than 4095 characters is
 * split. The caller owns the list. */
struct line *convert_lines(const char *buf, size_t size);

#ifdef __cplusplus
}
#endif

#endif

/*
 * Patterns: regular expressions, which the functions match and regsub take, and shell patterns.
 *
 *  1. Both are matched in time linear in the text, whatever the pattern, and in bounded memory.
 *  2. A character is a character of UTF-8; a byte that belongs to none counts as one of its own.
 *     Ranges are of code points and classes of ASCII characters. No locale plays a part.
 *  3. Compiled patterns are kept for the next time, those used last, in four times the memory that
 *     one may take.
 */
#ifndef FE_PATTERN_H
#define FE_PATTERN_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* How much memory one compiled pattern may take, in bytes; 8 MiB unless set. For patterns compiled
 * from now on. `met`, when it is not null, is told of each pattern that is refused for that. */
void fe_set_pattern_memory(size_t bytes, void (*met)(const char *pattern));

/*
 * Whether the whole text matches a shell pattern: "*", "?", "[...]" with ranges, classes and "!" or
 * "^" in front, and "\" before a character that stands for itself. With whole_path "/" is matched
 * by nothing but "/". Returns 1 or 0, or -1: errno is EINVAL for a pattern of more than 1,000
 * characters or one that needs too much memory, or ENOMEM; an evaluation that is under way knows
 * the reason (failure.h).
 */
int fe_match_wildcards(const char *pattern, const char *text, int whole_path);

#ifdef __cplusplus
}
#endif

#endif

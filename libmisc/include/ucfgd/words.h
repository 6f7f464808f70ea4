#ifndef UCFGD_WORDS_H
#define UCFGD_WORDS_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Takes the next word off a text: skips white space, copies the word up to size - 1 characters into
 * buffer, terminates it, and moves *position behind the whole word. What did not fit is dropped and
 * never becomes the next word. Returns the characters copied; 0 and an empty buffer when no word is
 * left. size must be above 0. */
size_t dup_next_word_b(const char **position, char *buffer, size_t size);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_ESCAPE_H
#define UCFGD_ESCAPE_H

#include <stddef.h>

/* The percent encoding of path components and values in requests and replies, and plain
 * hexadecimal.
 *
 * A path separates its components with dots and a request its words with blanks, so both are
 * escaped, and so is every byte that is not part of a character; readable text in UTF-8 passes as
 * it is.
 *
 *  1. Strings that are handed out are new; the caller frees them with free(). Null (errno ENOMEM)
 * when memory is exhausted, and for a null argument (errno EINVAL).
 *  2. The text between escape and unescape survives unchanged, whatever its bytes.
 */

#ifdef __cplusplus
extern "C" {
#endif

/* The escaped form of str: a blank is "+"; ".", "+", "%", control characters and bytes that form no
 * character are "%" and two lower-case hexadecimal digits; the rest is copied. */
char *escape(const char *str);

/* The reverse. "%" that two hexadecimal digits do not follow stands for itself. */
char *unescape(const char *esc_str);

/* The same into str, which holds at least strlen(esc_str) + 1 bytes and may be esc_str itself.
 * Returns str. */
char *unescape_b(const char *esc_str, char *str);

/* The same for the first length bytes of esc_str. Returns the number of bytes in front of the NUL
 * that ends str. */
size_t unescape_part(const char *esc_str, size_t length, char *str);

/* Decodes one character of UTF-8. len gives the bytes that are there and receives the bytes used.
 * Returns the code point; -1 with *len 0 when the bytes form none. Lenient: over-long forms and
 * lead bytes with a continuation's pattern are taken. */
int getUTF8Char(const char *utf, int *len);

/* Writes two lower-case digits for each of in_size bytes, as long as a whole pair fits, and a NUL.
 * out has out_size bytes; twice the input and one hold everything. Returns out. */
char *hexencode(const void *in, char *out, size_t in_size, size_t out_size);

/* Decodes pairs of hexadecimal digits into out, at most out_size - 1 bytes, without a terminating
 * NUL; their number goes to *out_len when it is not null. Returns out. A text that is not made of
 * such pairs alone gives null, *out_len 0 and errno EINVAL. */
void *hexdecode(const char *in, void *out, size_t out_size, size_t *out_len);

#ifdef __cplusplus
}
#endif

#endif

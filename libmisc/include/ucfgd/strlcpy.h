#ifndef UCFGD_STRLCPY_H
#define UCFGD_STRLCPY_H

#include <string.h>

/* strlcpy for C libraries that lack it; where string.h has one, that one is used. */

#if defined(__GLIBC__) && !__GLIBC_PREREQ(2, 38)
#    define UCFGD_NEEDS_STRLCPY 1

#    ifdef __cplusplus
extern "C" {
#    endif

/* Copies at most size - 1 characters of src and always terminates dst when size is above 0. Returns
 * the length of src: a result of size or more says that the copy was cut. */
size_t strlcpy(char *dst, const char *src, size_t size);

#    ifdef __cplusplus
}
#    endif
#endif

#endif

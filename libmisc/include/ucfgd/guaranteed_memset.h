#ifndef UCFGD_GUARANTEED_MEMSET_H
#define UCFGD_GUARANTEED_MEMSET_H

#include <stddef.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Fills n bytes with c in a way that the compiler may not remove, and returns v. For passwords,
 * which must not stay in memory that nobody reads again. */
void *guaranteed_memset(void *v, int c, size_t n);

#ifdef __cplusplus
}
#endif

#endif

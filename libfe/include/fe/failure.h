/*
 * Why an evaluation failed.
 *
 * A native function that fails says so with fe_fail; the call that it fails in adds its name. The
 * innermost reason counts: what fails because an argument has failed says nothing more. A function
 * that fails with errno alone is taken down with the text of errno.
 *
 * A failure that a function forgave (default, a condition, a native function that answers something
 * else) is kept until the next one, since it is often why the result is not what was meant.
 *
 * None of this allocates, or touches errno where that is not its purpose.
 */
#ifndef FE_FAILURE_H
#define FE_FAILURE_H

#include "fe/nodes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Texts are cut to what fits, never inside a character, and hold no control characters. */
typedef struct fe_failure {
    int error;            /* errno of the failure; never 0 */
    int forgiven;         /* 1 when the evaluation around it went on */
    const char *function; /* that failed; "" when none was called */
    const char *within; /* the function of the functions file that it was called in; "" for none */
    const char *reason; /* what was wrong; "" when nothing but `error` is known */
    const char *value;  /* the text that was wrong; null for none */
} fe_failure;

/*
 * For native functions: `return fe_fail(EINVAL, text, "no number")`. Sets errno to `error` and
 * records the reason, made from the format, and the value that was wrong, which may be null. The
 * reason may reach clients, the value only the log. Neither repeats the function's name. A reason
 * that stands since an argument failed is kept. Returns null.
 */
fe_node *fe_fail(int error, const char *value, const char *format, ...)
#ifdef __GNUC__
    __attribute__((format(printf, 3, 4)))
#endif
    ;

/* The failure of the last evaluation, or null when there was none since it was last forgotten.
 * Lives until the next evaluation. */
const fe_failure *fe_last_failure(void);

/* For whoever starts an evaluation and wants to know about that one only. */
void fe_forget_failure(void);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_TREE_PARAM_FAILURE_H
#define UCFGD_TREE_PARAM_FAILURE_H

/* What is said of an expression that cannot be read, and of a method that failed: a line in the log
 * that says which node, which method, which function, what was wrong and with what; and for the
 * client's reply the same without the node, which it knows, and without the value, which may be
 * none of its business. */

#ifdef __cplusplus
extern "C" {
#endif

/* Logs that the expression at a place of a definition file could not be parsed, and why. errno and
 * fe_error_text are as parse_fe_expression left them. */
void log_expression_failure(const char *place);

/* For the reply to a request that failed with this errno: the text of errno, or, where that says
 * nothing (EINVAL, 0), why the expression failed. Lives until the next call of any function of this
 * folder. */
const char *ccd_failure_text(int error);

/* The same, but null where nothing is known beyond errno. */
const char *ccd_failure_reason(void);

/* Sets the reason, and errno so that it counts: for a function that refuses without failing. */
void ccd_set_failure_reason(const char *reason);

/* Forgets the reason; ccd_clear_error does so, too. */
void ccd_forget_failure(void);

#ifdef __cplusplus
}
#endif

#endif

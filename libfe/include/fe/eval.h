/*
 * Evaluation.
 *
 * Every evaluation gives a chain of constant nodes, or null, which means failure. The empty list is
 * one node with the empty text. Where one text is wanted the last node counts (fe_last_text).
 *
 * Two limits hold for everything that one outermost evaluation starts, also through native
 * functions that evaluate again: 256 nested calls and ten million evaluated nodes (long texts count
 * as several). Past either, the outermost evaluation fails with errno ELOOP and one report.
 */
#ifndef FE_EVAL_H
#define FE_EVAL_H

#include "fe/context.h"
#include "fe/nodes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Evaluates one expression, whatever `next` points to. Null when it fails or is null. */
fe_node *eval_fe_expression(fe_context *ctx, const fe_node *node);

/*
 * Evaluates a chain of expressions in order and joins their results. The first one that fails makes
 * the whole chain fail; those behind it are not evaluated. A null chain gives null, so for a native
 * function "no arguments" and "the arguments failed" look the same and fe_argc counts both as 0.
 */
fe_node *eval_fe_expr_list(fe_context *ctx, const fe_node *first);

/* Whether an evaluation is going on: one that begins now is a part of it, and shares its limits. */
int fe_is_evaluating(void);

/*
 * Native functions for predicates: the function registered as user_data is called with the texts
 * of exactly one or exactly three evaluated arguments. The answer is "1" where it returns non-zero
 * and "0" otherwise, also for another number of arguments; there is no failure.
 */
typedef int (*fe_predicate1)(const char *text);
typedef int (*fe_predicate3)(const char *first, const char *second, const char *third);
fe_node *fe_func_sanity1(fe_context *ctx, fe_node *call);
fe_node *fe_func_sanity3(fe_context *ctx, fe_node *call);

/* Takes one line without newline. The default handler drops it. */
typedef void (*fe_report_handler)(const char *line);

/* Sets the handler for reports; null restores the default. */
void fe_set_report(fe_report_handler handler);

#ifdef __cplusplus
}
#endif

#endif

/*
 * Parsing: from text to expression.
 *
 *     'text' "text"        constants; \\ \' \" \n \r \t \xHH inside
 *     42                   a constant too: every value is text
 *     $_ $- $0 $sid ${a}b  variables; one that is not set is the empty text
 *     name(a, b)           a call
 *     ( ) ! - * / % + - .. < <= > >= == != =~ && || ?:
 *                          operators: other ways to write calls
 */
#ifndef FE_PARSE_H
#define FE_PARSE_H

#include "fe/nodes.h"

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Parses one expression against a function list. Returns a new tree, or null: errno is EINVAL, or
 * EBADMSG for a regular expression in the text that is none, and fe_error_text says "column N: "
 * (counted in characters, from 1) and what was expected and found there; or errno is ENOMEM. The
 * empty text is no expression. Nesting is limited to 200 levels.
 */
fe_node *parse_fe_expression(const char *text, fe_def *list);

/* Is shown every expression that is parsed, with an owner of its own: null for nobody, as at the
 * beginning. */
typedef void (*fe_parse_observer)(const fe_node *expression);
void fe_set_parse_observer(fe_parse_observer observer);

/* 0 when a call has as many arguments as its function takes, as far as that can be told without an
 * evaluation (an argument may give several values, never none). Otherwise -1 for too few, 1 for too
 * many. */
int fe_count_fits(const fe_node *call);

/* Why the last parse that failed did so; the empty text when none has. Lives until the next
 * parse fails. */
const char *fe_error_text(void);

#ifdef __cplusplus
}
#endif

#endif

/*
 * Purity: whether the result of an expression may be kept.
 *
 * A function is pure when its result depends on its arguments and on variables of the context
 * alone, and when it changes nothing but variables of the running method: no file, time, command,
 * record of errors, log. Nearly all functions of the language itself are: not "defined", whose
 * variable does not stand in the expression. A native function is pure when whoever registers it
 * says so, one with a body when its body is.
 */
#ifndef FE_PURITY_H
#define FE_PURITY_H

#include "fe/nodes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Says that the function which a call of `name` would use is pure; for whoever has just registered
 * it. A list without that name is left as it is. */
void fe_mark_pure(fe_def *list, const char *name);

/*
 * Is shown each variable of an expression, and each call of a native function that is not pure, in
 * the bodies of the functions that it calls, too. Non-zero when the whole may still be pure: the
 * variable is one that counts as an argument, the function depends on nothing but what the judge
 * knows. Variables that a function or a loop in the expression sets itself are shown as well.
 * A judge does not ask about another expression meanwhile.
 */
typedef int (*fe_purity_judge)(const fe_node *node, void *data);

/*
 * 1 when all expressions of a chain are pure, 0 otherwise. A null judge takes every variable and no
 * further function. In time linear in the expressions and the bodies that they reach; what would
 * nest deeper than an evaluation may is not pure.
 */
int fe_is_pure(const fe_node *first, fe_purity_judge judge, void *data);

#ifdef __cplusplus
}
#endif

#endif

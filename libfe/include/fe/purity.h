/*
 * Purity: whether the result of an evaluation may be kept.
 *
 * A function is pure when its result depends on nothing but its arguments, the variables of the
 * context, and what its owner watches for changes, and when it changes nothing but variables of the
 * running method: no file, time, command, record of errors, log. The functions of the language
 * itself are, except "defined", whose variable does not stand in the expression. A native function
 * is pure when whoever registers it says so, one with a body as far as its body is.
 *
 * Whether an evaluation was pure is not foretold but counted, since it depends on the way that it
 * took: whoever wants to keep a result compares the count before with the count behind it. Where it
 * stayed, the evaluation took no step that could go otherwise the next time.
 */
#ifndef FE_PURITY_H
#define FE_PURITY_H

#include "fe/context.h"
#include "fe/nodes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Says that the function which a call of `name` would use is pure; for whoever has just registered
 * it. A list without that name is left as it is. */
void fe_mark_pure(fe_def *list, const char *name);

/* Says that a variable's value may be another one where all else is the same: reading it is a step
 * that is not pure, whether it is set or not. Null is accepted. */
void fe_mark_impure(fe_symbol name);

/* How many steps have been taken that are not pure: calls of functions that are not, and what
 * fe_note_impure tells of, for a pure function that this once does what a pure one does not. */
unsigned long fe_impure_count(void);
void fe_note_impure(void);

#ifdef __cplusplus
}
#endif

#endif

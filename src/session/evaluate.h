#ifndef UCFGD_SESSION_EVALUATE_H
#define UCFGD_SESSION_EVALUATE_H

#ifdef __cplusplus
extern "C" {
#endif

struct fe_context;
struct fe_node;

/* evaluate(expression[, value]): what the text, read as an expression, answers in a context of its
 * own where "_" is the value. In an action, what is wrong, and the error that the expression has
 * set, are written to standard error. The data of the definition is the list of functions. */
struct fe_node *fe_func_evaluate(struct fe_context *ctx, struct fe_node *call);

#ifdef __cplusplus
}
#endif

#endif

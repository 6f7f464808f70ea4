/*
 * Membership: whether a list holds a text, without making the list.
 *
 * Many expressions make a list of thousands of texts to look for one, and whoever makes it could
 * tell at once. So a function may come with a second one, its membership, that is asked instead.
 */
#ifndef FE_MEMBERSHIP_H
#define FE_MEMBERSHIP_H

#include "fe/nodes.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Gives a new constant: "1" when the result of the call holds the text, which is never empty, and
 * another one when it does not; null where the call itself would fail. Evaluates what the call
 * evaluates, in the same order. */
typedef fe_node *(*fe_membership)(struct fe_context *ctx, fe_node *call, const char *text);

/* Gives a membership to the function which a call of `name` would use; for whoever has just
 * registered it. A list without that name is left as it is. */
void fe_set_membership(fe_def *list, const char *name, fe_membership membership);

/* 1 when the results of a chain of expressions hold the text, which must not be empty, otherwise 0;
 * -1 when the evaluation fails. All are evaluated, or asked. */
int fe_list_holds(struct fe_context *ctx, const fe_node *first, const char *text);

#ifdef __cplusplus
}
#endif

#endif

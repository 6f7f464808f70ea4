#ifndef UCFGD_TREE_PARAM_CONTEXT_H
#define UCFGD_TREE_PARAM_CONTEXT_H

#include "fe/fe.h"
#include "tree/param_path.h"
#include "ucfgd/owners.h"

/* How a method is run: the steps that every operation on a node shares. Internal to the tree. */

using owned_context = owned<fe_context, destroy_fe_context>;
using owned_path = owned<param_path, destroy_param_path>;
using owned_result = owned<fe_node, destroy_fe_node_list>;
using owned_lines = owned<line, destroy_line_list>;

/* A context for the methods of one node: the caller's variables behind it, the transaction as its
 * user data. Empty (errno ENOMEM) when memory is exhausted. */
inline owned_context create_method_context(backend_ctx *ctx, fe_context *parent) {
    return owned_context{create_fe_context(parent, ctx)};
}

/* What comes last before the method itself: the "common:" methods from the top down, then "0" to
 * "9" of the addressed node. False (errno ENOMEM) when memory ran out on the way, here or in an
 * argument: a method that misses a variable would do something else than it should. */
bool enter_path(fe_context *ctx, const param_path *path, const line *arg_list = nullptr,
                bool takes_arguments = false);

/* Evaluates the method of a path's last node that stands under the key, such as "get:". A failure
 * is logged, and kept for the client's reply (param_failure.h). A null method gives null. */
owned_result run_method(fe_context *ctx, const fe_node *method, const char *key,
                        const param_path *path);

/* Whether the result of such a method holds the text, which is not empty: 1 or 0, -1 for a failure.
 * What can be asked is asked instead of evaluated (fe/membership.h). */
int ask_method(fe_context *ctx, const fe_node *method, const char *key, const param_path *path,
               const char *text);

/* For a method that answered no: a failure that it forgave may be why, so it is logged. */
void report_forgiven(const char *key, const param_path *path);

/* What the last value of a method's result is worth, escaped; null for no result. */
char *escaped_result(const fe_node *result);

/* The greatest length that the node itself or else its type allows; 0 for any. */
int param_limit(const ccdtree_node *node);

#endif

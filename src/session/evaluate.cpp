/* An expression that somebody tries, in an action. Whatever it edits is the action's own copy of
 * the session's trees, and goes with it. */

#include "session/evaluate.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "fe/fe.h"
#include "session/bgexec.h"
#include "tree/arguments.h"
#include "tree/param_error.h"

namespace {

using owned_expression = owned<fe_node, destroy_fe_node_tree>;
using owned_context = owned<fe_context, destroy_fe_context>;

/* Only there is standard error somebody's who asked. */
bool is_action() {
    return bgexec_client_line() >= 0;
}

void print_failure(const fe_failure &failure) {
    const bool has_value = failure.value != nullptr;
    fprintf(stderr, "failed: %s%s%s%s%s%s%s%s\n", failure.function,
            failure.function[0] != '\0' ? ": " : "",
            failure.reason[0] != '\0' ? failure.reason : strerror(failure.error),
            has_value ? ": '" : "", has_value ? failure.value : "", has_value ? "'" : "",
            failure.within[0] != '\0' ? ", in " : "", failure.within);
}

void print_error_record(const param_error &error) {
    fprintf(stderr, "error: %s", error.msg ? error.msg : "");
    if (error.id) fprintf(stderr, " (%s", error.id);
    for (const line *arg = error.args; arg && error.id; arg = arg->next)
        fprintf(stderr, "%s%s", arg == error.args ? ": " : ", ", arg->line);
    fprintf(stderr, error.id ? ")\n" : "\n");
}

}  // namespace

fe_node *fe_func_evaluate(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    if (arguments.count() < 1 || arguments.count() > 2) return fail_count(arguments);
    const owned_expression expression{
        parse_fe_expression(arguments[0], static_cast<fe_def *>(call->fed->user_data))};
    if (!expression) {
        if (is_action()) fprintf(stderr, "%s\n", fe_error_text());
        return fe_fail(errno, nullptr, "%s", fe_error_text());
    }
    const owned_context inner{create_fe_context(ctx, ctx->user_data)};
    if (!inner || fe_set(inner.get(), "_", arguments[1]) != 0) return nullptr;
    ccd_clear_error();
    fe_node *result = eval_fe_expression(inner.get(), expression.get());
    if (!is_action()) return result;
    const fe_failure *failure = result ? nullptr : fe_last_failure();
    if (failure) print_failure(*failure);
    if (const param_error *error = ccd_get_error()) print_error_record(*error);
    return result;
}

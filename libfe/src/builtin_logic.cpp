// Functions that decide what is evaluated at all, and in which order.
#include <cerrno>

#include "arguments.h"

namespace fe {

namespace {

fe_node *func_and(fe_context *ctx, const fe_node *call) {
    const fe_node *operand = call->first_child;
    while (operand != nullptr && evaluate_condition(ctx, operand))
        operand = operand->next;
    return new_truth(operand == nullptr);
}

fe_node *func_or(fe_context *ctx, const fe_node *call) {
    const fe_node *operand = call->first_child;
    while (operand != nullptr && !evaluate_condition(ctx, operand))
        operand = operand->next;
    return new_truth(operand != nullptr);
}

fe_node *func_not(fe_context *ctx, const fe_node *call) {
    return new_truth(!evaluate_condition(ctx, call->first_child));
}

fe_node *func_if(fe_context *ctx, const fe_node *call) {
    const fe_node *condition = call->first_child;
    const fe_node *branch = condition->next;
    if (!evaluate_condition(ctx, condition)) branch = branch->next;
    return branch == nullptr ? new_const({}) : evaluate(ctx, branch);
}

// switch(x, key, value, key, value, ..., otherwise)
fe_node *func_switch(fe_context *ctx, const fe_node *call) {
    node_list subject(evaluate(ctx, call->first_child));
    if (subject == nullptr) return nullptr;
    const std::string_view text = fe_last_text(subject.get());
    const fe_node *key = call->first_child->next;
    while (key != nullptr && key->next != nullptr) {
        node_list owner;
        const std::string_view value = evaluate_text(ctx, key, owner);
        if (value.data() == nullptr) return nullptr;
        if (text == value) break;
        key = key->next->next;
    }
    if (key == nullptr) return new_const({});
    return evaluate(ctx, key->next != nullptr ? key->next : key);
}

fe_node *func_seq(fe_context *ctx, const fe_node *call) {
    node_list result;
    for (const fe_node *step = call->first_child; step != nullptr; step = step->next) {
        result.reset(evaluate(ctx, step));
        if (result == nullptr) return nullptr;
    }
    return result.release();
}

fe_node *func_list(fe_context *ctx, const fe_node *call) {
    if (call->first_child == nullptr) return new_const({});
    return evaluate_list(ctx, call->first_child);
}

fe_node *func_fail(fe_context *, const fe_node *) {
    return fail_with(EINVAL);
}

bool is_empty(const fe_node *result) {
    while (result != nullptr && result->private_length == 0)
        result = result->next;
    return result == nullptr;
}

fe_node *func_default(fe_context *ctx, const fe_node *call) {
    node_list result(try_evaluate(ctx, call->first_child));
    if (!is_empty(result.get())) return result.release();
    return evaluate(ctx, call->first_child->next);
}

constexpr builtin k_rows[] = {
    {"and", 1, builtin::k_any, func_and},
    {"or", 1, builtin::k_any, func_or},
    {"not", 1, 1, func_not},
    {"if", 2, 3, func_if},
    {"switch", 3, builtin::k_any, func_switch},
    {"seq", 1, builtin::k_any, func_seq},
    {"list", 0, builtin::k_any, func_list, ask_arguments},
    {"fail", 0, 0, func_fail},
    {"default", 2, 2, func_default},
};

}  // namespace

const std::span<const builtin> k_logic_functions = k_rows;

}  // namespace fe

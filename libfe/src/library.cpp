// The way from a call to a function of the library: evaluates and counts the arguments and keeps
// exceptions inside. To add a function: write it in the file of its group, give it a row in the
// table at the end of that file, and describe it in docs/expressions.md.
#include <cerrno>
#include <new>

#include "arguments.h"

namespace fe {

bool arguments::push_to_many(std::string_view text) {
    if (many_.empty()) many_.assign(few_.begin(), few_.end());
    many_.push_back(text);
    data_ = many_.data();
    ++size_;
    return charge_text(text.size());
}

// Kept for as long as the arguments live.
bool arguments::push_result(const fe_node *node) {
    for (; node != nullptr; node = node->next) {
        if (!push(view_of(node))) return false;
    }
    return true;
}

bool arguments::evaluate_all(const fe_node *first) {
    const fe_node *last_call = nullptr;
    for (const fe_node *node = first; node != nullptr; node = node->next) {
        if (node->fed->private_kind == k_kind_call) last_call = node;
    }
    fe_node **end = nullptr;
    for (const fe_node *node = first; node != nullptr; node = node->next) {
        unsigned int kind = node->fed->private_kind;
        if (kind == k_kind_const || (kind == k_kind_variable && last_call == nullptr)) {
            std::string_view text;
            if (kind == k_kind_const) {
                text = view_of(node);
            } else if (!get_variable(ctx_, symbol_of_name(node->text), text)) {
                text = "";
            }
            if (!charge(1) || !push(text)) return false;
            continue;
        }
        fe_node *result = evaluate(ctx_, node);
        if (result == nullptr) return false;
        if (end == nullptr) {
            owned_.reset(result);
        } else {
            *end = result;
        }
        if (!push_result(result)) return false;
        while (result->next != nullptr)
            result = result->next;
        end = &result->next;
        if (node == last_call) last_call = nullptr;
    }
    return true;
}

fe_node *try_evaluate(fe_context *ctx, const fe_node *node) {
    int saved = errno;
    fe_node *result = evaluate(ctx, node);
    if (result == nullptr) {
        errno = saved;
        forgive_failure();
    }
    return result;
}

bool evaluate_condition(fe_context *ctx, const fe_node *node) {
    node_list result(try_evaluate(ctx, node));
    return fe_istrue(fe_last_text(result.get())) != 0;
}

namespace {

bool count_fits(const builtin &row, size_t count) {
    if (count >= row.least_arguments && count <= row.most_arguments) return true;
    fe_fail(EINVAL, nullptr, "%zu argument%s", count, count == 1 ? "" : "s");
    return false;
}

fe_node *call_strict(const builtin &row, fe_context *ctx, const fe_node *call) {
    arguments args(ctx);
    if (!args.evaluate_all(call->first_child)) return nullptr;
    if (!count_fits(row, args.size())) return nullptr;
    return row.strict(args);
}

fe_node *call_builtin(fe_context *ctx, fe_node *call) {
    const auto &row = *static_cast<const builtin *>(call->fed->user_data);
    try {
        if (row.strict != nullptr) return call_strict(row, ctx, call);
        size_t count = 0;
        for (const fe_node *arg = call->first_child; arg != nullptr; arg = arg->next)
            ++count;
        if (!count_fits(row, count)) return nullptr;
        return row.lazy(ctx, call);
    } catch (const std::bad_alloc &) {
        return fail_with(ENOMEM);
    }
}

// The fewest and the most values that a function takes.
void bounds_of(const fe_def *fed, size_t &least, size_t &most) {
    least = 0;
    most = builtin::k_any;
    if (fed->function == call_builtin) {
        const auto &row = *static_cast<const builtin *>(fed->user_data);
        least = row.least_arguments;
        most = row.most_arguments;
    } else if (fed->function == fe_func_sanity1 || fed->function == fe_func_sanity3) {
        least = most = fed->function == fe_func_sanity1 ? 1 : 3;
    } else if (fed->function == call_user_function) {
        most = fed->private_data->parameters.size();
    } else {
        least = static_cast<size_t>(fed->private_data->least);
        if (fed->private_data->most >= 0) most = static_cast<size_t>(fed->private_data->most);
    }
}

bool is_lazy(const fe_def *fed) {
    return fed->function == call_builtin &&
           static_cast<const builtin *>(fed->user_data)->lazy != nullptr;
}

}  // namespace

}  // namespace fe

extern "C" int fe_count_fits(const fe_node *call) {
    using namespace fe;
    size_t least = 0;
    size_t most = 0;
    if (call->fed->private_kind != k_kind_call) return 0;
    bounds_of(call->fed, least, most);
    size_t count = 0;
    bool may_grow = false;
    for (const fe_node *arg = call->first_child; arg != nullptr; arg = arg->next) {
        ++count;
        if (arg->fed->private_kind == k_kind_call && !is_lazy(call->fed)) may_grow = true;
    }
    if (count > most) return 1;
    return count < least && !may_grow ? -1 : 0;
}

extern "C" fe_def *fe_register_felib_funcs(fe_def *list) {
    using namespace fe;
    for (auto group : {k_logic_functions, k_number_functions, k_text_functions, k_pattern_functions,
                       k_list_functions, k_variable_functions}) {
        for (const builtin &row : group) {
            list = fe_register_func(list, row.name, call_builtin, const_cast<builtin *>(&row));
            if (row.pure) fe_mark_pure(list, row.name);
        }
    }
    return list;
}

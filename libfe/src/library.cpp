// The way from a call to a function of the library: evaluates and counts the arguments and keeps
// exceptions inside. To add a function: write it in the file of its group, give it a row in the
// table at the end of that file, and describe it in docs/expressions.md.
#include <algorithm>
#include <cerrno>
#include <new>

#include "arguments.h"

namespace fe {

void evaluated_arguments::push_to_many(std::string_view text) {
    if (many_.empty()) many_.assign(few_.at, few_.at + few_texts::k_most);
    many_.push_back(text);
    texts_ = many_.data();
    ++size_;
}

void evaluated_arguments::own(fe_node *node) {
    if (last_owned_ == nullptr) {
        owned_.reset(node);
    } else {
        last_owned_->next = node;
    }
    last_owned_ = node;
}

// The result is kept for as long as the arguments live.
bool evaluated_arguments::push_result_of(const fe_node *node) {
    for (fe_node *result = evaluate(ctx_, node); result != nullptr; result = result->next) {
        own(result);
        push(view_of(result));
        if (!charge_text(result->private_length)) return false;
        if (result->next == nullptr) return true;
    }
    return false;
}

bool evaluated_arguments::copy_from(size_t index) {
    for (; index < size_; ++index) {
        fe_node *copy = new_const(texts_[index]);
        if (copy == nullptr) return false;
        own(copy);
        texts_[index] = view_of(copy);
    }
    return true;
}

bool evaluated_arguments::evaluate_all(const fe_node *first) {
    size_t price = 0;                  // of what has been read and not been charged for
    size_t first_variable = SIZE_MAX;  // that a call behind it could still change
    for (const fe_node *node = first; node != nullptr; node = node->next) {
        const unsigned int kind = node->fed->private_kind;
        if (kind == k_kind_call) {
            if (!charge(price) || !copy_from(first_variable) || !push_result_of(node)) return false;
            price = 0;
            first_variable = SIZE_MAX;
            continue;
        }
        if (kind == k_kind_variable) first_variable = std::min(first_variable, size_);
        push(read_leaf(ctx_, node, price));
    }
    return charge(price);
}

std::string_view evaluate_text(fe_context *ctx, const fe_node *node, node_list &owner) {
    if (node->fed->private_kind != k_kind_call) {
        if (!charge(1)) return {};
        return node->fed->private_kind == k_kind_const ? view_of(node) : variable_text(ctx, node);
    }
    owner.reset(evaluate(ctx, node));
    if (owner == nullptr) return {};
    const fe_node *last = owner.get();
    while (last->next != nullptr)
        last = last->next;
    return view_of(last);
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
    int saved = errno;
    node_list owner;
    const std::string_view text = evaluate_text(ctx, node, owner);
    if (text.data() == nullptr) {
        errno = saved;
        forgive_failure();
    }
    return is_true(text);
}

namespace {

bool count_fits(const builtin &row, size_t count) {
    if (count >= row.least_arguments && count <= row.most_arguments) return true;
    fe_fail(EINVAL, nullptr, "%zu argument%s", count, count == 1 ? "" : "s");
    return false;
}

const builtin &row_of(const fe_def *fed) {
    return *static_cast<const builtin *>(fed->user_data);
}

fe_node *call_strict(fe_context *ctx, fe_node *call) {
    const builtin &row = row_of(call->fed);
    try {
        return with_arguments(ctx, call->first_child, [&row](const arguments &args) {
            return count_fits(row, args.size()) ? row.strict(args) : nullptr;
        });
    } catch (const std::bad_alloc &) {
        return fail_with(ENOMEM);
    }
}

fe_node *call_lazy(fe_context *ctx, fe_node *call) {
    const builtin &row = row_of(call->fed);
    size_t count = 0;
    for (const fe_node *arg = call->first_child; arg != nullptr; arg = arg->next)
        ++count;
    try {
        return count_fits(row, count) ? row.lazy(ctx, call) : nullptr;
    } catch (const std::bad_alloc &) {
        return fail_with(ENOMEM);
    }
}

// The fewest and the most values that a function takes.
void bounds_of(const fe_def *fed, size_t &least, size_t &most) {
    least = 0;
    most = builtin::k_any;
    if (fed->function == call_strict || fed->function == call_lazy) {
        least = row_of(fed).least_arguments;
        most = row_of(fed).most_arguments;
    } else if (fed->function == fe_func_sanity1 || fed->function == fe_func_sanity3) {
        least = most = fed->function == fe_func_sanity1 ? 1 : 3;
    } else if (fed->function == call_user_function) {
        most = fed->private_data->parameters.size();
    } else {
        least = static_cast<size_t>(fed->private_data->least);
        if (fed->private_data->most >= 0) most = static_cast<size_t>(fed->private_data->most);
    }
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
        if (arg->fed->private_kind == k_kind_call && call->fed->function != call_lazy)
            may_grow = true;
    }
    if (count > most) return 1;
    return count < least && !may_grow ? -1 : 0;
}

extern "C" fe_def *fe_register_felib_funcs(fe_def *list) {
    using namespace fe;
    for (auto group : {k_logic_functions, k_number_functions, k_text_functions, k_pattern_functions,
                       k_list_functions, k_variable_functions}) {
        for (const builtin &row : group) {
            list = fe_register_func(list, row.name, row.strict != nullptr ? call_strict : call_lazy,
                                    const_cast<builtin *>(&row));
            if (row.pure) fe_mark_pure(list, row.name);
            if (row.membership != nullptr) fe_set_membership(list, row.name, row.membership);
        }
    }
    return list;
}

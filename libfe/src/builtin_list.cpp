// Lists, loops and variables. An empty text in a list is how nothing looks, so these pass over it,
// except all and any: a question about every text must not leave one out.
#include <algorithm>
#include <cerrno>
#include <string>
#include <unordered_set>
#include <vector>

#include "arguments.h"

namespace fe {

namespace {

constexpr int64_t k_longest_range = 100'000;

using texts = std::vector<std::string_view>;

texts not_empty(std::span<const std::string_view> all) {
    texts result;
    result.reserve(all.size());
    std::copy_if(all.begin(), all.end(), std::back_inserter(result),
                 [](std::string_view text) { return !text.empty(); });
    return result;
}

fe_node *new_list(const texts &items) {
    result_list result;
    for (std::string_view item : items) {
        if (!result.append_text(item)) return nullptr;
    }
    return result.release_result();
}

fe_node *func_count(const arguments &args) {
    return new_number(static_cast<int64_t>(not_empty(args.from(0)).size()));
}

fe_node *func_nth(const arguments &args) {
    int64_t position = 0;
    if (!parse_number(args[0], position)) return no_number(args[0]);
    texts items = not_empty(args.from(1));
    auto count = static_cast<int64_t>(items.size());
    if (position < 0) position += count;
    if (position < 0 || position >= count) return new_const({});
    return new_const(items[static_cast<size_t>(position)]);
}

fe_node *func_first(const arguments &args) {
    texts items = not_empty(args.from(0));
    return new_const(items.empty() ? std::string_view{} : items.front());
}

fe_node *func_last(const arguments &args) {
    texts items = not_empty(args.from(0));
    return new_const(items.empty() ? std::string_view{} : items.back());
}

fe_node *func_reverse(const arguments &args) {
    texts items = not_empty(args.from(0));
    std::reverse(items.begin(), items.end());
    return new_list(items);
}

fe_node *func_sort(const arguments &args) {
    texts items = not_empty(args.from(0));
    std::stable_sort(items.begin(), items.end());
    return new_list(items);
}

fe_node *func_uniq(const arguments &args) {
    texts items = not_empty(args.from(0));
    std::unordered_set<std::string_view> seen;
    std::erase_if(items, [&seen](std::string_view item) { return !seen.insert(item).second; });
    return new_list(items);
}

// Looks for the first text among the others.
fe_node *find_first(const arguments &args) {
    const std::string_view text = args[0];
    bool found = false;
    for (size_t i = 1; i < args.size() && !found; ++i)
        found = same_text(args[i], text);
    return new_truth(found && !text.empty());
}

bool has_membership(const fe_node *first) {
    while (first != nullptr && membership_of(first) == nullptr)
        first = first->next;
    return first != nullptr;
}

// The first value may come with others, among which it is looked for as well.
fe_node *ask_for_value(fe_context *ctx, const fe_node *value, const fe_node *lists) {
    node_list wanted(evaluate(ctx, value));
    if (wanted == nullptr) return nullptr;
    const std::string_view text = view_of(wanted.get());
    if (text.empty()) {
        node_list ignored(evaluate_list(ctx, lists));
        return ignored != nullptr ? new_truth(false) : nullptr;
    }
    node_list found(ask_list(ctx, lists, text));
    if (found == nullptr || !holds_text(wanted->next, text)) return found.release();
    return new_truth(true);
}

fe_node *func_in(fe_context *ctx, const fe_node *call) {
    const fe_node *value = call->first_child;
    if (has_membership(value->next)) return ask_for_value(ctx, value, value->next);
    return with_arguments(ctx, value, find_first);
}

fe_node *func_range(const arguments &args) {
    int64_t from = 0;
    int64_t to = 0;
    int64_t distance = 0;
    if (!parse_number(args[0], from)) return no_number(args[0]);
    if (!parse_number(args[1], to)) return no_number(args[1]);
    if (from > to) return new_const({});
    if (__builtin_sub_overflow(to, from, &distance) || distance >= k_longest_range) {
        return fe_fail(ERANGE, args[1].data(), "more than 100000 numbers");
    }
    result_list numbers;
    for (int64_t i = 0; i <= distance; ++i) {
        fe_node *number = charge(1) ? new_number(from + i) : nullptr;
        if (number == nullptr) return nullptr;
        numbers.append(number);
    }
    return numbers.release();
}

// What foreach and filter have in common: a variable that takes on the texts of a list, and an
// expression that is evaluated for each of them. The loop's context is made once.
class loop {
  public:
    loop(fe_context *ctx, const fe_node *call)
        : body_(call->first_child->next->next),
          inner_(create_inner_context(ctx, context_kind::loop)) {
        node_list name(evaluate(ctx, call->first_child));
        if (name == nullptr || inner_ == nullptr) return;
        name_ = acquire_symbol(fe_last_text(name.get()));
        if (name_ == nullptr) return;
        items_.reset(evaluate(ctx, call->first_child->next));
        at_ = items_.get();
    }
    loop(const loop &) = delete;
    loop &operator=(const loop &) = delete;
    ~loop() {
        if (name_ != nullptr) release_symbol(name_);
    }

    bool ready() const { return items_ != nullptr; }
    // A list of one empty text is the empty list.
    bool is_empty() const { return items_->next == nullptr && items_->private_length == 0; }
    // Sets the variable to the next text that is not empty; null behind the last one.
    const fe_node *next() {
        while (at_ != nullptr && at_->private_length == 0)
            at_ = at_->next;
        return next_of_any_length();
    }
    const fe_node *next_of_any_length() {
        const fe_node *current = at_;
        if (current == nullptr) return nullptr;
        at_ = at_->next;
        failed_ = set_variable(inner_.get(), name_, view_of(current)) != 0;
        return failed_ ? nullptr : current;
    }
    bool failed() const { return failed_; }
    fe_context *context() const { return inner_.get(); }
    const fe_node *body() const { return body_; }

  private:
    const fe_node *body_;
    context_owner inner_;
    symbol_ptr name_ = nullptr;
    node_list items_;
    const fe_node *at_ = nullptr;
    bool failed_ = false;
};

fe_node *func_foreach(fe_context *ctx, const fe_node *call) {
    loop over(ctx, call);
    if (!over.ready()) return nullptr;
    result_list results;
    while (over.next() != nullptr) {
        fe_node *result = evaluate(over.context(), over.body());
        if (result == nullptr) return nullptr;
        results.append(result);
    }
    return over.failed() ? nullptr : results.release_result();
}

fe_node *func_filter(fe_context *ctx, const fe_node *call) {
    loop over(ctx, call);
    if (!over.ready()) return nullptr;
    result_list kept;
    while (const fe_node *item = over.next()) {
        if (!evaluate_condition(over.context(), over.body())) continue;
        if (!kept.append_text(view_of(item))) return nullptr;
    }
    return over.failed() ? nullptr : kept.release_result();
}

// Ends at the first text for which the condition is `last`, which is the answer then.
fe_node *ask_each(fe_context *ctx, const fe_node *call, bool last) {
    loop over(ctx, call);
    if (!over.ready()) return nullptr;
    while (!over.is_empty() && over.next_of_any_length() != nullptr) {
        if (evaluate_condition(over.context(), over.body()) == last) return new_truth(last);
    }
    return over.failed() ? nullptr : new_truth(!last);
}

fe_node *func_all(fe_context *ctx, const fe_node *call) {
    return ask_each(ctx, call, false);
}

fe_node *func_any(fe_context *ctx, const fe_node *call) {
    return ask_each(ctx, call, true);
}

template <fe_context *(*place)(fe_context *)>
fe_node *func_set(const arguments &args) {
    if (args.context() == nullptr) return fail_with(EINVAL);
    if (args[0].empty()) return fe_fail(EINVAL, nullptr, "a variable without a name");
    symbol_ptr name = acquire_symbol(args[0]);
    if (name == nullptr) return nullptr;
    int result = set_variable(place(args.context()), name, args[1]);
    release_symbol(name);
    return result == 0 ? new_truth(true) : nullptr;
}

fe_node *func_defined(const arguments &args) {
    symbol_ptr name = find_symbol(args[0]);
    return new_truth(name != nullptr && get_variable(args.context(), name).data() != nullptr);
}

constexpr builtin k_list_rows[] = {
    {"count", 0, builtin::k_any, func_count},
    {"nth", 1, builtin::k_any, func_nth},
    {"first", 0, builtin::k_any, func_first},
    {"last", 0, builtin::k_any, func_last},
    {"reverse", 0, builtin::k_any, func_reverse, ask_arguments},
    {"sort", 0, builtin::k_any, func_sort, ask_arguments},
    {"uniq", 0, builtin::k_any, func_uniq, ask_arguments},
    {"in", 1, builtin::k_any, func_in},
    {"range", 2, 2, func_range},
    {"foreach", 3, 3, func_foreach},
    {"filter", 3, 3, func_filter},
    {"all", 3, 3, func_all},
    {"any", 3, 3, func_any},
};

constexpr builtin k_variable_rows[] = {
    {"set", 2, 2, func_set<method_context>},
    {"local", 2, 2, func_set<function_context>},
    {"defined", 1, 1, func_defined, false},
};

}  // namespace

const std::span<const builtin> k_list_functions = k_list_rows;
const std::span<const builtin> k_variable_functions = k_variable_rows;

}  // namespace fe

// The evaluated arguments of a call of the library's own functions, as views. Constants are read in
// the tree and variables in their context, so a call like cat($1, '/name') makes one node, its
// result. A variable that an argument behind it could still change is copied.
#ifndef FE_ARGUMENTS_H
#define FE_ARGUMENTS_H

#include <span>
#include <string_view>
#include <vector>

#include "internal.h"

namespace fe {

// As a function sees them.
class arguments {
  public:
    arguments(fe_context *ctx, const std::string_view *texts, size_t size)
        : ctx_(ctx), texts_(texts), size_(size) {}

    fe_context *context() const { return ctx_; }
    size_t size() const { return size_; }
    // Every view ends in NUL.
    std::string_view operator[](size_t index) const { return texts_[index]; }
    std::span<const std::string_view> from(size_t index) const {
        return {texts_ + index, size_ - index};
    }

  private:
    fe_context *ctx_;
    const std::string_view *texts_;
    size_t size_;
};

// Room for as many as most calls have; nothing is in it that has not been put there.
struct few_texts {
    static constexpr size_t k_most = 8;
    few_texts() {}
    union {
        std::string_view at[k_most];
    };
};

// Arguments of any number and kind, with the results that they are views of.
class evaluated_arguments {
  public:
    explicit evaluated_arguments(fe_context *ctx) : ctx_(ctx) {}
    evaluated_arguments(const evaluated_arguments &) = delete;
    evaluated_arguments &operator=(const evaluated_arguments &) = delete;

    // False when one of them fails.
    bool evaluate_all(const fe_node *first);
    arguments view() const { return {ctx_, texts_, size_}; }

  private:
    void push(std::string_view text) {
        if (size_ < few_texts::k_most) {
            few_.at[size_++] = text;
        } else {
            push_to_many(text);
        }
    }
    void push_to_many(std::string_view text);
    bool push_result_of(const fe_node *node);
    bool copy_from(size_t index);
    void own(fe_node *node);

    fe_context *ctx_;
    size_t size_ = 0;
    few_texts few_;
    std::vector<std::string_view> many_;
    std::string_view *texts_ = few_.at;
    node_list owned_;
    fe_node *last_owned_ = nullptr;
};

// The text of a constant or a variable; counts what it costs.
inline std::string_view read_leaf(const fe_context *ctx, const fe_node *node, size_t &price) {
    const std::string_view text =
        node->fed->private_kind == k_kind_const ? view_of(node) : variable_text(ctx, node);
    price += 1 + text.size() / k_text_of_a_node;
    return text;
}

template <class function>
[[gnu::noinline]] fe_node *with_any_arguments(fe_context *ctx, const fe_node *first,
                                              const function &use) {
    evaluated_arguments all(ctx);
    return all.evaluate_all(first) ? use(all.view()) : nullptr;
}

// What `use` makes of the arguments; null when one of them fails. Most calls have constants and
// variables only, which are read without anything that would have to be released.
template <class function>
fe_node *with_arguments(fe_context *ctx, const fe_node *first, const function &use) {
    few_texts texts;
    size_t count = 0;
    size_t price = 0;
    const fe_node *node = first;
    for (; node != nullptr && node->fed->private_kind != k_kind_call; node = node->next) {
        if (count == few_texts::k_most) break;
        texts.at[count++] = read_leaf(ctx, node, price);
    }
    if (node == nullptr) return charge(price) ? use(arguments(ctx, texts.at, count)) : nullptr;
    return with_any_arguments(ctx, first, use);
}

// One function of the library: its name, how many arguments it takes, what it does. A strict
// function gets its arguments evaluated and counted; a lazy one gets its call, whose written
// arguments have been counted.
struct builtin {
    static constexpr size_t k_any = SIZE_MAX;
    using strict_function = fe_node *(*)(const arguments &args);
    using lazy_function = fe_node *(*)(fe_context *ctx, const fe_node *call);

    constexpr builtin(const char *n, size_t least, size_t most, strict_function f,
                      bool is_pure = true)
        : name(n), least_arguments(least), most_arguments(most), strict(f), pure(is_pure) {}
    constexpr builtin(const char *n, size_t least, size_t most, strict_function f,
                      fe_membership asked)
        : name(n), least_arguments(least), most_arguments(most), strict(f), membership(asked) {}
    constexpr builtin(const char *n, size_t least, size_t most, lazy_function f,
                      fe_membership asked = nullptr)
        : name(n), least_arguments(least), most_arguments(most), lazy(f), membership(asked) {}

    const char *name;
    size_t least_arguments;
    size_t most_arguments;
    strict_function strict = nullptr;
    lazy_function lazy = nullptr;
    bool pure = true;                    // as purity.h means it
    fe_membership membership = nullptr;  // of a function that gives lists
};

// The groups, in the order in which they are registered.
extern const std::span<const builtin> k_logic_functions;
extern const std::span<const builtin> k_number_functions;
extern const std::span<const builtin> k_text_functions;
extern const std::span<const builtin> k_pattern_functions;
extern const std::span<const builtin> k_list_functions;
extern const std::span<const builtin> k_variable_functions;

// -?[0-9]+ within 64 bits; false for anything else.
bool parse_number(std::string_view text, int64_t &number);
fe_node *new_number(int64_t number);
// The failure of an argument that should have been a number.
fe_node *no_number(std::string_view text);

inline fe_node *new_truth(bool truth) {
    return new_const(truth ? "1" : "0");
}

// Most texts that differ do so in their lengths or first characters, and that needs no call.
inline bool same_text(std::string_view a, std::string_view b) {
    if (a.size() != b.size() || a.empty()) return a.size() == b.size();
    return a[0] == b[0] && (a.size() == 1 || a == b);
}
inline bool is_true(std::string_view text) {
    return text.size() == 1 && text[0] == '1';
}

// For an operand whose last text is all that is wanted, so that a constant or a variable makes no
// node. The view's data is null when it fails; it lives as long as the owner, the expression, and
// the variable's value.
std::string_view evaluate_text(fe_context *ctx, const fe_node *node, node_list &owner);
// Evaluates an operand of a function that takes failure for an answer: null then, errno unchanged.
fe_node *try_evaluate(fe_context *ctx, const fe_node *node);
// An operand is true when the last text of its result is "1".
bool evaluate_condition(fe_context *ctx, const fe_node *node);

}  // namespace fe

#endif

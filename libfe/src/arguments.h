// The evaluated arguments of a call of the library's own functions, as views. Constants are read in
// the tree and variables in their context, so a call like cat($1, '/name') makes one node, its
// result. A variable that an argument behind it could still change is copied.
#ifndef FE_ARGUMENTS_H
#define FE_ARGUMENTS_H

#include <array>
#include <span>
#include <string_view>
#include <vector>

#include "internal.h"

namespace fe {

class arguments {
  public:
    explicit arguments(fe_context *ctx) : ctx_(ctx) {}
    arguments(const arguments &) = delete;
    arguments &operator=(const arguments &) = delete;

    // False when one of them fails.
    bool evaluate_all(const fe_node *first);

    fe_context *context() const { return ctx_; }
    size_t size() const { return size_; }
    // Every view ends in NUL.
    std::string_view operator[](size_t index) const { return data_[index]; }
    std::span<const std::string_view> from(size_t index) const {
        return {data_ + index, size_ - index};
    }

  private:
    bool push(std::string_view text) {
        if (size_ < few_.size()) {
            few_[size_++] = text;
            return charge_text(text.size());
        }
        return push_to_many(text);
    }
    bool push_to_many(std::string_view text);
    bool push_result(const fe_node *node);

    fe_context *ctx_;
    size_t size_ = 0;
    std::array<std::string_view, 8> few_;
    const std::string_view *data_ = few_.data();
    std::vector<std::string_view> many_;
    node_list owned_;
};

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
    constexpr builtin(const char *n, size_t least, size_t most, lazy_function f)
        : name(n), least_arguments(least), most_arguments(most), lazy(f) {}

    const char *name;
    size_t least_arguments;
    size_t most_arguments;
    strict_function strict = nullptr;
    lazy_function lazy = nullptr;
    bool pure = true;  // as purity.h means it
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

// Evaluates an operand of a function that takes failure for an answer: null then, errno unchanged.
fe_node *try_evaluate(fe_context *ctx, const fe_node *node);
// An operand is true when the last text of its result is "1".
bool evaluate_condition(fe_context *ctx, const fe_node *node);

}  // namespace fe

#endif

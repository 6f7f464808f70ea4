// Comparison and arithmetic. Numbers are 64 bits wide everywhere; what does not fit fails.
#include <array>
#include <cerrno>
#include <charconv>
#include <compare>

#include "arguments.h"

namespace fe {

bool parse_number(std::string_view text, int64_t &number) {
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size();
}

fe_node *new_number(int64_t number) {
    std::array<char, 24> digits;
    auto [end, error] = std::to_chars(digits.data(), digits.data() + digits.size(), number);
    return new_const({digits.data(), static_cast<size_t>(end - digits.data())});
}

fe_node *no_number(std::string_view text) {
    return fe_fail(EINVAL, text.data(), "no number");
}

namespace {

fe_node *func_eq(const arguments &args) {
    return new_truth(same_text(args[0], args[1]));
}
fe_node *func_ne(const arguments &args) {
    return new_truth(!same_text(args[0], args[1]));
}

// accepted is a predicate over the order of the two numbers, such as std::is_lt
template <bool (*accepted)(std::partial_ordering)>
fe_node *func_compare(const arguments &args) {
    int64_t a = 0;
    int64_t b = 0;
    return new_truth(parse_number(args[0], a) && parse_number(args[1], b) && accepted(a <=> b));
}

// Each returns 0 or the error that makes the operation fail.
int add(int64_t a, int64_t b, int64_t &result) {
    return __builtin_add_overflow(a, b, &result) ? ERANGE : 0;
}

int sub(int64_t a, int64_t b, int64_t &result) {
    return __builtin_sub_overflow(a, b, &result) ? ERANGE : 0;
}

int mul(int64_t a, int64_t b, int64_t &result) {
    return __builtin_mul_overflow(a, b, &result) ? ERANGE : 0;
}

int div(int64_t a, int64_t b, int64_t &result) {
    if (b == 0) return EDOM;
    if (b == -1) return sub(0, a, result);
    result = a / b;
    return 0;
}

int mod(int64_t a, int64_t b, int64_t &result) {
    if (b == 0) return EDOM;
    result = b == -1 ? 0 : a % b;
    return 0;
}

template <int (*operation)(int64_t, int64_t, int64_t &)>
fe_node *func_fold(const arguments &args) {
    int64_t total = 0;
    if (!parse_number(args[0], total)) return no_number(args[0]);
    for (std::string_view text : args.from(1)) {
        int64_t operand = 0;
        if (!parse_number(text, operand)) return no_number(text);
        if (int error = operation(total, operand, total)) {
            return fe_fail(error, nullptr, error == EDOM ? "division by zero" : "overflow");
        }
    }
    return new_number(total);
}

constexpr builtin k_rows[] = {
    {"eq", 2, 2, func_eq},
    {"ne", 2, 2, func_ne},
    {"lt", 2, 2, func_compare<std::is_lt>},
    {"le", 2, 2, func_compare<std::is_lteq>},
    {"gt", 2, 2, func_compare<std::is_gt>},
    {"ge", 2, 2, func_compare<std::is_gteq>},
    {"add", 1, builtin::k_any, func_fold<add>},
    {"sub", 2, 2, func_fold<sub>},
    {"mul", 1, builtin::k_any, func_fold<mul>},
    {"div", 2, 2, func_fold<div>},
    {"mod", 2, 2, func_fold<mod>},
};

}  // namespace

const std::span<const builtin> k_number_functions = k_rows;

}  // namespace fe

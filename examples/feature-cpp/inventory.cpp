// Expression functions of the inventory module. Nothing may be thrown into the daemon: a function
// that runs out of memory fails.

#include <fe/fe.h>

#include <cctype>
#include <memory>
#include <new>
#include <string>
#include <string_view>

namespace {

struct release_list {
    void operator()(fe_node *list) const { destroy_fe_node_list(list); }
};
using owned_list = std::unique_ptr<fe_node, release_list>;

// The check digit of a number: every second digit counts twice, from the right.
int check_digit(std::string_view digits) {
    int sum = 0;
    bool twice = true;
    for (size_t i = digits.size(); i > 0; i--, twice = !twice) {
        int digit = digits[i - 1] - '0';
        int weighted = twice ? 2 * digit : digit;
        sum += weighted > 9 ? weighted - 9 : weighted;
    }
    return (10 - sum % 10) % 10;
}

bool is_number(std::string_view text) {
    for (char c : text)
        if (isdigit(static_cast<unsigned char>(c)) == 0) return false;
    return !text.empty() && text.size() <= 18;
}

// assettag(number): the number with its check digit behind it. Fails for no number.
fe_node *fe_func_assettag(fe_context *ctx, fe_node *call) {
    owned_list arguments{eval_fe_expr_list(ctx, call->first_child)};
    if (fe_argc(arguments.get()) != 1 || !is_number(arguments->text)) return nullptr;
    try {
        std::string tag = arguments->text;
        tag += static_cast<char>('0' + check_digit(tag));
        return create_fe_node(g_fed_const, tag.c_str());
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

// tagvalid(tag): whether the check digit is right. fe_func_sanity1 makes a predicate of it.
int tagvalid(const char *text) {
    std::string_view tag = text;
    return tag.size() > 1 && is_number(tag) &&
           check_digit(tag.substr(0, tag.size() - 1)) == tag.back() - '0';
}

}  // namespace

extern "C" int felib_register_inventory_funcs(felib_base *base) {
    base->fed_list = fe_register_func(base->fed_list, "assettag", fe_func_assettag, nullptr);
    base->fed_list = fe_register_func(base->fed_list, "tagvalid", fe_func_sanity1,
                                      reinterpret_cast<void *>(tagvalid));
    return 0;
}

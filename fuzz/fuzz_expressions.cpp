#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "fe/fe.h"

/* Expressions: the first line of the input is the value of $_, the rest is one expression. Whatever
 * it is, parsing and evaluating it ends, gives constants or a failure, and gives the same for a
 * copy. */

namespace {

struct list_deleter {
    void operator()(fe_node *list) const { destroy_fe_node_list(list); }
};
using node_list = std::unique_ptr<fe_node, list_deleter>;

void require(bool condition) {
    if (!condition) std::abort();
}

fe_def *make_list() {
    fe_def *list = fe_register_felib_funcs(nullptr);
    return fe_register_function(list, "user", parse_fe_expression("list($_, $0)", list));
}

std::string evaluate(const fe_node *expression, const char *value) {
    fe_context *outer = create_fe_context(nullptr, nullptr);
    fe_set(outer, "0", "a.b");
    fe_context *ctx = create_fe_context(outer, nullptr);
    fe_set(ctx, "_", value);
    node_list result(eval_fe_expression(ctx, expression));
    std::string texts = result == nullptr ? "failed" : "";
    for (const fe_node *node = result.get(); node != nullptr; node = node->next) {
        require(node->fed == g_fed_const && node->first_child == nullptr);
        if (texts.size() < 4096) texts.append(node->text).append("\n");
    }
    destroy_fe_context(ctx);
    destroy_fe_context(outer);
    return texts;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static fe_def *const list = make_list();
    std::string value(reinterpret_cast<const char *>(data), size);
    std::string text;
    if (std::size_t line = value.find('\n'); line != std::string::npos) {
        text = value.substr(line + 1);
        value.resize(line);
    }
    node_list expression(parse_fe_expression(text.c_str(), list));
    if (expression == nullptr) {
        require(std::strncmp(fe_error_text(), "column ", 7) == 0);
        return 0;
    }
    node_list copy(copy_fe_node_tree(expression.get()));
    require(evaluate(expression.get(), value.c_str()) == evaluate(copy.get(), value.c_str()));
    return 0;
}

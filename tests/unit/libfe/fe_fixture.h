// A function list, a context and short ways to ask what an expression is worth.
#ifndef FE_FIXTURE_H
#define FE_FIXTURE_H

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "fe/fe.h"

class FeTest : public testing::Test {
  protected:
    void SetUp() override {
        reports().clear();
        fe_set_report([](const char *line) { reports().emplace_back(line); });
        base = create_felib_base();
        base->fed_list = fe_register_felib_funcs(base->fed_list);
        ctx = create_fe_context(nullptr, nullptr);
    }
    void TearDown() override {
        destroy_fe_context(ctx);
        destroy_felib_base(base);
        fe_set_report(nullptr);
    }

    fe_node *parse(const std::string &text) {
        return parse_fe_expression(text.c_str(), base->fed_list);
    }

    // The texts of a result joined by "|", or "FAIL".
    std::string value_of(const fe_node *expression) {
        fe_node *result = eval_fe_expression(ctx, expression);
        std::string joined = result == nullptr ? "FAIL" : result->text;
        for (const fe_node *n = result; n != nullptr && n->next != nullptr; n = n->next) {
            joined += std::string("|") + n->next->text;
        }
        destroy_fe_node_list(result);
        return joined;
    }
    std::string eval(const std::string &text) {
        fe_node *expression = parse(text);
        if (expression == nullptr) return fe_error_text();
        std::string result = value_of(expression);
        destroy_fe_node_tree(expression);
        return result;
    }
    std::string error_of(const std::string &text) {
        fe_node *expression = parse(text);
        if (expression == nullptr) return fe_error_text();
        destroy_fe_node_tree(expression);
        return "no error";
    }

    // Why the last evaluation failed, or the failure that it forgave; empty for none.
    static std::string failure() {
        const fe_failure *f = fe_last_failure();
        if (f == nullptr) return "";
        return (f->forgiven ? "forgiven " : "") + std::string(f->function) + ": " + f->reason +
               (f->value ? std::string(": ") + f->value : "") +
               (*f->within ? std::string(" (in ") + f->within + ")" : "");
    }

    void register_native(const char *name, fe_function function, void *data = nullptr) {
        base->fed_list = fe_register_func(base->fed_list, name, function, data);
    }

    static std::vector<std::string> &reports() {
        static std::vector<std::string> lines;
        return lines;
    }

    felib_base *base = nullptr;
    fe_context *ctx = nullptr;
};

#endif

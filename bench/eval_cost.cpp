/* What an evaluation costs, by kind of expression.
 *
 * usage: eval_cost ROUNDS [KIND]
 *
 * Prints a line for each kind, or for the one: its name, nanoseconds an evaluation. For
 * instructions an evaluation, which do not depend on what else the machine does, run one kind with
 * "valgrind --tool=callgrind --toggle-collect=evaluate_rounds" and divide by ROUNDS. */

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fe/fe.h"
#include "llconf/nodes.h"
#include "rounds.h"
#include "ucfgd/owners.h"
#include "wire.h"

namespace {

using owned_context = owned<fe_context, destroy_fe_context>;
using owned_expression = owned<fe_node, destroy_fe_node_list>;
using owned_base = owned<felib_base, destroy_felib_base>;
using owned_tree = owned<cnfnode, destroy_cnftree>;

/* Whether a context with the variables of a request is made for each evaluation. */
enum class context { kept, each };

struct kind {
    const char *name;
    context made;
    const char *lines[3]; /* run in order, as several methods of a node do */
};

constexpr kind k_kinds[] = {
    {"rule", context::kept, {"in($perm, 'r', 'w')"}},
    {"rule-context", context::each, {"in($perm, 'r', 'w')"}},
    {"native", context::kept, {"look('hosts', $1 .. '/name')"}},
    {"common", context::each, {"set('host', $1)", "set('path', $1 .. '/name')", "$path"}},
    {"concatenation", context::kept, {"'a' .. $0 .. '/' .. $1"}},
    {"nested-if",
     context::kept,
     {"$_ == '' ? 'none' : $_ == '0' && $0 ? 'off' : not($2) ? 'on' : 'x'"}},
    {"function", context::kept, {"inrange($_, 1, 100)"}},
    {"constants", context::kept, {"if('a' .. 'b' == 'ab', 2 * 3 + 1, 0)"}},
};

struct variable {
    const char *name;
    std::string_view value;
    fe_symbol symbol;
};
variable g_variables[] = {
    {"0", "name", nullptr},       {"1", "192.0.2.10", nullptr},
    {"2", "hosts", nullptr},      {"3", "network", nullptr},
    {"_", "17", nullptr},         {"perm", "w", nullptr},
    {"sid", "5d1e0c62", nullptr}, {"parampath", "network.hosts.192%2e0%2e2%2e10.name", nullptr},
};

/* Evaluates its arguments as a function of the daemon does, and answers with a text. */
fe_node *look(fe_context *ctx, fe_node *call) {
    owned_expression arguments{eval_fe_expr_list(ctx, call->first_child)};
    return arguments ? create_fe_node(g_fed_const, "router.example") : nullptr;
}

owned_context new_context() {
    owned_context ctx{create_fe_context(nullptr, nullptr)};
    if (!ctx) give_up("create_fe_context");
    for (const variable &v : g_variables)
        fe_lend_symbol(ctx.get(), v.symbol, v.value.data(), v.value.size());
    return ctx;
}

void evaluate_lines(fe_context *ctx, const fe_node *lines) {
    for (; lines != nullptr; lines = lines->next) {
        if (!owned_expression{eval_fe_expression(ctx, lines)}) give_up("an evaluation failed");
    }
}

}  // namespace

extern "C" __attribute__((noinline)) void evaluate_rounds(fe_context *kept, const fe_node *lines,
                                                          long rounds) {
    for (long i = 0; i < rounds; i++)
        evaluate_lines(kept != nullptr ? kept : new_context().get(), lines);
}

namespace {

owned_base new_functions() {
    owned_base base{create_felib_base()};
    if (!base) give_up("create_felib_base");
    base->fed_list = fe_register_felib_funcs(base->fed_list);
    base->fed_list = fe_register_func(base->fed_list, "look", look, nullptr);
    owned_tree file{create_cnfnode("(root)")};
    cnfnode *entry = create_cnfnode("inrange");
    append_node(file.get(), entry);
    for (auto [name, value] :
         {std::pair{"args:", "value low high"}, {"expr:", "$value >= $low && $value <= $high"}}) {
        cnfnode *field = create_cnfnode(name);
        cnfnode_setval(field, value);
        append_node(entry, field);
    }
    base->fed_list = felib_parse_functions_cn(file.get(), base->fed_list);
    return base;
}

void measure(const kind &of, const felib_base &base, long rounds) {
    owned_expression lines;
    for (const char *text : of.lines) {
        if (text == nullptr) break;
        fe_node *line = parse_fe_expression(text, base.fed_list);
        if (line == nullptr) give_up(fe_error_text());
        lines.reset(append_fe_node_list(lines.release(), line));
    }
    owned_context ctx = new_context();
    fe_context *kept = of.made == context::kept ? ctx.get() : nullptr;
    evaluate_lines(ctx.get(), lines.get());
    const double us = timed_us([&] { evaluate_rounds(kept, lines.get(), rounds); });
    std::printf("%s %.1f\n", of.name, us * 1000 / static_cast<double>(rounds));
}

}  // namespace

int main(int argc, char **argv) {
    const long rounds = argc > 1 ? std::atol(argv[1]) : 0;
    if (rounds <= 0) give_up("usage: eval_cost ROUNDS [KIND]");
    for (variable &v : g_variables)
        v.symbol = fe_intern(v.name);
    owned_base base = new_functions();
    for (const kind &of : k_kinds) {
        if (argc < 3 || std::string(argv[2]) == of.name) measure(of, *base, rounds);
    }
    return 0;
}

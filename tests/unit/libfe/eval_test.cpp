// Evaluation: contexts, laziness, user functions, limits, and who keeps what alive.
#include <stdexcept>

#include "fe_fixture.h"
#include "llconf/nodes.h"

namespace {

using FeEval = FeTest;

int g_calls = 0;

fe_node *count_call(fe_context *, fe_node *) {
    ++g_calls;
    return create_fe_node(g_fed_const, "1");
}

fe_node *give_user_data(fe_context *ctx, fe_node *) {
    return create_fe_node(g_fed_const, static_cast<const char *>(ctx->user_data));
}

// Evaluates its arguments as an outermost evaluation would be.
fe_node *evaluate_again(fe_context *ctx, fe_node *call) {
    return eval_fe_expr_list(ctx, call->first_child);
}

TEST_F(FeEval, VariablesAreFoundInParentsAndSetInTheContextItself) {
    fe_set(ctx, "a", "outer");
    fe_context *inner = create_fe_context(ctx, nullptr);
    EXPECT_STREQ(fe_get(inner, "a"), "outer");
    fe_set(inner, "a", "inner");
    EXPECT_STREQ(fe_get(inner, "a"), "inner");
    EXPECT_STREQ(fe_get(ctx, "a"), "outer");
    EXPECT_EQ(fe_get(inner, "unheard of"), nullptr);
    destroy_fe_context(inner);
}

TEST_F(FeEval, AContextHoldsAnyNumberOfVariablesOfAnyLength) {
    for (int i = 0; i < 1000; ++i) {
        const std::string name = "arg" + std::to_string(i);
        ASSERT_EQ(fe_set(ctx, name.c_str(), std::string(static_cast<size_t>(i), 'x').c_str()), 0);
    }
    for (int i = 0; i < 1000; ++i) {
        const std::string name = "arg" + std::to_string(i);
        ASSERT_STREQ(fe_get(ctx, name.c_str()), std::string(static_cast<size_t>(i), 'x').c_str());
    }
    EXPECT_EQ(fe_set(ctx, "arg999", fe_get(ctx, "arg999") + 990), 0);
    EXPECT_STREQ(fe_get(ctx, "arg999"), "xxxxxxxxx");
}

TEST_F(FeEval, ALentTextIsReadInPlaceAndGivesWayToWhatIsSet) {
    const std::string longer(100, 'y');
    char text[] = "lent";
    for (int i = 0; i < 40; ++i) {
        fe_symbol name = fe_intern(("lent" + std::to_string(i)).c_str());
        fe_set_symbol(ctx, name, i % 2 ? longer.c_str() : "own");
        fe_lend_symbol(ctx, name, text, 4);
    }
    text[0] = 'b';
    EXPECT_EQ(eval("$lent1 .. $lent20 .. $lent39"), "bentbentbent");
    EXPECT_EQ(eval("cat($lent1, set('lent1', $lent1 .. 'x'), $lent1, $lent3)"), "bent1bentxbent");
    EXPECT_EQ(eval("seq(set('lent39', '" + longer + "'), $lent39)"), longer);
    EXPECT_STREQ(text, "bent");
}

TEST_F(FeEval, AChainJoinsResultsAndStopsAtTheFirstFailure) {
    register_native("counted", count_call);
    fe_node *chain = append_fe_node_list(parse("list('a', 'b')"), parse("counted()"));
    fe_node *result = eval_fe_expr_list(ctx, chain);
    EXPECT_EQ(fe_argc(result), 3);
    EXPECT_STREQ(fe_last_text(result), "1");
    destroy_fe_node_list(result);
    destroy_fe_node_list(chain);

    g_calls = 0;
    chain = append_fe_node_list(parse("fail()"), parse("counted()"));
    EXPECT_EQ(eval_fe_expr_list(ctx, chain), nullptr);
    EXPECT_EQ(g_calls, 0);
    EXPECT_EQ(eval_fe_expr_list(ctx, nullptr), nullptr);
    destroy_fe_node_list(chain);
}

TEST_F(FeEval, OnlyWhatIsNeededIsEvaluated) {
    register_native("counted", count_call);
    for (const char *text :
         {"0 && counted()", "1 || counted()", "1 ? 2 : counted()",
          "switch(1, 1, 2, counted(), counted(), counted())", "default('a', counted())",
          "foreach('i', '', counted())", "filter('i', '', counted())"}) {
        g_calls = 0;
        EXPECT_NE(eval(text), "FAIL") << text;
        EXPECT_EQ(g_calls, 0) << text;
    }
}

TEST_F(FeEval, SuccessLeavesErrnoAndFailureSetsIt) {
    errno = EEXIST;
    EXPECT_EQ(eval("default(1 / 0, not(fail()))"), "1");
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(eval("1 / 0"), "FAIL");
    EXPECT_EQ(errno, EDOM);
    EXPECT_EQ(eval("9223372036854775807 + 1"), "FAIL");
    EXPECT_EQ(errno, ERANGE);
}

TEST_F(FeEval, AnUnparsedNodeFails) {
    fe_node *unparsed = create_fe_node(g_fed_unparsed, "a.b: 1 +");
    EXPECT_EQ(value_of(unparsed), "FAIL");
    EXPECT_EQ(failure(), ": an expression that could not be read: a.b: 1 +");
    destroy_fe_node_tree(unparsed);
}

TEST_F(FeEval, PredicatesAnswerOneOrZeroForAnyArguments) {
    fe_predicate1 is_x = [](const char *text) { return *text == 'x' ? 7 : 0; };
    fe_predicate3 same = [](const char *a, const char *b, const char *c) {
        return a == std::string(b) && b == std::string(c) ? 1 : 0;
    };
    register_native("isx", fe_func_sanity1, reinterpret_cast<void *>(is_x));
    register_native("same", fe_func_sanity3, reinterpret_cast<void *>(same));
    EXPECT_EQ(eval("isx('x') .. isx('y') .. isx() .. isx('x', 'x') .. isx(fail())"), "10000");
    EXPECT_EQ(eval("same(1, 1, 1) .. same(1, 1, 2) .. same(1, 1) .. same(list(2, 2, 2))"), "1001");
}

TEST_F(FeEval, CallsAreBuiltAndCopiedNodeByNode) {
    fe_node *both = create_fe_node_with_func(base->fed_list, "and");
    both->first_child = append_fe_node_list(parse("$a == 1"), parse("1"));
    fe_node *copy = copy_fe_node_tree(both);
    destroy_fe_node_tree(both);
    fe_set(ctx, "a", "1");
    EXPECT_EQ(value_of(copy), "1");
    fe_set(ctx, "a", "2");
    EXPECT_EQ(value_of(copy), "0");
    destroy_fe_node_tree(copy);
    EXPECT_EQ(create_fe_node_with_func(base->fed_list, "nope"), nullptr);

    fe_node *truth = parse("1");
    fe_node *sum = parse("0 + 1");
    EXPECT_TRUE(fe_node_is_const_true(truth));
    EXPECT_FALSE(fe_node_is_const_true(sum));
    destroy_fe_node_tree(truth);
    destroy_fe_node_tree(sum);
}

TEST_F(FeEval, ACallIsBoundToTheArgumentsOfNow) {
    fe_node *call = parse("cat($a, 'x')");
    fe_set(ctx, "a", "now");
    fe_node *bound = copy_fe_node(call);
    bound->first_child = eval_fe_expr_list(ctx, call->first_child);
    fe_set(ctx, "a", "later");
    EXPECT_EQ(value_of(bound), "nowx");
    destroy_fe_node_tree(bound);
    destroy_fe_node_tree(call);
}

// A functions file with one function for every pair of name and lines ("args: ..." or "expr: ...").
struct functions_file {
    cnfnode *root = create_cnfnode("(root)");
    functions_file() = default;
    functions_file(const functions_file &) = delete;
    functions_file &operator=(const functions_file &) = delete;
    ~functions_file() { destroy_cnftree(root); }
    functions_file &add(const char *name, std::initializer_list<std::string> lines) {
        cnfnode *entry = create_cnfnode(name);
        append_node(root, entry);
        for (const std::string &line : lines) {
            cnfnode *field = create_cnfnode(line.substr(0, line.find(' ')).c_str());
            cnfnode_setval(field, line.substr(line.find(' ') + 1).c_str());
            append_node(entry, field);
        }
        return *this;
    }
};

TEST_F(FeEval, UserFunctionsRunInAContextOfTheirOwn) {
    functions_file file;
    file.add("inrange", {"args: value low high", "expr: $value >= $low && $value <= $high"})
        .add("steps", {"expr: set('step', 'one')", "expr: list($step, $caller)"})
        .add("own", {"expr: foreach('i', 'a', seq(local('own', $i), set('both', 'b')))",
                     "expr: $own .. $both"})
        .add("data", {"expr: userdata()"})
        .add("fact", {"args: n", "expr: $n <= 1 ? 1 : $n * fact($n - 1)"});
    register_native("userdata", give_user_data);
    base->fed_list = felib_parse_functions_cn(file.root, base->fed_list);
    char data[] = "data";
    ctx->user_data = data;
    fe_set(ctx, "caller", "seen");
    EXPECT_EQ(eval("inrange(5, 1, 9) .. inrange(0, 1, 9) .. inrange(list(1, 1, 9))"), "101");
    EXPECT_EQ(eval("inrange(1, 2)"), "0") << "a missing argument is empty";
    EXPECT_EQ(eval("inrange(1, 2, 3, 4)"), "FAIL");
    EXPECT_EQ(eval("steps()"), "one|seen");
    EXPECT_EQ(eval("data()"), "data");
    EXPECT_EQ(eval("fact(20)"), "2432902008176640000");
    EXPECT_EQ(fe_get(ctx, "n"), nullptr);
    EXPECT_EQ(eval("own() .. defined('own') .. defined('both')"), "ab01");
    EXPECT_TRUE(reports().empty());
}

TEST_F(FeEval, AnEvaluationIsPureWhenEachStepOfItIs) {
    functions_file file;
    file.add("fact", {"args: n", "expr: $n <= 1 ? 1 : $n * fact($n - 1)"})
        .add("clock", {"args: n", "expr: counted() + $n"});
    register_native("counted", count_call);
    register_native("stated", count_call);
    fe_mark_pure(base->fed_list, "stated");
    fe_mark_impure(fe_intern("session"));
    base->fed_list = felib_parse_functions_cn(file.root, base->fed_list);
    for (const auto &[text, pure] : std::initializer_list<std::pair<const char *, bool>>{
             {"in($perm, 'r', 'w') || seq(set('x', 3), fact($x) == 6)", true},
             {"if(1, stated(fact(4)), counted())", true},
             {"default(fail(), 'x')", true},
             {"$perm .. $session", false},
             {"foreach('i', list('a', 'b'), $session)", false},
             {"defined('a')", false},
             {"cat(clock(1), stated())", false},
             {"if(counted(), 'a', 'b')", false}}) {
        const unsigned long before = fe_impure_count();
        eval(text);
        EXPECT_EQ(fe_impure_count() == before, pure) << text;
    }
}

TEST_F(FeEval, AFailureTellsTheInnermostCallAndWhatWasWrongWithIt) {
    functions_file file;
    file.add("sum", {"args: a b", "expr: $a + $b"}).add("twice", {"args: a", "expr: sum($a, $a)"});
    register_native("silent", [](fe_context *, fe_node *) -> fe_node * { return nullptr; });
    base->fed_list = felib_parse_functions_cn(file.root, base->fed_list);
    const std::string wide(200, '\x01');
    for (const auto &[text, reason] : std::initializer_list<std::pair<std::string, std::string>>{
             {"list(1, twice('x' .. '\n'))", "add: no number: x? (in sum)"},
             {"1 / 0", "div: division by zero"},
             {"len('a', 'b')", "len: 2 arguments"},
             {"sum(1, 2, 3)", "sum: more arguments than the 2 that it takes (in sum)"},
             {"format('%d', '" + wide + "ä')", "format: no number: " + std::string(127, '?')},
             {"default(1 + 'x', fail())", "fail: "},
             {"default(1 + 'x', 2)", "forgiven add: no number: x"},
             {"'x' > 1", ""}}) {
        eval(text);
        EXPECT_EQ(failure(), reason) << text;
    }
    errno = 0;
    EXPECT_EQ(eval("silent()"), "FAIL");
    EXPECT_EQ(errno, EINVAL) << "no failure is answered with \"Success\"";
}

TEST_F(FeEval, WhatCannotBeDefinedIsReportedAndTheRestIsDefined) {
    functions_file file;
    file.add("early", {"expr: late()"})
        .add("late", {"expr: 'first'"})
        .add("user", {"expr: late()"})
        .add("late", {"expr: 'second'"})
        .add("len", {"args: a", "expr: 'mine'", "note: x"})
        .add("2nd", {"expr: 1"})
        .add("none", {"args: a"})
        .add("bad", {"args: a b.c", "expr: 1"})
        .add("late", {"expr: 1 +"});
    base->fed_list = felib_parse_functions_cn(file.root, base->fed_list);
    const std::vector<std::string> expected = {
        "function 'early': column 1: expected the name of a function, found \"late\"",
        "function 'late' is defined again: the later definition wins",
        "function 'len': unknown field 'note:'",
        "function 'len' is defined again: the later definition wins",
        "function '2nd': no name of a function",
        "function 'none': no \"expr:\"",
        "function 'bad': 'b.c' is no name of a parameter",
        "function 'late': column 4: expected an expression, found the end"};
    EXPECT_EQ(reports(), expected);
    EXPECT_EQ(eval("late() .. user() .. len('abc')"), "secondfirstmine");
}

TEST_F(FeEval, ANewCheckCallsTheOneItReplacesAsSuper) {
    fe_node *check = parse("$_ != ''");
    for (const char *text : {"super() && $_ < 100", "super() && $_ > 10"}) {
        base->fed_list = fe_register_function(base->fed_list, "super", check);
        check = parse(text);
        base->fed_list = fe_unregister_first(base->fed_list);
    }
    EXPECT_EQ(find_fe_def(base->fed_list, "super"), nullptr);
    destroy_felib_base(base);
    base = nullptr;
    for (const auto &[value, result] :
         {std::pair{"50", "1"}, {"5", "0"}, {"500", "0"}, {"", "0"}}) {
        fe_set(ctx, "_", value);
        EXPECT_EQ(value_of(check), result) << value;
    }
    destroy_fe_node_tree(check);
}

TEST_F(FeEval, ListsAndChainsOfAnyLengthAreReleased) {
    fe_node *check = parse("1");
    fe_node *access = parse("1");
    for (int i = 0; i < 20'000; ++i) {
        base->fed_list = fe_register_function(base->fed_list, "super", check);
        check = parse("super()");
        base->fed_list = fe_unregister_first(base->fed_list);
        fe_node *both = create_fe_node_with_func(base->fed_list, "and");
        both->first_child = access;
        access = both;
    }
    EXPECT_EQ(value_of(check), "FAIL");
    EXPECT_EQ(value_of(access), "FAIL");
    destroy_fe_node_tree(check);
    destroy_fe_node_tree(access);
}

TEST_F(FeEval, EndlessRecursionEndsWithOneReportHoweverForgiving) {
    functions_file file;
    file.add("down", {"args: n", "expr: $n == 0 ? 'bottom' : again(down($n - 1))"})
        .add("loop", {"expr: default(loop(), 'saved') .. (loop() || 1)"});
    register_native("again", evaluate_again);
    base->fed_list = felib_parse_functions_cn(file.root, base->fed_list);
    EXPECT_EQ(eval("down(80)"), "bottom") << "if, again and down are three calls a level";
    EXPECT_EQ(eval("down(90)"), "FAIL");
    errno = 0;
    EXPECT_EQ(eval("loop()"), "FAIL");
    EXPECT_EQ(errno, ELOOP);
    const std::vector<std::string> expected(
        2, "an expression was stopped: more than 256 nested calls");
    EXPECT_EQ(reports(), expected);
    EXPECT_EQ(eval("down(3)"), "bottom") << "the next evaluation starts anew";
}

TEST_F(FeEval, AShortageOfMemoryIsNeverForgiven) {
    register_native("short", [](fe_context *, fe_node *) -> fe_node * {
        errno = ENOMEM;
        return nullptr;
    });
    for (const char *text : {"default(short(), 'x')", "short() || 1", "filter('i', 1, short())",
                             "all('i', 1, short())", "if(short(), 1, 2)"}) {
        EXPECT_EQ(eval(text), "FAIL") << text;
        EXPECT_EQ(errno, ENOMEM);
    }
}

TEST_F(FeEval, AnExceptionOfANativeFunctionIsAFailureLikeOthers) {
    register_native("throwing", [](fe_context *, fe_node *) -> fe_node * {
        throw std::runtime_error("not for the daemon");
    });
    EXPECT_EQ(eval("default(throwing(), 'saved')"), "saved");
    EXPECT_EQ(eval("seq(1, throwing())"), "FAIL");
    EXPECT_EQ(eval("1 + 1"), "2") << "the meters of the evaluation were given back";
}

TEST_F(FeEval, RunawayLoopsEndAtTenMillionNodesOrWhenMemoryIsUp) {
    EXPECT_EQ(
        eval("default(foreach('i', range(1, 100000), first(foreach('j', range(1, 100), ''))), 1)"),
        "FAIL");
    EXPECT_EQ(eval("seq(set('x', 'ab'), foreach('i', range(1, 60), set('x', $x .. $x)))"), "FAIL");
    EXPECT_EQ(eval("seq(set('x', format('%9999s', 1)), "
                   "foreach('i', range(1, 100000), $x), 1)"),
              "FAIL");
    const std::vector<std::string> expected = {
        "an expression was stopped: more than 10000000 evaluated nodes",
        "an expression was stopped: out of memory",
        "an expression was stopped: more than 256 MiB of texts"};
    EXPECT_EQ(reports(), expected);
    EXPECT_EQ(fe_match_wildcards("r*y", "runaway", 0), 1) << "its meter is no one else's";
    EXPECT_EQ(eval("1 + 1"), "2");
}

}  // namespace

#include "tree_fixture.h"

class Type : public tree_test {};

TEST_F(Type, ValidationIsInheritedButLengthAndFlagsAreNot) {
    define_types(
        "child {\n parent-type: base\n flags: Case-Insensitive\n}\n"
        "%note {\n len: 1\n}\nbase {\n len: 2\n flags: other\n validation: $_ =~ '^[0-9]*$'\n}\n"
        "own {\n parent-type: base\n validation: $_ == 'x'\n}\nfree {\n parent-type: no\n}\n");
    EXPECT_EQ(find_ccd_type(g_types, "%note"), nullptr);
    EXPECT_EQ(find_ccd_type(g_types, "child")->flags, k_type_case_insensitive);
    const std::pair<const char *, const char *> cases[] = {
        {"istype('12345', 'child')", "1"}, {"istype('a', 'child')", "0"},
        {"istype('123', 'base')", "0"},    {"istype('x', 'own')", "1"},
        {"istype('1', 'own')", "0"},       {"istype('', 'free')", "1"},
        {"istype('', 'none')", "0"},       {"istype('x')", "0"},
        {"istype('x', 'own', 1)", "0"}};
    for (const auto &[text, answer] : cases)
        EXPECT_EQ(evaluate(text), answer) << text;
}

TEST_F(Type, AValidationRunsInTheTransactionAndABadPatternAcceptsNothing) {
    base->fed_list = fe_register_func(
        base->fed_list, "transaction",
        [](fe_context *ctx, fe_node *) {
            return create_fe_node(g_fed_const, ctx->user_data ? "1" : "0");
        },
        nullptr);
    define_types(
        "inside {\n validation: transaction()\n}\nbad {\n validation: $_ =~ '^(a'\n}\n"
        "none {\n validation: $_ ==\n}\n");
    define("a {\n get: istype('', 'inside')\n}\n");
    trns_ctx *transaction = reinterpret_cast<trns_ctx *>(this);
    EXPECT_EQ(text_of(ccd_param_get(g_ccdtree, transaction, "a")), "1");
    EXPECT_EQ(evaluate("istype('a', 'bad')") + evaluate("istype('a', 'none')"), "01");
    EXPECT_EQ(log(), (log_lines{"Error: Parsing tree failed at 'bad'.",
                                ucfgd_conffilesprefix +
                                    std::string{"/etc/types.conf:5:20: column 7: expected a "
                                                "pattern for \"match\" (a ( that is not "
                                                "closed), found \"'^(a'\""}}));
}

TEST_F(Type, ACircleOfParentsEndsTheSearch) {
    define_types(
        "a {\n parent-type: b\n}\nb {\n parent-type: c\n}\nc {\n parent-type: b\n}\n"
        "self {\n parent-type: self\n}\nd {\n parent-type: e\n}\n"
        "e {\n parent-type: f\n}\nf {\n parent-type: d\n choices: 1\n}\n");
    EXPECT_EQ(get_type_validation_func(find_ccd_type(g_types, "a")), nullptr);
    EXPECT_EQ(get_type_validation_func(find_ccd_type(g_types, "self")), nullptr);
    EXPECT_EQ(get_type_choices_func(find_ccd_type(g_types, "d")),
              find_ccd_type(g_types, "f")->func_choices);
}

// The syntax: what expressions mean, and what is said about those that are none.
#include "fe_fixture.h"

namespace {

using FeParse = FeTest;

TEST_F(FeParse, OperatorsBindInTheOrderOfTheTable) {
    EXPECT_EQ(eval("1 + 2 * 3 .. 4"), "74") << "add and cat are of one row and group to the left";
    EXPECT_EQ(eval("10 - 3 - 2"), "5");
    EXPECT_EQ(eval("100 / 5 * 2 % 7"), "5");
    EXPECT_EQ(eval("-2 * -3"), "6");
    EXPECT_EQ(eval("!0 == 1"), "1");
    EXPECT_EQ(eval("1 < 2 == 1 && 0 || 1"), "1");
    EXPECT_EQ(eval("0 ? 'a' : 0 ? 'b' : 'c'"), "c");
    EXPECT_EQ(eval("1 || fail() ? 'a' : 'b'"), "a");
    EXPECT_EQ(eval("1..2"), "12");
}

TEST_F(FeParse, AChainOfOneOperatorIsOneCall) {
    fe_node *chain = parse("'a' .. 'b' .. 'c' .. 'd'");
    ASSERT_NE(chain, nullptr);
    EXPECT_STREQ(chain->fed->name, "cat");
    EXPECT_EQ(fe_argc(chain->first_child), 4);
    destroy_fe_node_tree(chain);
}

TEST_F(FeParse, ConstantsAndVariablesReadAsWritten) {
    fe_set(ctx, "-", "minus");
    fe_set(ctx, "_", "value");
    fe_set(ctx, "10", "ten");
    fe_set(ctx, "sid", "s");
    EXPECT_EQ(eval(R"('^\.\d' .. "it's")"), R"(^\.\dit's)");
    EXPECT_EQ(eval(R"('\\\'\"\n\r\t\x41\xg')"), "\\'\"\n\r\tA\\xg");
    EXPECT_EQ(eval("$_ .. $- .. $10 .. ${sid} .. $unset"), "valueminustens");
    EXPECT_EQ(eval("007"), "007");
}

TEST_F(FeParse, ErrorsNameTheColumnAndWhatWasFoundThere) {
    const struct {
        const char *text;
        const char *error;
    } rows[] = {
        {"", "column 1: expected an expression, found the end"},
        {" \t", "column 3: expected an expression, found the end"},
        {"1 +", "column 4: expected an expression, found the end"},
        {"${sid}x", "column 7: expected an operator or the end, found \"x\""},
        {"1 2", "column 3: expected an operator or the end, found \"2\""},
        {"(1", "column 3: expected \")\" to close the \"(\" of column 1, found the end"},
        {"cat(1; 2)", "column 6: expected an expression or an operator, found \";\""},
        {"cat(1,)", "column 7: expected an expression, found \")\""},
        {"cat", "column 4: expected \"(\" behind the name \"cat\", found the end"},
        {"1 + nope(2)", "column 5: expected the name of a function, found \"nope\""},
        {"1 ? 2", "column 6: expected \":\" for the \"?\" of column 3, found the end"},
        {"'abc", "column 5: expected ' to close the text from column 1, found the end"},
        {"'\xC3\xA4' @", "column 5: expected an expression or an operator, found \"@\""},
        {"'a\\x00'", "column 3: expected \\x01 to \\xFF, found \"\\x00\""},
        {"$", "column 2: expected the name of a variable behind \"$\", found the end"},
        {"${a", "column 4: expected \"}\" to close the \"{\" of column 2, found the end"},
        {"1 \\\xC3\xA4\xC3\xA4\xC3\xA4x",
         "column 3: expected an expression or an operator, found \"\\\xC3\xA4\xC3\xA4\xC3\xA4\""},
        {"1 = 2", "column 3: expected an expression or an operator, found \"=\""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(error_of(row.text), row.error) << row.text;
    errno = 0;
    EXPECT_EQ(parse("1 +"), nullptr);
    EXPECT_EQ(errno, EINVAL);
}

std::string repeat(const char *text, int count) {
    std::string result;
    while (count-- > 0)
        result += text;
    return result;
}

TEST_F(FeParse, NestingEndsAtTwoHundredLevels) {
    const std::string deep = "expected at most 200 nested levels, found ";
    EXPECT_EQ(eval(repeat("(", 200) + "1" + repeat(")", 200)), "1");
    EXPECT_EQ(error_of(repeat("(", 201) + "1" + repeat(")", 201)), "column 201: " + deep + "\"(\"");
    EXPECT_EQ(eval(repeat("!", 200) + "1"), "1");
    EXPECT_EQ(error_of(repeat("!", 201) + "1"), "column 201: " + deep + "\"!\"");
    EXPECT_EQ(eval("201" + repeat(" - 1", 200)), "1");
    EXPECT_EQ(error_of("201" + repeat(" - 1", 201)), "column 805: " + deep + "\"-\"");
    EXPECT_EQ(eval("0" + repeat(" + 1", 5000)), "5000") << "a chain does not nest";
    EXPECT_EQ(error_of(repeat("1 ? 1 : ", 201) + "1"), "column 1603: " + deep + "\"?\"");
}

TEST_F(FeParse, OperatorsNeedTheirFunctions) {
    EXPECT_EQ(parse_fe_expression("1 + 2", nullptr), nullptr);
    EXPECT_STREQ(fe_error_text(),
                 "column 3: expected an operator whose function \"add\" is registered, "
                 "found \"+\"");
}

}  // namespace

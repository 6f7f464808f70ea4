// The functions of the library, as a table of expressions and their results.
#include <clocale>

#include "fe_fixture.h"

namespace {

struct row {
    const char *expression;
    const char *result;
};

class FeFunctions : public FeTest {
  protected:
    void check(std::initializer_list<row> rows) {
        for (const row &r : rows)
            EXPECT_EQ(eval(r.expression), r.result) << r.expression;
    }
};

TEST_F(FeFunctions, LogicAnswersOneOrZeroAndChoosesBranches) {
    check({{"and(1, 1)", "1"},
           {"and(1, 'yes')", "0"},
           {"or('', 2, 1)", "1"},
           {"not(0)", "1"},
           {"not(list(1, 0))", "1"},
           {"if(1, list('a', 'b'), 'c')", "a|b"},
           {"if(0, 'a')", ""},
           {"switch('b', 'a', 1, 'b', 2, 3)", "2"},
           {"switch('z', 'a', 1, 'b', 2, 3)", "3"},
           {"switch('z', 'a', 1)", ""},
           {"seq('a', list('b', 'c'))", "b|c"},
           {"seq(fail(), 'b')", "FAIL"},
           {"list()", ""},
           {"list('', 'a')", "|a"},
           {"default('', 'b')", "b"},
           {"default(fail(), 'b')", "b"},
           {"default(list('', 'a'), 'b')", "|a"}});
}

TEST_F(FeFunctions, AFailingConditionIsFalse) {
    check({{"and(1, fail())", "0"},
           {"or(fail(), 1)", "1"},
           {"!fail()", "1"},
           {"if(fail(), 'a', 'b')", "b"},
           {"filter('i', list(1, 2), fail())", ""}});
}

TEST_F(FeFunctions, ComparisonIsOfTextsOrOfNumbers) {
    check({{"'07' == 7", "0"},
           {"'a' != 'b'", "1"},
           {"9 < 10", "1"},
           {"-1 > -2", "1"},
           {"'07' <= 7", "1"},
           {"7 >= 8", "0"},
           {"'a' < 'b'", "0"},
           {"'a' >= 'a'", "0"},
           {"'' < 1", "0"},
           {"'+1' < 2", "0"},
           {"' 1' < 2", "0"},
           {"'9223372036854775808' > 1", "0"}});
}

TEST_F(FeFunctions, ArithmeticFailsWhereTheResultIsNoNumber) {
    check({{"add(1, 2, 3)", "6"},
           {"2 - 3", "-1"},
           {"mul(2, -3)", "-6"},
           {"-7 / 2", "-3"},
           {"-7 % 2", "-1"},
           {"'-9223372036854775808' % -1", "0"},
           {"'-9223372036854775808' / -1", "FAIL"},
           {"9223372036854775807 + 1", "FAIL"},
           {"9223372036854775807 * 2", "FAIL"},
           {"'-9223372036854775808' - 1", "FAIL"},
           {"1 / 0", "FAIL"},
           {"1 % 0", "FAIL"},
           {"1 + 'x'", "FAIL"}});
}

TEST_F(FeFunctions, TextsAreCountedInCharacters) {
    check({{R"(len('\xC3\xA4b\xFF'))", "3"},
           {R"(len('\xE2\x82'))", "2"},
           {R"(substr('a\xC3\xA4bc', 1, 2) == '\xC3\xA4b')", "1"},
           {"substr('abc', -2)", "bc"},
           {"substr('abc', -9, 1)", "a"},
           {"substr('abc', 3)", ""},
           {"substr('abc', 0, -1)", ""},
           {"substr('abc', 'x')", "FAIL"},
           {R"(index('\xC3\xA4bc', 'c'))", "2"},
           {"index('abc', 'x')", "-1"},
           {"replace('aaa', 'a', 'aa')", "aaaaaa"},
           {"replace('abc', '', 'x')", "abc"},
           {R"('[' .. trim(' \t a b\n') .. ']')", "[a b]"},
           {R"(format('[%3s]', '\xC3\xA4') == '[  \xC3\xA4]')", "1"}});
}

TEST_F(FeFunctions, ALongPartIsLookedForInOnePass) {
    fe_set(ctx, "text", std::string(4 << 20, 'a').c_str());
    fe_set(ctx, "part", (std::string(2 << 20, 'a') + 'b').c_str());
    EXPECT_EQ(eval("index($text, $part)"), "-1");
    EXPECT_EQ(eval("count(split($text, $part))"), "1");
    EXPECT_EQ(eval("replace($text, $part, '') == $text"), "1");
}

TEST_F(FeFunctions, CaseFollowsTheLocaleAndLeavesOtherBytesAlone) {
    const std::string before = setlocale(LC_CTYPE, nullptr);
    ASSERT_NE(setlocale(LC_CTYPE, "C.UTF-8"), nullptr);
    check({{R"(upper('a\xC3\xA4\xFF') == 'A\xC3\x84\xFF')", "1"}, {"lower('ABC')", "abc"}});
    setlocale(LC_CTYPE, before.c_str());
}

TEST_F(FeFunctions, SplitJoinAndFormatTakeTextsApartAndPutThemTogether) {
    check({{"split('a::b', ':')", "a||b"},
           {"split('', ':')", ""},
           {"split('a', '')", "FAIL"},
           {"join(':', split('a::b', ':'))", "a::b"},
           {"join(',')", ""},
           {"format('%s=%05d %x%%', 'n', -42, 255)", "n=-0042 ff%"},
           {"format('%4d|%04x', 7, 10)", "   7|000a"},
           {"format('%d', 'x')", "FAIL"},
           {"format('%s')", "FAIL"},
           {"format('x', 1)", "FAIL"},
           {"format('%99999d', 1)", "FAIL"},
           {"format('%q', 1)", "FAIL"},
           {"format('100%')", "FAIL"}});
}

TEST_F(FeFunctions, RegularExpressionsMatchAndSubstituteEverywhere) {
    check({{R"('10.0.0.1' =~ '^[0-9]+(\.[0-9]+){3}$')", "1"},
           {"match('abc', 'B')", "0"},
           {"match('abc', '(')", "FAIL"},
           {R"(regsub('a1b22', '([a-z])([0-9]+)', '\2\1\\'))", R"(1a\22b\)"},
           {"regsub('abc', 'x*', '-')", "-a-b-c-"},
           {"regsub('aXa', '^a', 'b')", "bXa"},
           {R"(regsub('ab', '(x)?b', '[\1]'))", "a[]"}});
}

TEST_F(FeFunctions, PatternsThatWouldTakeTooMuchAreRefused) {
    const std::string thousand(1000, 'x');
    EXPECT_EQ(eval("match('x', '" + thousand + "')"), "0");
    EXPECT_EQ(eval("match('x', 'x" + thousand + "')"), "FAIL");
    check({{"match('x', '(x{10}){100}')", "0"},
           {"match('x', '(x{10}){101}')", "FAIL"},
           {"match('x', 'x{10}{10}{11}')", "FAIL"},
           {"match('x', '([{1000}]{10}|x{9}){101}')", "FAIL"},
           {"match('{', '[{9999}]')", "1"},
           {"match('xx', '(x)\\\\1')", "FAIL"}});
    std::string plus = "x";
    for (int i = 0; i < 30; ++i)
        plus.insert(0, "(").append(")+");
    EXPECT_EQ(eval("match('x', '" + plus + "')"), "FAIL");
}

TEST_F(FeFunctions, ListFunctionsPassOverEmptyTexts) {
    check({{"count(filter('i', range(1, 3), 0))", "0"},
           {"count('', 'a', list('', 'b'))", "2"},
           {"nth(0, '', 'a', 'b')", "a"},
           {"nth(-1, 'a', 'b')", "b"},
           {"nth(2, 'a', 'b')", ""},
           {"nth(-3, 'a', 'b')", ""},
           {"first('', 'a', 'b')", "a"},
           {"last('a', 'b', '')", "b"},
           {"reverse('a', '', 'b')", "b|a"},
           {"sort('b', 'B', 'a', '10', '9')", "10|9|B|a|b"},
           {"uniq('b', 'a', 'b', '', 'a')", "b|a"},
           {"in('a', list('b', 'a'))", "1"},
           {"in('', list('', 'a'))", "0"},
           {"range(3, 5)", "3|4|5"},
           {"range(1, 0)", ""},
           {"count(range(1, 100000))", "100000"},
           {"range(1, 100001)", "FAIL"},
           {"range('-9223372036854775807', 9223372036854775807)", "FAIL"},
           {"foreach('i', list('a', '', 'b'), $i .. $i)", "aa|bb"},
           {"foreach('i', '', $i)", ""},
           {"foreach('i', list(1, 2), if($i == 2, fail(), $i))", "FAIL"},
           {"filter('i', range(1, 9), $i % 3 == 0)", "3|6|9"}});
}

TEST_F(FeFunctions, SetReachesTheMethodWhileLoopsKeepTheirVariableToThemselves) {
    check({{"seq(foreach('i', list('a', 'b'), set('seen', $i)), $seen .. $i)", "b"},
           {"set('', 1)", "FAIL"},
           {"defined('seen') .. defined('i')", "10"},
           {"cat($seen, set('seen', 'a rather long text that needs room'), $seen)",
            "b1a rather long text that needs room"}});
    EXPECT_STREQ(fe_get(ctx, "seen"), "a rather long text that needs room");
}

TEST_F(FeFunctions, AWrongNumberOfArgumentsFails) {
    check({{"not()", "FAIL"},
           {"and()", "FAIL"},
           {"if(1)", "FAIL"},
           {"switch(1, 2)", "FAIL"},
           {"fail(1)", "FAIL"},
           {"eq(1)", "FAIL"},
           {"len('a', 'b')", "FAIL"},
           {"sub(list(1, 2, 3))", "FAIL"},
           {"sub(list(3, 1))", "2"},
           {"foreach('i', 1)", "FAIL"}});
}

}  // namespace

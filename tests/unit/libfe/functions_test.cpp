// The functions of the library, as a table of expressions and their results.
#include <sys/resource.h>

#include <chrono>
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
           {R"(regsub('a1b22', '([a-z])([0-9]+)', '\2\1\\'))", R"(1a\22b\)"},
           {"regsub('abc', 'x*', '-')", "-a-b-c-"},
           {"regsub('aXa', '^a', 'b')", "bXa"},
           {R"(regsub('ab', '(x)?b', '[\1]'))", "a[]"},
           {R"(regsub('a.b', '[.\]', '-') .. ('{,2}' =~ '[{]') .. ('xx' =~ '^x{,2}$'))", "a-b11"},
           {R"(('a)' =~ '^a)$') .. (']-' =~ '^[]-]+$') .. ('\n' =~ '^.$') .. ('a\n' =~ 'a$'))",
            "1110"},
           {"regsub('foobar', 'foo|foobar', '')", ""},
           {R"('x_y' =~ '^\w+$')", "1"}});
}

TEST_F(FeFunctions, CharactersAreThoseOfUtf8AndClassesAreAscii) {
    const std::string before = setlocale(LC_ALL, nullptr);
    for (const char *locale : {"en_US.UTF-8", "C.UTF-8", "C"}) {
        setlocale(LC_ALL, locale);
        fe_set(ctx, "superscript", "\xC2\xB2");
        fe_set(ctx, "fullwidth", "\xEF\xBC\x95");
        check(
            {{"($superscript =~ '^[0-9]$') .. ($fullwidth =~ '^[0-9]$')", "00"},
             {"($superscript =~ '[[:digit:]]') .. ($fullwidth =~ '[[:alnum:]]')", "00"},
             {"($superscript =~ '^.$') .. ($fullwidth =~ '^[^a-z]$')", "11"},
             {R"(('\xC3\xA4' =~ '^[[:alpha:]]$') .. ('\xC3\xA4' =~ '^[\xC3\xA0-\xC3\xBF]$'))",
              "01"},
             /* a byte that is no character is refused like a character that does not fit */
             {R"(('a\xFF' =~ '[^a-z]') .. ('\xFF' =~ '^.$') .. ('\xFF' =~ '^\xFF$'))", "111"},
             {R"(regsub('a\xFFb\xC3\xA4', '(\xFF)', '<\1\xFE>') == 'a<\xFF\xFE>b\xC3\xA4')", "1"}});
    }
    setlocale(LC_ALL, before.c_str());
}

TEST_F(FeFunctions, ShellPatternsMatchWholeTextsAsInAShell) {
    auto matches = [](const char *pattern, const char *text, int path = 0) {
        return fe_match_wildcards(pattern, text, path);
    };
    for (const auto &[pattern, text] :
         std::initializer_list<std::pair<const char *, const char *>>{{"eth*", "eth0"},
                                                                      {"*", ""},
                                                                      {"?", "\xC3\xA4"},
                                                                      {"[!a-c]?", "d/"},
                                                                      {"[^x]", "y"},
                                                                      {"\\*", "*"},
                                                                      {"[\\]]", "]"},
                                                                      {"[a", "[a"},
                                                                      {"[[:digit:]x]", "7"},
                                                                      {"a.c", "a.c"},
                                                                      {"**b", "aab"},
                                                                      {"[]-]", "-"},
                                                                      {"*", ".x/y"}}) {
        EXPECT_EQ(matches(pattern, text), 1) << pattern;
    }
    for (const char *text : {"", "ab", "b", "A", "aa"})
        EXPECT_EQ(matches("[a]", text), 0) << text;
    EXPECT_EQ(matches("a\\", "a\\") + matches("[[:nope:]]", "n"), 0);
    for (const char *pattern : {"a*b", "a?b", "a[/]b", "a[.-0]b", "a[!x]b", "a[[:punct:]]b"})
        EXPECT_EQ(matches(pattern, "a/b", 1), 0) << pattern;
    EXPECT_EQ(matches("*/b", "a/b", 1) + matches("a[.-0]b", "a.b", 1), 2);
    EXPECT_EQ(matches(std::string(1001, 'x').c_str(), ""), -1);
}

TEST_F(FeFunctions, APatternThatIsNoneSaysWhy) {
    const std::string thousand(1000, 'x');
    EXPECT_EQ(eval("match('x', '" + thousand + "')"), "0");
    for (const auto &[text, reason] : std::initializer_list<std::pair<std::string, std::string>>{
             {"x" + thousand, "it has more than 1000 characters"},
             {"(", "a ( that is not closed"},
             {"[a", "a [ that is not closed"},
             {"*", "a repetition of nothing"},
             {"a{1", "a { that is no repetition"},
             {"(x{10}){101}", "a repetition that is out of order or more than 1000 times"},
             {"[z-a]", "a range that ends before it begins"},
             {"[[:nope:]]", "a class that does not exist"},
             {"(x)\\1", "a reference to a group"},
             {".{1,1000}", "it needs more memory than a pattern may take"}}) {
        fe_set_pattern_memory(64 << 10, nullptr);
        fe_set(ctx, "p", text.c_str());
        EXPECT_EQ(eval("match('x', $p)"), "FAIL") << text;
        EXPECT_EQ(failure(), "match: no pattern: " + reason + ": " + text.substr(0, 127));
        EXPECT_EQ(eval("list($_, match('x', '" + text + "'))"),
                  "column 21: expected a pattern for \"match\" (" + reason + "), found \"'" +
                      text.substr(0, 39) + (text.size() > 38 ? "..." : "'") + "\"");
        fe_set_pattern_memory(8 << 20, nullptr);
    }
    EXPECT_EQ(errno, EBADMSG);
}

TEST_F(FeFunctions, EveryPatternMatchesInLinearTimeAndBoundedMemory) {
    std::string mixed;
    while (mixed.size() < 128 << 10)
        mixed += "ab,ab;aa,b"[mixed.size() * mixed.size() % 11 % 10];
    const auto start = std::chrono::steady_clock::now();
    for (const std::string &text : {std::string(128 << 10, 'a'), mixed}) {
        fe_set(ctx, "text", text.c_str());
        for (const char *call :
             {"match($text, '.+@.+')", "match($text, '^(([a-z]*,?)*;?){0,18}$')",
              "match($text, '((.+)+)+@')", "match($text, '(a|b)*a(a|b|,|;){900}$')",
              "regsub($text, 'a.*@|@', '')", "regsub($text, '[^a]*a?@', '')"}) {
            eval(call);
        }
        fe_set(ctx, "stars", ("*a*b*" + std::string(200, '*') + "a*@").c_str());
        EXPECT_EQ(fe_match_wildcards(fe_get(ctx, "stars"), text.c_str(), 0), 0);
    }
    /* thousands of patterns, each of which would like megabytes */
    for (int i = 0; i < 2000; ++i)
        eval("match($text, '[ab,;]*a[ab,;]{" + std::to_string(1 + i % 60) + "}" +
             std::to_string(i) + "$')");
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
    struct rusage usage;
    getrusage(RUSAGE_SELF, &usage);
    EXPECT_LT(usage.ru_maxrss, 512 << 10) << "KiB";
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
           {"filter('i', range(1, 9), $i % 3 == 0)", "3|6|9"},
           {"all('i', split('a//b', '/'), $i) .. all('i', list('1', ''), $i == 1)", "00"},
           {"all('i', '', 0) .. any('i', '', 1) .. all('i', list(1, 1), $i)", "101"},
           {"any('i', list(0, 1, fail()), $i) .. any('i', range(1, 3), $i > 2)", "FAIL"},
           {"any('i', range(1, 3), $i > 2 || fail()) .. any('i', list('', 'a'), $i == '')", "11"},
           {"all('i', list(1, 0, 2), seq(set('last', $i), $i)) .. $last", "00"}});
}

TEST_F(FeFunctions, InAsksAListThatKnowsInsteadOfMakingIt) {
    static int made = 0;
    register_native("known", [](fe_context *, fe_node *) {
        made++;
        return append_fe_node_list(create_fe_node(g_fed_const, "a"),
                                   create_fe_node(g_fed_const, ""));
    });
    fe_set_membership(base->fed_list, "known", [](fe_context *, fe_node *, const char *text) {
        return create_fe_node(g_fed_const, *text == 'a' ? "1" : "0");
    });
    fe_node *body = parse("uniq(list('b', known()), reverse(sort('c')))");
    base->fed_list = fe_register_function(base->fed_list, "mine", body);
    check({{"in('a', known()) .. in('b', known())", "10"},
           {"in('a', mine()) .. in('c', mine()) .. in('d', mine())", "110"},
           {"in(list('x', 'b', 'x'), known())", "1"},
           {"in('a', known(), fail()) .. in(fail(), known())", "FAIL"},
           {"in('a', 'a', list(known(), fail()))", "FAIL"}});
    EXPECT_EQ(made, 0);
    check({{"in('', known())", "0"}, {"count(mine())", "3"}});
    EXPECT_EQ(made, 2);
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

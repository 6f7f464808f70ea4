#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <tavevent/tavevent.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <fstream>
#include <sstream>
#include <string>

#include "daemon/dirs.h"
#include "fe/fe.h"
#include "functions/functions.h"
#include "llconf/modules.h"
#include "session/limits.h"
#include "tree/ccdtree.h"
#include "tree/param_ops.h"
#include "ucfgd/owners.h"

/* The native function families, through expressions, as methods use them. */

#if !defined __SANITIZE_ADDRESS__
/* Counts down to the one allocation that fails. */
static long g_until_failure = -1;

extern "C" void *__libc_malloc(size_t size);
extern "C" void *malloc(size_t size) {
    if (g_until_failure < 0 || g_until_failure-- > 0) return __libc_malloc(size);
    errno = ENOMEM;
    return nullptr;
}

extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *calloc(size_t count, size_t size) {
    if (g_until_failure < 0 || g_until_failure-- > 0) return __libc_calloc(count, size);
    errno = ENOMEM;
    return nullptr;
}
#endif

namespace {

class Functions : public ::testing::Test {
  protected:
    Functions() {
        setlocale(LC_ALL, "C.UTF-8");
        register_all();
        char name[] = "/tmp/functions-XXXXXX";
        directory_ = mkdtemp(name);
        g_filesprefix = directory_.data();
        tavevent_set_file((directory_ + "/events").c_str());
        base_->fed_list = fe_register_felib_funcs(base_->fed_list);
        base_->fed_list = fe_register_network_sanity_funcs(base_->fed_list);
        base_->fed_list = fe_register_llmiscfuncs(base_->fed_list);
        base_->fed_list = fe_register_adm_network_funcs(base_->fed_list);
        base_->fed_list = fe_register_adm_misc_funcs(base_->fed_list);
    }
    ~Functions() override {
        g_filesprefix = nullptr;
        tavevent_set_file(nullptr);
        if (system(("rm -rf " + directory_).c_str()) != 0) perror("rm");
    }

    /* The texts of the result, joined by "|"; "(failed)" for none. */
    std::string eval(const std::string &text) {
        owned<fe_node, destroy_fe_node_tree> expression{
            parse_fe_expression(text.c_str(), base_->fed_list)};
        if (!expression) return fe_error_text();
        owned<fe_context, destroy_fe_context> ctx{create_fe_context(nullptr, nullptr)};
        owned<fe_node, destroy_fe_node_list> result{
            eval_fe_expression(ctx.get(), expression.get())};
        if (!result) return std::string("(failed) ") + fe_last_failure()->reason;
        std::string joined;
        for (const fe_node *node = result.get(); node != nullptr; node = node->next)
            joined.append(node == result.get() ? "" : "|").append(node->text);
        return joined;
    }

    void expect_all(std::initializer_list<std::array<const char *, 2>> rows) {
        for (const auto &[expression, result] : rows)
            EXPECT_EQ(result, eval(expression)) << expression;
    }

    std::string read(const std::string &name) {
        std::ostringstream text;
        text << std::ifstream{directory_ + name}.rdbuf();
        return text.str();
    }

    std::string directory_;
    owned<felib_base, destroy_felib_base> base_{create_felib_base()};
};

TEST_F(Functions, JudgeMasksAndNetworksAtTheirEnds) {
    expect_all({
        {"isnetmask('0.0.0.0')", "1"},
        {"isnetmask('255.255.255.255')", "1"},
        {"isnetmask('127.255.255.0')", "1"},
        {"isnetmask('128.0.0.0')", "1"},
        {"isnetmask('255.0.255.0')", "0"},
        {"isnetmask('0.0.0.1')", "0"},
        {"isnetmask('255.255.255')", "0"},
        {"iscidr('10.0.0.0/8')", "1"},
        {"iscidr('0.0.0.0/0')", "1"},
        {"iscidr('1.2.3.4/32')", "1"},
        {"iscidr('10.0.0.1/8')", "0"},
        {"iscidr('1.2.3.4/0')", "0"},
        {"iscidr('10.0.0.0/33')", "0"},
        {"iscidr('10.0.0.0/8x')", "0"},
        {"iscidr('10.0.0.0/99999999999')", "0"},
        {"isnetwork('10.0.0.1/255.0.0.0')", "1"},
        {"isnetwork('10.0.0.0/8')", "0"},
        {"isnetwork6('fe80::/64.5 and more')", "1"},
        {"isnetwork6('fe80::/129')", "0"},
        {"isnetwork6('')", "0"},
        {"isinnetwork('10.1.0.0', '255.255.0.0', '10.1.7.9')", "1"},
        {"isinnetwork('10.1.0.0', '255.255.0.0', '10.2.7.9')", "0"},
        {"isinsubnet('10.2.3.4/9', '10.127.0.1') .. isinsubnet('10.2.3.4/9', '10.128.0.1')", "10"},
        {"isinsubnet('fe80::1/64', 'fe80::2') .. isinsubnet('fe80::1/128', 'fe80::2')", "10"},
        {"isinsubnet('10.2.3.4/33', '10.2.3.4') .. isinsubnet('0.0.0.0/0', '::')", "00"},
        {"network('192.168.1.77', '255.255.255.0')", "192.168.1.0"},
        {"network('192.168.1.77')", "0"},
    });
}

TEST_F(Functions, JudgeNamesAndHardwareAddresses) {
    std::string longest(63, 'a');
    EXPECT_EQ("1", eval("ishostname('" + longest + "')"));
    EXPECT_EQ("0", eval("ishostname('" + longest + "a')"));
    EXPECT_EQ("1", eval("_ishostname('" + longest + "a')"));
    EXPECT_EQ("0", eval("isdomainname('" + longest + "a.net')"));
    expect_all({
        {"ishwaddr('00:11:22:aA:fF:55')", "1"},
        {"ishwaddr('00-11-22-33-44-55')", "0"},
        {"ishwaddr('0:11:22:33:44:55')", "0"},
        {"ishostname('r2-d2')", "1"},
        {"ishostname('-router')", "0"},
        {"ishostname('router-')", "0"},
        {"ishostname('münchen')", "1"},
        {"ishostname('a\\xff')", "0"},
        {"isdomainname('example.com.')", "1"},
        {"isdomainname('.example.com')", "0"},
        {"isdomainname('a..b')", "0"},
        {"isdomainname('')", "0"},
        {"isdomainname('.')", "0"},
    });
}

TEST_F(Functions, ChangeOneOptionOfACommandLineAndNoOtherByte) {
    expect_all({
        {"getopt('-v -p 22  -p 23 host', 'vp:', 'p')", "23"},
        {"getopt('-vp22', 'vp:', 'v')", "1"},
        {"getopt('-vp22', 'vp:', 'p')", "22"},
        {"getopt('host -v', 'v', 'v')", "1"},
        {"getopt('-- -v', 'v', 'v')", ""},
        {"getopt(\"-u 'a b'\", 'u:', 'u')", "a b"},
        {"setopt('-v   -p 22 host', 'vp:', 'p', '2222')", "-v   -p 2222 host"},
        {"setopt('-vp22 host', 'vp:', 'p', '')", "-vp '' host"},
        {"setopt('-v  host  x', 'vp:', 'p', 'a b')", "-v  -p 'a b' host  x"},
        {"setopt('-v', 'vq', 'q', '1')", "-v -q"},
        {"setopt('-vq x', 'vq', 'q', '0')", "-v x"},
        {"delopt('-v  -p 22  -vp 23 host', 'vp:', 'p')", "-v  -v host"},
        {"delopt('-p 22', 'p:', 'p')", ""},
        {"delopt(' -v -qv  x -vp 22 ', 'vqp:', 'v')", " -q  x -p 22 "},
        {"delopt(' -a  -bv -- -b', 'abv', 'b')", " -a  -v -- -b"},
        {"get_nonoptarg('-p 22 a -v b', 'vp:', '1')", "b"},
        {"get_nonoptarg('-p 22 a -v b', 'vp:', '2')", ""},
        {"set_nonoptarg('-p 22 a  b', 'p:', '1', 'c d')", "-p 22 a  'c d'"},
        {"set_nonoptarg('-v', 'v', '0', 'x')", "-v x"},
        {"set_nonoptarg('-v', 'v', '0', '-x')", "(failed) the word would be read as an option"},
        {"set_nonoptarg('a', 'v', '2', 'x')", "(failed) the line has 1 words that are no options"},
        {"setopt('-v -p', 'vqp:', 'q', '1')", "-v -q -p"},
        {"setopt('x -vp', 'vqp:', 'p', '1')", "x -vp 1"},
        {"set_nonoptarg('-v -p', 'vp:', '0', 'x')", "(failed) the last option lacks its argument"},
        {"set_nonoptarg('x -p', 'p:', '0', 'y')", "y -p"},
        {"get_nonoptarg('a b', '', ' 1')", "(failed) no number of a word"},
        {"getopt('-v', 'v', '-v')", "(failed) no option letter"},
        {"shoptions(\"a 'b c' d\\\\ e \\\"f\")", "a|b c|d e|f"},
        {"makeshoptions('a', \"it's\", '')", "a 'it'\\''s' ''"},
        {"getopt('-v')", "(failed) 1 argument"},
    });
}

TEST_F(Functions, EncodeTextsAndRefuseWhatIsNotHexadecimal) {
    expect_all({
        {"slashify('a/b[1]=*')", "a\\/b\\[1\\]\\=\\*"},
        {"slashify('.')", "\\."},
        {"slashify('')", "(failed) the empty text is no part of a path"},
        {"urlencode('a b/ü~')", "a%20b%2F%C3%BC~"},
        {"urldecode('a%20b%2f%zz%00')", "a b/%zz%00"},
        {"hexencode('az')", "617a"},
        {"hexdecode('617A')", "az"},
        {"hexdecode('617')", ""},
        {"hexdecode('6100')", ""},
        {"hexdecode('xy')", ""},
    });
}

TEST_F(Functions, WriteLinesThroughATemporaryFileThatKeepsTheMode) {
    expect_all({{"writelines('/f', 'one', '', 'three')", "1"}, {"readlines('/f')", "one||three"}});
    EXPECT_EQ("one\n\nthree\n", read("/f"));
    ASSERT_EQ(0, chmod((directory_ + "/f").c_str(), 0640));
    expect_all({{"writelines('/f', 'two')", "1"}, {"writelines('/f', \"two\\nlines\")", "0"}});
    EXPECT_EQ("two\n", read("/f"));
    struct stat st;
    ASSERT_EQ(0, stat((directory_ + "/f").c_str(), &st));
    EXPECT_EQ(0640U, st.st_mode & 07777U);
    expect_all({
        {"symlink('f', '/link')", "1"},
        {"isfile('/link')", "1"},
        {"issymlink('/link') .. readlink('/link') .. iswritable('/link')", "1f1"},
        {"isdir('/')", "1"},
        {"setlink('g', '/link')", "1"},
        {"readlink('/link')", "g"},
        {"setlink('f', '/')", "0"},
        {"unlink('/link')", "1"},
        {"unlink('/link')", "0"},
        {"readlines('/gone')", "(failed) No such file or directory"},
        {"readlines('/')", "(failed) Is a directory"},
        {"writeevt('5', 's', 'a') .. writeevt(' 5', 's', 'a') .. writeevt('-5 ', 's', 'a')", "100"},
        {"fnmatch('*.conf', 'a.conf')", "1"},
    });
}

TEST_F(Functions, RunCommandsThatNeitherBlockNorInheritDescriptors) {
    std::string open_descriptor = "test -e /proc/self/fd/" + std::to_string(dup(0));
    EXPECT_EQ("0", eval("system('" + open_descriptor + "')"));
    expect_all({
        {"system('exit 3')", "0"},
        {"system('test \"$(cat)\" = hello', 'hello')", "1"},
        {"readlinespipe('printf \"a\\\\r\\\\nb\"')", "a|b"},
        {"readlinespipe('true')", ""},
    });
    /* More input than a pipe holds, and nobody who reads it. */
    EXPECT_EQ("1", eval("system('exec true', substr(join('', range(1, 100000)), 0))"));
}

TEST_F(Functions, EndCommandsInTimeWithAllThatTheyStartedAndWaitForNothingElse) {
    const auto begin = std::chrono::steady_clock::now();
    ASSERT_EQ(0, limit_set(k_limit_command_time, 60));
    EXPECT_EQ("a", eval("readlinespipe('sleep 60 2>/dev/null & echo a')"));
    EXPECT_EQ("(failed) File too large", eval("readlinespipe('yes')"));
    EXPECT_EQ("(failed) signal 9", eval("readlinespipe('echo part; kill -9 $$')"));
    EXPECT_EQ(EIO, errno);
    EXPECT_EQ(0U, limit_met_count(k_limit_command_time));
    limit_set(k_limit_command_time, 2);
    errno = 0;
    EXPECT_EQ("(failed) Timer expired", eval("system('trap \"\" TERM; sleep 300 & echo $! >" +
                                             directory_ + "/pid; wait; sleep 300')"));
    EXPECT_EQ(ETIME, errno);
    std::string exe = "/proc/" + std::to_string(atoi(read("/pid").c_str())) + "/exe";
    for (int i = 0; i < 500 && access(exe.c_str(), F_OK) == 0; i++)
        usleep(10000);
    EXPECT_NE(0, access(exe.c_str(), F_OK));
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds{60});
    limit_set(k_limit_command_time, 10);
}

#if !defined __SANITIZE_ADDRESS__
TEST_F(Functions, FailWhenMemoryRunsOutAndNeverAnswerSomethingElse) {
    eval("writelines('/f', 'one', 'two')");
    for (const char *text :
         {"readlines('/f')", "readlinespipe('printf \"1\\\\n2\\\\n\"')", "system('cat', 'a')",
          "shoptions('-a -b c')", "makeshoptions('a', 'b c')", "setopt('-a', 'ab:', 'b', 'c d')",
          "delopt('-a -b c', 'ab:', 'b')", "slashify('a/b')", "urlencode('a b c d e f g h')",
          "hexdecode('6162')", "isfile('/f')", "unlink('/none')", "isdomainname('example.com')",
          "network('10.1.2.3', '255.0.0.0')", "admgetip('lo')", "admgetip6('lo')",
          "admifacelist('*')", "fmttime('%Y', '86400')"}) {
        owned<fe_node, destroy_fe_node_tree> expression{parse_fe_expression(text, base_->fed_list)};
        const std::string expected = eval(text);
        long left = -1;
        for (long n = 0; left < 0 && n < 500; n++) {
            owned<fe_context, destroy_fe_context> ctx{create_fe_context(nullptr, nullptr)};
            g_until_failure = n;
            fe_node *result = eval_fe_expression(ctx.get(), expression.get());
            left = std::exchange(g_until_failure, -1);
            std::string joined;
            for (const fe_node *node = result; node != nullptr; node = node->next)
                joined.append(node == result ? "" : "|").append(node->text);
            EXPECT_TRUE(!result || joined == expected) << text << " at " << n << ": " << joined;
            destroy_fe_node_list(result);
        }
    }
}

TEST_F(Functions, WorkAgainAfterAShortageOfMemory) {
    owned<ccdtree_node, destroy_ccdtree> root{create_ccdtree()};
    ccdtree_node *node = find_or_create_ccdtree_path(root.get(), "node");
    auto info = [&] {
        return owned_str{ccd_param_info(root.get(), nullptr, "node", nullptr, nullptr)};
    };
    node->func_info = parse_fe_expression("'x'", base_->fed_list);
    long left = -1;
    for (long n = 0; left < 0; n++) {
        g_until_failure = n;
        owned_str value = info();
        left = std::exchange(g_until_failure, -1);
    }
    destroy_fe_node_tree(
        std::exchange(node->func_info, parse_fe_expression("$argc", base_->fed_list)));
    EXPECT_STREQ("0", info().get());
}
#endif

TEST_F(Functions, ConvertTimesWholeAndAnswerEmptyForUnknownInterfaces) {
    setenv("TZ", "UTC", 1);
    tzset();
    expect_all({
        {"fmttime('%Y-%m-%d', '4102444800')", "2100-01-01"},
        {"mktime('%Y-%m-%d', '2100-01-01')", "4102444800"},
        {"fmttime('%Y', 'abc')", "1970"},
        {"fmttime('%H', '0')", "00"},
        {"mktime('%Y')", ""},
        {"admgetip('lo')", "127.0.0.1"},
        {"admgethwaddr('lo')", "00:00:00:00:00:00"},
        {"admgetip('no-such-interface-name-at-all')", ""},
        {"admifacelist('lo*')", ""},
        {"admgetip6('nosuch0')", ""},
    });
    setenv("TZ", "XXX-5", 1);
    EXPECT_EQ("05", eval("fmttime('%H', '0')"));
}

}  // namespace

#include "backend_fixture.h"

namespace {

class llfuncs : public backend_test {
  protected:
    llfuncs() {
        put("hosts", "10.0.0.1 alpha\n# note\n10.0.0.2 beta b1 b2\n10.0.0.1 gamma\n");
        put("list", "a\nx\nb\ny\n");
        modules("hosts {\n file: hosts\n}\nlist {\n module: keyvalue\n file: list\n}\n");
    }
};

TEST_F(llfuncs, ReadersAnswerFromTheTreeAndChangeNothing) {
    const std::pair<const char *, const char *> rows[] = {
        {"llget('hosts', '10.0.0.2/name') .. llget('hosts', '10.0.0.2')", "beta"},
        {"llgetname('hosts', '10.0.0.2/alias[1]')", "alias"},
        {"llgetdefault('hosts', 'nosuch', 'd') .. llgetdefault('hosts', 'nosuch')", "d"},
        {"llexists('hosts', '') .. llexists('hosts', '10.0.0.3')", "10"},
        {"lllist('hosts', '10.0.0.*')", "name name alias alias name"},
        {"llpaths('hosts', '10.0.0.1')", "10.0.0.1 10.0.0.1[1]"},
        {"lllistindexed('hosts', '*')", "name[0] name[0] alias[0] alias[1] name[0]"},
        {"lllistmatch('hosts', '', '*.2') .. lllistmatch('hosts', '')", "10.0.0.2"},
        {"llfindindex('hosts', '*', 'alias', 'b2') .. llfindindex('hosts', '*', 'name')", "1"},
        {"llcompare('hosts', 'hosts') .. llcompare('hosts', 'nosuch')", "0"},
        {"llcompare('hosts', 'hosts', '10.0.0.1', '10.0.0.2')", "1"},
        {"llget('hosts') .. llget('nosuch', 'x')", ""}};
    for (const auto &[expression, result] : rows)
        EXPECT_EQ(eval(expression), result) << expression;
    EXPECT_EQ(trns_isdirty_ctx(g_trns_ctx), 0);
    EXPECT_EQ(unlogged({"not enough args to ll function llget\n", "module nosuch not found\n"}),
              "");
}

TEST_F(llfuncs, WritersAnswerMarkAndChange) {
    /* The answer, whether the instance is dirty then, and the names in "list". */
    const std::pair<const char *, const char *> rows[] = {
        {"llset('list', 'a', 'v')", "1 1 a x b y"},
        {"lladd('list', '', 'x[')", "0 0 a x b y"},
        {"lladdne('list', '', 'x')", "1 0 a x b y"},
        {"lladdne('list', '', 'z')", "1 1 a x b y z"},
        {"lladdmulti('list', '', 'z', 'q')", "1 1 a x b y z q"},
        {"lldel('list', '', 'x')", "1 1 a b y"},
        {"llrename('list', 'x', 'z')", "1 1 a z b y"},
        {"llcopy('list', '', 'x', '', 'z')", "1 1 a x b y z"},
        {"lladdbefore('list', '', 'z', 'b')", "1 1 a x z b y"},
        {"llswap('list', '', 'a', 'b')", "1 1 x b a y"},
        {"llswap('list', '', 'a', 'x')", "1 1 x a b y"},
        {"llswap('list', '', 'x', 'a')", "1 1 x a b y"},
        {"llswap('list', '', 'b', 'y')", "1 1 a x y b"},
        {"llset('list', '', 'two\\nlines')", "0 0 a x b y"},
        {"llset('list', 'a', 'two\\nlines')", "0 0 a x b y"},
        {"llrename('list', 'a', 'two\\nlines')", "0 0 a x b y"},
        {"lladd('list', '', 'two\\nlines')", "0 0 a x b y"},
        {"lladdmulti('list', '', 'z', 'two\\nlines')", "0 0 a x b y"},
        {"lladdbefore('list', '', 'two\\nlines', 'b')", "0 0 a x b y"},
        {"llcopy('list', '', 'x', '', 'two\\nlines')", "0 0 a x b y"}};
    for (const auto &[expression, result] : rows) {
        owned_ctx session{trns_copy_ctx(g_trns_ctx)};
        std::string answer = eval(expression, session.get());
        EXPECT_EQ(answer + " " + eval("list(llisdirty('list'), lllist('list', ''))", session.get()),
                  result)
            << expression;
        bool refused = std::string_view(expression).find("\\n") != std::string_view::npos;
        EXPECT_EQ(ccd_get_error() != nullptr, refused) << expression;
    }
}

TEST_F(llfuncs, AHookRunsAtCommitWithTheValuesOfNow) {
    modules("late {\n module: virtual\n pre-commit: fail()\n}\n");
    EXPECT_EQ(eval("llmodsetprecommit('late', lladdmulti('late', '', llgetname('list', 'a')))"),
              "1");
    EXPECT_EQ(eval("llmodsetpostcommit('late') .. llmodsetpostcommit('nosuch', not('1'))"), "");
    EXPECT_EQ(unlogged({"not enough args to llmodsethook function llmodsetpostcommit\n"}), "");
    eval("llrename('list', 'a', 'changed')");
    eval("lladd('late', '', 'line')");
    llconf_write_cnftree(item("late"));
    EXPECT_EQ(eval("lllist('late', '')"), "line a");
}

TEST_F(llfuncs, InstancesAreMadeDeletedAndBroughtBack) {
    EXPECT_EQ(eval("llmodcreate('one', 'lines', 'one')"), "1");
    EXPECT_EQ(eval("llmodcreate('two', 'lines', '', 'echo x', 'cat >/dev/null')"), "1");
    EXPECT_EQ(eval("llget('two', 'line') .. llisdirty('one') .. llmoddelete('one')"), "x01");
    item("one")->is_dirty = 0;
    EXPECT_EQ(eval("llmodcreate('one', 'lines', 'one') .. llisdirty('one')"), "11");
    EXPECT_EQ(item("one")->delete_me, 0);
}

TEST_F(llfuncs, TheLoginTypeOfASerialPortIsSetAndReadBack) {
    put("login", "# mgetty\nuucp - - /usr/sbin/uucico\n* - - /bin/login @\n");
    modules("login {\n module: mgetty\n file: login\n}\n");
    EXPECT_EQ(eval("llmgetty_getlogintype('login') .. llmgetty_getlogintype('nosuch')"), "login");
    for (std::string type : {"autoppp", "opielogin", "login", "ppp"}) {
        EXPECT_EQ(eval("llmgetty_setlogintype('login', '" + type + "')"), "1");
        EXPECT_EQ(eval("llmgetty_getlogintype('login')"), type);
    }
    item("login")->is_dirty = 0;
    EXPECT_EQ(eval("llmgetty_setlogintype('login', 'nosuch') .. llisdirty('login')"), "0");
    EXPECT_EQ(eval("lllist('login', '') .. llmgetty_setcbphone('login', '123')"), "uucp1");
    EXPECT_EQ(eval("llset('login', 'cbuser/userid', 'own')"), "1");
    EXPECT_EQ(eval("llmgetty_setcbphone('login', '456')"), "1");
    EXPECT_EQ(eval("list(lllist('login', ''), llget('login', 'cbuser/userid'), "
                   "llget('login', 'cbuser/args'))"),
              "cbuser uucp own -S 456");
    EXPECT_EQ(llconf_write_cnftree(item("login")), 0);
}

TEST_F(llfuncs, DeviceFunctionsCleanViewsAndKeepSecrets) {
    modules("snmpd {\n module: virtual\n}\n");
    eval("lladdmulti('snmpd', '', 'view', 'view/subtree', 'view', 'other')");
    eval("llset('snmpd', 'view/subtree', '.1') && lladdne('snmpd', 'view[1]', 'subtree')");
    EXPECT_EQ(eval("list(tav_llfixsnmpdview('snmpd'), lllist('snmpd', ''))"), "1 view other");
    EXPECT_EQ(eval("tav_decrypt(tav_encrypt('a secret of some length'))"),
              "a secret of some length");
    EXPECT_EQ(eval("tav_encrypt('') .. tav_encrypt() .. tav_decrypt('')"), "");
    EXPECT_EQ(eval("tav_decrypt('abc') .. tav_decrypt('xy')"), "");
}

}  // namespace

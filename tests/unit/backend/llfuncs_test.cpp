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

TEST_F(llfuncs, AListTellsWhatItHoldsAsIfItHadBeenMade) {
    const std::string longest(300, 'n');
    eval("lladdmulti('list', '', 'a', '" + longest + "', '" + longest.substr(0, 255) + "')");
    for (const char *list :
         {"lllist('list', '.')", "lllist('hosts', '10.0.0.*')", "lllist('hosts', '10.0.0.1/name')",
          "lllist('nosuch', '.')", "lllistindexed('list', '')", "lllistindexed('hosts', '*')"}) {
        for (const std::string &text : std::vector<std::string>{
                 "a", "x", ".comment", "a[0]", "a[1]", "a[2]", "a[01]", "alias", "name[1]",
                 ".comment[0]", "[0]", longest, longest.substr(0, 255)}) {
            const std::string wanted = "in('" + text + "', ";
            EXPECT_EQ(eval(wanted + list + ")"), eval(wanted + "filter('i', " + list + ", 1))"))
                << text << " in " << list;
        }
    }
    EXPECT_EQ(eval("in('a', lllist('list', '.')) .. in('a[1]', lllistindexed('list', '.'))"), "11");
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
        {"llmove('list', 'b', 'y')", "1 1 a x y b"},
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

TEST_F(llfuncs, AnEditAfterWhichTheFileCouldNotBeWrittenIsRefusedAtOnce) {
    put("unit", "[Unit]\nKey=value\n[Empty]\n");
    put("ntp", "pool a iburst\n# note\ndriftfile /x\n");
    put("passwd", "root:x:0:0\n");
    modules(
        "unit {\n module: ini\n file: unit\n}\n"
        "ntp {\n module: keyvalue\n options: columns=name/options only=pool\n file: ntp\n}\n"
        "passwd {\n module: table\n options: columns=name/password/uid/gid\n file: passwd\n}\n");
    /* The answer, and what is wrong; where nothing is, the file is written. */
    const std::tuple<const char *, const char *, const char *> rows[] = {
        {"hosts", "lldel('hosts', '10.0.0.2', 'name')",
         "0 '10.0.0.2' cannot be stored in this file: "
         "an alias needs a name"},
        {"hosts", "lldel('hosts', '10.0.0.2', 'alias')", "1"},
        {"unit", "llset('unit', 'Empty', 'v')", "0 'Empty' cannot be stored in this file"},
        {"unit", "lladd('unit', '', 'New') && llset('unit', 'New', 'v')",
         "0 'New' cannot stand where it does in this file"},
        {"unit", "lladd('unit', 'Empty', 'k') && llset('unit', 'Empty/k', 'v')", "1"},
        {"ntp", "llrename('ntp', 'pool', 'server')", "0 'name' cannot be stored in this file"},
        {"ntp", "llswap('ntp', '', 'driftfile', 'pool')", "1"},
        {"passwd", "lldel('passwd', 'root', 'uid')",
         "0 'root' cannot be stored in this file: a column in front of others is missing"},
        {"passwd",
         "lladd('passwd', '', 'new') && lladdmulti('passwd', 'new', 'uid', 'password') "
         "&& llset('passwd', 'new/uid', '1')",
         "1"}};
    for (const auto &[module, expression, result] : rows) {
        owned_ctx session{trns_copy_ctx(g_trns_ctx)};
        ccd_clear_error();
        std::string answer = eval(expression, session.get());
        if (ccd_get_error()) answer += std::string{" "} + ccd_get_error()->msg;
        EXPECT_EQ(answer, result) << expression;
        std::size_t length = 0;
        const cnfnode *tree = llconf_get_cnftree_read(item(module, session.get()));
        EXPECT_NE(owned_str{cnfmodule_unparse_text(item(module)->module, tree, &length)}, nullptr)
            << expression << ": " << cnf_error_text();
    }
    EXPECT_EQ(eval("llswap('ntp', '', 'driftfile', 'pool') .. lllist('ntp', '')"),
              "1driftfilepool");
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

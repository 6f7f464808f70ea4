#include <clocale>

#include "tree_fixture.h"

class Parameter : public tree_test {
  protected:
    /* The given names of a resolved path from the top down, or the error. */
    static std::string resolved(const std::string &path) {
        errno = 0;
        owned<param_path, destroy_param_path> p{find_ccd_param(path.c_str(), g_ccdtree)};
        if (!p) return errno == ENOENT ? "ENOENT" : "errno?";
        std::string names;
        for (const param_path_item *i = p->first; i; i = i->next) {
            names.insert(0, std::string(i->name) + "=" + i->ccd->name + " ");
        }
        EXPECT_EQ(p->fullpath, path);
        return names;
    }
    static std::string error_record() {
        const param_error *error = ccd_get_error();
        if (!error) return "";
        std::string all = std::string(error->msg) + "/" + (error->id ? error->id : "");
        for (const line *l = error->args; l; l = l->next) {
            all += std::string("/") + l->line;
        }
        return all;
    }
};

TEST_F(Parameter, PathsTakeTheExactNameAndThenTheFirstWildcard) {
    define("a {\n x\n * {\n  y\n }\n *2 {\n z\n }\n}\n\"d.t\"\n");
    EXPECT_EQ(resolved("a.x"), "a=a x=x ");
    EXPECT_EQ(resolved("a.q+%2e.y"), "a=a q .=* y=y ");
    EXPECT_EQ(resolved("d%2et"), "d.t=d.t ");
    for (const char *path : {"", ".", "a.", ".a", "a..x", "a.q.z", "a.x.y", "b", "a.%00", "d.t"}) {
        EXPECT_EQ(resolved(path), "ENOENT") << path;
    }
    std::string cut(255, 'l');
    EXPECT_EQ(resolved("a." + cut + "llll.no.such.node"), "a=a " + cut + "=* ");
    EXPECT_EQ(resolved(std::string(100000, '.')), "ENOENT");
    std::string deep = "p";
    for (int i = 0; i < 99; i++)
        deep += ".p";
    find_or_create_ccdtree_path(g_ccdtree, deep.c_str());
    EXPECT_EQ(resolved(deep).size(), 400U);
}

TEST_F(Parameter, APathLeadsElsewhereOnceTheTreeHasChanged) {
    define("* {\n get: 'any'\n}\n");
    EXPECT_EQ(get("a"), "any");
    EXPECT_EQ(get("a"), "any");
    owned<param_path, destroy_param_path> held{find_ccd_param("a", g_ccdtree)};
    define("a {\n get: 'this'\n}\n");
    EXPECT_EQ(get("a"), "this");
    ASSERT_TRUE(held);
    EXPECT_STREQ(held->first->ccd->name, "*") << "who holds a path keeps it";
}

TEST_F(Parameter, MethodsSeeTheNamesTheArgumentsAndWhatCommonSet) {
    define(
        "common: set('c', 'root')\n"
        "a {\n common: set('c', $0 .. $argc) \n"
        " * {\n common: set('c', $c .. $0 .. $1)\n common: fail()\n"
        "  get: list('no', $c .. ' ' .. $0 .. $1 .. '.')\n"
        "  info: $argc .. $arg1 .. $arg99 .. $arg10 .. $arg100 .. $outer\n }\n}\n");
    EXPECT_EQ(get("a.n"), "ana+na%2e");
    owned<fe_context, destroy_fe_context> caller{create_fe_context(nullptr, nullptr)};
    fe_set(caller.get(), "outer", "!");
    auto info = [&](const line *arguments) {
        return text_of(ccd_param_info(g_ccdtree, nullptr, "a.n", arguments, caller.get()));
    };
    EXPECT_EQ(info(nullptr), "0!");
    list_builder<line> arguments;
    for (int i = 1; i <= 100; i++)
        arguments.append(create_line(("v" + std::to_string(i)).c_str()));
    owned<line, destroy_line_list> hundred{arguments.release()};
    EXPECT_EQ(info(hundred.get()), "100v1v99v100!");
    define(
        "1 {\n2 {\n3 {\n4 {\n5 {\n6 {\n7 {\n8 {\n9 {\n10 {\n11 {\n"
        " get: $0 .. $9 .. defined('10')\n}\n}\n}\n}\n}\n}\n}\n}\n}\n}\n}\n");
    EXPECT_EQ(get("1.2.3.4.5.6.7.8.9.10.11"), "1120");
}

TEST_F(Parameter, AccessComesFromTheNearestNodeThatDefinesIt) {
    define("access: 'root'\na {\n access: 'a'\n b {\n c\n }\n}\nd\n");
    auto access = [](const char *path) {
        return text_of(ccd_param_access(g_ccdtree, nullptr, path, nullptr, nullptr));
    };
    EXPECT_EQ(access("a.b.c"), "a");
    EXPECT_EQ(access("d"), "root");
    EXPECT_EQ(access("e"), "(none)");
}

TEST_F(Parameter, AttributesTellOperationsLengthChoicesAndFlags) {
    define_types(
        "base {\n choices: list('a.b', '')\n}\ncolour {\n parent-type: base\n len: 9\n}\n");
    define(
        "all {\n get: 1\n set: 1\n add: 1\n del: 1\n move: 1\n help: 1\n admin: 1\n info: 1\n"
        " flags: list('x.y', '', $0)\n type: colour\n c\n}\nonly {\n list: 1\n c\n}\n");
    owned<param_attr, destroy_param_attr> all{ccd_param_attr(g_ccdtree, nullptr, "all")};
    EXPECT_STREQ(all->ops, "gsadmhAIl");
    EXPECT_EQ(all->len, 9);
    EXPECT_STREQ(all->type_name, "colour");
    EXPECT_EQ(joined(std::exchange(all->choices, nullptr)), "a%2eb,");
    EXPECT_EQ(joined(std::exchange(all->flags, nullptr)), "x.y,all");
}

TEST_F(Parameter, ListingsTellNothingFromNotFound) {
    define(
        "a {\n list: list('b.c', '', 'd')\n * {\n x\n y {\n flags: 'hidden'\n z\n }\n }\n}\n"
        "gone {\n list: fail()\n}\nempty\n");
    EXPECT_EQ(list("a"), "b%2ec,d");
    EXPECT_EQ(list("a", 1), "b%2ec,b%2ec.x,b%2ec.y,d,d.x,d.y");
    EXPECT_EQ(list("", 1), "a,a.b%2ec,a.b%2ec.x,a.b%2ec.y,a.d,a.d.x,a.d.y,gone,empty");
    for (const char *path : {"empty", "a.d.y"}) {
        errno = EPERM;
        EXPECT_EQ(list(path), "");
        EXPECT_EQ(errno, EPERM) << path;
    }
    errno = 0;
    EXPECT_EQ(list("none"), "");
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(text_of(ccd_param_help(g_ccdtree, nullptr, "empty")), "");
    EXPECT_EQ(text_of(ccd_param_help(g_ccdtree, nullptr, "none")), "(none)");
}

TEST_F(Parameter, ARecursiveListingNeverFollowsAPathThatWasCut) {
    std::string name(200, 'n');
    std::string path = name;
    for (int i = 0; i < 7; i++)
        path += "." + name;
    find_or_create_ccdtree_path(g_ccdtree, path.c_str());
    std::string listed = list("", 1);
    EXPECT_EQ(std::count(listed.begin(), listed.end(), ','), 5);
}

TEST_F(Parameter, TheLastValueOfAMethodDecides) {
    define(
        "a {\n set: store($0, $_)\n set: 0\n set: 1\n}\nb {\n set: 1\n set: 0\n}\n"
        "c {\n set: fail()\n}\nd\n");
    auto set = [](const char *path) {
        errno = EPERM;
        return ccd_param_set(g_ccdtree, nullptr, path, "x+y");
    };
    EXPECT_EQ(set("a"), 0);
    EXPECT_EQ(errno, EPERM);
    EXPECT_EQ(g_store["a"], "x y");
    EXPECT_EQ(set("b"), 2);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(set("c"), 1);
    EXPECT_EQ(set("d"), 5);
    EXPECT_EQ(set("e"), 3);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(ccd_param_sanity(g_ccdtree, nullptr, "d", "any"), 0);
    const char *missing =
        "ccd_param_ppath_value: No implementation found for function \"set:\" at \"d\".";
    EXPECT_EQ(log(), (log_lines{"set a x+y", "set b x+y failed: 2",
                                "'set:' of node 'c' failed: fail: Invalid argument",
                                "set c x+y failed: 1", missing, "set d x+y failed: 5",
                                "find_ccd_param(e) failed", "set e x+y failed: 3"}));
}

TEST_F(Parameter, AMethodThatFailsIsLoggedOnceWithItsNodeFunctionAndValue) {
    define(
        "a {\n get: 1 + $0\n sanity: len() || $_ + 1 == 2\n list: paramget('b')\n}\n"
        "b {\n get: paramget('a') .. (1 / 0)\n}\n");
    errno = 0;
    EXPECT_EQ(get("a"), "(none)");
    EXPECT_STREQ(ccd_failure_text(errno), "add: no number");
    EXPECT_EQ(get("a"), "(none)");
    EXPECT_EQ(list("a"), "") << "what fails in another method is not this one's failure";
    EXPECT_EQ(ccd_param_sanity(g_ccdtree, nullptr, "a", "7"), 2);
    EXPECT_EQ(log(), (log_lines{"'get:' of node 'a' failed: add: no number: 'a'",
                                "The last failure of a method came up 2 times more",
                                "'get:' of node 'b' failed: div: division by zero",
                                "'sanity:' of node 'a' answered no, and a part of it failed: "
                                "len: 0 arguments"}));
    ccd_clear_error();
    EXPECT_STREQ(ccd_failure_text(EINVAL), "Invalid argument");
}

TEST_F(Parameter, WhatTripsAuthorsIsAsTheGuideSays) {
    define(
        "hosts {\n list: list('a.b', 'c')\n * {\n  common: set('host', $0)\n"
        "  name {\n   get: $host .. ' ' .. $0\n  }\n }\n}\n"
        "quoted {\n get: \"a\"\n}\nlater {\n get: 'b' .. \"c\"\n}\n"
        "last {\n set: foreach('l', list(0, 1), $l)\n}\n"
        "every {\n set: all('l', list(0, 1), $l)\n}\n");
    EXPECT_EQ(get("hosts.a%2eb.name"), "a%2eb+name");
    EXPECT_EQ(evaluate("paramget('hosts.a.b.name') .. paramget('hosts.a%2eb.name')"), "a.b name");
    EXPECT_EQ(evaluate("paramlist('hosts')"), "a%2eb,c");
    EXPECT_EQ(get("quoted") + get("later"), "(none)bc");
    EXPECT_EQ(ccd_param_set(g_ccdtree, nullptr, "last", ""), 0);
    EXPECT_EQ(ccd_param_set(g_ccdtree, nullptr, "every", ""), 2);
    EXPECT_EQ(evaluate("nth(1, split('192.0.2.7//24', '/'))"), "24");
    const std::pair<const char *, const char *> paths[] = {{"hosts.a%2eb.name", "1"},
                                                           {"hosts.x.name", "0"},
                                                           {"hosts.c", "1"},
                                                           {"hosts.x", "0"},
                                                           {"hosts", "1"},
                                                           {"nothing", "0"},
                                                           {"", "0"}};
    for (const auto &[path, found] : paths)
        EXPECT_EQ(evaluate(("paramfound('" + std::string(path) + "')").c_str()), found) << path;
}

TEST_F(Parameter, LimitsCountCharactersExceptInAMove) {
    std::setlocale(LC_ALL, "C.UTF-8");
    define("a {\n len: 4\n set: store('a', $_)\n move: store('a', $- .. $_)\n}\n");
    EXPECT_EQ(ccd_param_set(g_ccdtree, nullptr, "a", "äöüß"), 0);
    EXPECT_EQ(ccd_param_set(g_ccdtree, nullptr, "a", "%e4%e4%e4%e4%e4"), 0);
    EXPECT_EQ(error_record(), "");
    EXPECT_EQ(ccd_param_set(g_ccdtree, nullptr, "a", "12345"), 1);
    EXPECT_EQ(errno, EOVERFLOW);
    EXPECT_EQ(error_record(), "Exceeded maximum size for this field/error.exceeded.max-size");
    ccd_clear_error();
    log();
    EXPECT_EQ(ccd_param_move(g_ccdtree, nullptr, "a", "long+enough", "1234"), 0);
    EXPECT_EQ(g_store["a"], "long enough1234");
    EXPECT_EQ(ccd_param_move(g_ccdtree, nullptr, "a", "1", "äöü"), 1);
    EXPECT_EQ(errno, EOVERFLOW);
    EXPECT_EQ(error_record(), "");
    EXPECT_EQ(log(), (log_lines{"move a long+enough 1234"}));
    std::setlocale(LC_ALL, "C");
}

TEST_F(Parameter, EntriesAreAddedAndDeletedOnlyWhereTheListingAllowsIt) {
    define("a {\n list: list('x.1', 'y')\n add: store('add', $_)\n del: store('del', $_)\n}\n");
    EXPECT_EQ(ccd_param_add(g_ccdtree, nullptr, "a", "x%2E1"), 6);
    EXPECT_EQ(errno, EEXIST);
    EXPECT_EQ(error_record(), "Entry already exists/error.exists");
    EXPECT_EQ(ccd_param_del(g_ccdtree, nullptr, "a", "z"), 6);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(error_record(), "Entry does not exist/error.not_exists");
    EXPECT_TRUE(g_store.empty());
    EXPECT_EQ(ccd_param_add(g_ccdtree, nullptr, "a", "z"), 0);
    EXPECT_EQ(ccd_param_del(g_ccdtree, nullptr, "a", "y"), 0);
    EXPECT_EQ(g_store["add"] + g_store["del"], "zy");
}

TEST_F(Parameter, ExpressionsReachOtherParameters) {
    define(
        "a {\n get: 'x.y'\n set: store('a', $_)\n sanity: $_ == 1 || seterror('no', 'e.no', $_, "
        "2)\n"
        " list: list('b', 'c.d')\n add: store('new', $_)\n move: store('moved', $- .. $_)\n}\n"
        "hidden {\n flags: 'hidden'\n c\n}\n");
    file("/etc/m.conf",
         "i {\n help: 'a b'\n args: 'P'\n info: list($arg1 .. '.' .. $argc)\n admin: $arg1\n}\n");
    ccdtree_readconf(g_mgmttree, "/etc/m.conf", base->fed_list);
    const std::pair<const char *, const char *> cases[] = {
        {"paramget('a')", "x.y"},       {"paramset('a', 'v+w')", "1"},
        {"paramset('a')", ""},          {"paramsanity('a', 1)", "1"},
        {"paramsanity('a', 7)", ""},    {"paramadd('a', 'b')", ""},
        {"paramadd('a', 'n')", "1"},    {"paramdel('a', 'b')", ""},
        {"parammove('a', 1, 2)", "1"},  {"paramlist('a')", "b,c%2ed"},
        {"paramlist('hidden')", ""},    {"paramexists('a.c%2ed')", "1"},
        {"paramexists('hidden')", "1"}, {"paramexists('hidden.c')", "0"},
        {"mgmtlist('')", "i"},          {"mgmtinfo('i', 'p', 'q')", "p%2e2"},
        {"mgmthelp('i')", "a b"},       {"mgmtargs('i')", "P"},
        {"mgmthelp('none')", ""},       {"mgmtargs('none')", ""},
        {"mgmtadmin('i', 1)", "1"},     {"mgmtadmin('i')", "0"},
        {"clearerror()", "1"}};
    for (const auto &[text, answer] : cases)
        EXPECT_EQ(evaluate(text), answer) << text;
    EXPECT_EQ(g_store["a"] + g_store["new"] + g_store["moved"], "v wn12");
    evaluate("paramsanity('a', 7)");
    EXPECT_EQ(error_record(), "no/e.no/7/2");
    evaluate("clearerror(1)");
    EXPECT_EQ(error_record(), "");
    log();
    evaluate("mgmtadmin('i', 0)");
    EXPECT_EQ(log(), (log_lines{"admin i: 2", "admin i: 2"}));
}

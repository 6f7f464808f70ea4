#include <algorithm>

#include "llconf/nodes.h"
#include "llconf/path.h"
#include "tree_fixture.h"

class DefinitionFile : public tree_test {};

TEST_F(DefinitionFile, NamesMayBeSharedRemovedAndEmpty) {
    define("a||b {\n  x {\n  get: 'x'\n }\n}\nold\n~kept {\n get: 1\n}\nlist|\n");
    EXPECT_EQ(list("", 1), "a,a.x,,b,b.x,old,~kept,list");
    define("~old\n~kept\n~nothing\na {\n ~x\n}\n");
    EXPECT_EQ(list("", 1), "a,,b,b.x,~kept,list");
}

TEST_F(DefinitionFile, LaterFilesAddToListsOfMethodsAndAnEmptyOneClearsThem) {
    define("a {\n get: 'one'\n get: fail()\n}\nb {\n get: 'one'\n}\n");
    define("a {\n get:\n get: 'two'\n help: 'h'\n}\nb {\n get: 'two'\n set:\n}\n");
    EXPECT_EQ(get("a"), "two");
    EXPECT_EQ(fe_argc(g_ccdtree->first_child->next->func_get), 2);
    EXPECT_EQ(get("b"), "two");
}

TEST_F(DefinitionFile, AReplacedSanityCheckCanBeCalledAsSuper) {
    define("a {\n sanity: $_ > 1\n}\n");
    define("a {\n sanity: super() && $_ < 9\n}\n");
    define("a {\n sanity: super() && $_ != 5\n}\nb {\n sanity: super()\n}\n");
    for (const char *value : {"1", "5", "9"}) {
        EXPECT_EQ(ccd_param_sanity(g_ccdtree, nullptr, "a", value), 2) << value;
    }
    EXPECT_EQ(ccd_param_sanity(g_ccdtree, nullptr, "a", "4"), 0);
    EXPECT_EQ(log().front(), "Error: Parsing tree failed at 'b.sanity:'.");
}

TEST_F(DefinitionFile, AccessOfSeveralFilesIsGrantedWhenAllOfThemGrantIt) {
    define("a {\n access: $sid == 'x'\n}\n");
    define("a {\n access: 1\n}\n");
    define("a {\n access: $0 == 'a'\n}\n");
    EXPECT_EQ(log(),
              (log_lines{"Warning: \"access:\" at node \"a.access:\" is always true.",
                         "Warning: Defining multiple functions at node \"a.access:\". Access will "
                         "only be granted if all functions pass.",
                         "Warning: Defining multiple functions at node \"a.access:\". Access will "
                         "only be granted if all functions pass."}));
    owned<fe_context, destroy_fe_context> caller{create_fe_context(nullptr, nullptr)};
    EXPECT_EQ(text_of(ccd_param_access(g_ccdtree, nullptr, "a", nullptr, caller.get())), "0");
    fe_set(caller.get(), "sid", "x");
    EXPECT_EQ(text_of(ccd_param_access(g_ccdtree, nullptr, "a", nullptr, caller.get())), "1");
}

TEST_F(DefinitionFile, AnExpressionThatDoesNotParseFailsAndTheOthersWork) {
    define("a {\n get: nosuch(\n  )\n set:\n list:\n b {\n get: 'fine'\n }\n}\n");
    log_lines lines = log();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], "Error: Parsing tree failed at 'a.get:'.");
    EXPECT_NE(lines[1].find("param.conf:2:7: column 1: "), std::string::npos) << lines[1];
    EXPECT_EQ(lines[2], "Error: Parsing tree failed at 'a.list:'.");
    EXPECT_EQ(get("a"), "(none)");
    EXPECT_EQ(get("a.b"), "fine");
}

TEST_F(DefinitionFile, AFileThatCannotBeReadIsLoggedWithTheReason) {
    define("a {\n get: 1\n");
    ccdtree_readconf(g_ccdtree, "/etc/none.conf", base->fed_list);
    EXPECT_EQ(ccdtree_readconf_functions("/etc/none.conf", base->fed_list), -1);
    log_lines lines = log();
    ASSERT_EQ(lines.size(), 6U);
    EXPECT_EQ(lines[0], "Error: Unable to parse parameter tree from file '" + dir +
                            "/etc/param.conf': Invalid argument");
    EXPECT_EQ(lines[1].rfind(dir + "/etc/param.conf:", 0), 0U) << lines[1];
    EXPECT_EQ(lines[2], "Error: Unable to parse parameter tree from file '" + dir +
                            "/etc/none.conf': No such file or directory");
    EXPECT_EQ(lines[4], "Error: Unable to parse functions list from file '" + dir +
                            "/etc/none.conf': No such file or directory");
}

TEST_F(DefinitionFile, IncludesAreReadBelowTheRootPrefixIntoTheirNode) {
    file("/etc/more/2.conf", "get: 'second'\n");
    file("/etc/more/1.conf", "get: 'first'\ninclude: deeper/*.conf\n");
    file("/etc/more/deeper/x.conf", "x {\n get: 'deep'\n include: ../../more/1.conf\n}\n");
    std::filesystem::create_symlink("loop", dir + "/etc/loop");
    define("a {\n include: more/*.conf\n include: none/*\n include: loop/*\n}\n");
    EXPECT_EQ(get("a"), "second");
    EXPECT_EQ(get("a.x"), "deep");
    EXPECT_EQ(log(), (log_lines{"Error: File '" + dir +
                                    "/etc/more/deeper/../../more/1.conf' is "
                                    "being read already and is not included again.",
                                "Error: Looking for '" + dir +
                                    "/etc/loop/*' failed: " + std::strerror(ELOOP)}));
}

TEST_F(DefinitionFile, ADirectoryWhoseFilesAllIncludeItIsNotReadInEveryOrder) {
    for (char name = 'a'; name < 'p'; name++)
        file(std::string("/etc/all/") + name + ".conf", "include: *.conf\nget: 'x'\n");
    define("a {\n include: all/*.conf\n}\n");
    log_lines lines = log();
    EXPECT_LE(lines.size(), 10'001U);
    EXPECT_NE(std::find(lines.begin(), lines.end(),
                        "Error: The tree has more than 10000 included files. The others are "
                        "ignored."),
              lines.end());
}

TEST_F(DefinitionFile, OneThatMultipliesWithoutEndIsCutShort) {
    std::string text;
    for (int i = 0; i < 60; i++)
        text = "a|a {\n" + text + "}\n";
    define(text);
    EXPECT_EQ(log(), (log_lines{"Error: The tree has more than 1000000 entries. The others are "
                                "ignored."}));
}

TEST_F(DefinitionFile, UnguardedAndUncheckedNodesDrawWarnings) {
    define(
        "a {\n list: 1\n b {\n get: 1\n add: 1\n set: 1\n }\n"
        " c {\n access: $x\n d {\n get: 1\n }\n }\n}\n");
    ccdtree_postprocess(g_ccdtree, 0, 0);
    EXPECT_EQ(log(), (log_lines{"Warning: No 'access:' specified for node 'a.b' or its parents in "
                                "parameter tree, but functions are available."}));
    g_debug_level = 1;
    ccdtree_postprocess(g_ccdtree, 1, 1);
    g_debug_level = 0;
    EXPECT_EQ(log(), (log_lines{"Warning: Node 'a.b' in management tree has 'set:' method, but no "
                                "'sanity:' or 'type:'.",
                                "Warning: Node 'a.b' in management tree has 'add:' method, but no "
                                "'sanity:' or 'type:'."}));
}

TEST_F(DefinitionFile, ADumpNamesMethodsTypeAndLength) {
    define_types("short {\n len: 3\n}\n");
    define(
        "a {\n help: 1\n access: $x\n set: 1\n type: short\n len: x\n b {\n len: 7\n"
        " type: short\n type: no\n }\n}\n");
    owned<cnfnode, destroy_cnftree> dump{create_cnfnode("(root)")};
    dump_ccdtree(dump.get(), g_ccdtree);
    std::string names;
    for (const cnfnode *n = dump->first_child->first_child; n; n = n->next) {
        names += std::string(n->name) + (n->value ? n->value : "{}") + " ";
    }
    EXPECT_EQ(names, "set: help: type:short len:3 b{} ");
    EXPECT_STREQ(cnf_get_entry(dump.get(), "a/b/len:"), "7");
    EXPECT_EQ(cnf_get_node(dump.get(), "a/b/type:"), nullptr);
    EXPECT_EQ(log(), (log_lines{"Warning: Nonexistent type 'no' referred to by 'a.b.type:'.  "
                                "Ignoring."}));
}

TEST_F(DefinitionFile, AWideLevelKeepsOrderAndFindsTheFirstOfEachName) {
    for (int i = 0; i < 1000; i++)
        find_or_create_ccdtree_child(g_ccdtree, ("n" + std::to_string(i)).c_str());
    ccdtree_node *wild = find_or_create_ccdtree_path(g_ccdtree, "*first");
    ccdtree_node *second = create_ccdtree_node("n7");
    append_ccdtree_node(g_ccdtree, second);
    append_ccdtree_node(g_ccdtree, create_ccdtree_node("*second"));
    destroy_ccdtree(find_ccdtree_child(g_ccdtree, "n7"));
    destroy_ccdtree(find_ccdtree_child(g_ccdtree, "n0"));
    EXPECT_EQ(find_ccdtree_child(g_ccdtree, "n7"), second);
    EXPECT_EQ(match_ccdtree_child(g_ccdtree, "n0"), wild);
    destroy_ccdtree(wild);
    EXPECT_STREQ(match_ccdtree_child(g_ccdtree, "other")->name, "*second");
    EXPECT_STREQ(g_ccdtree->first_child->name, "n1");
    EXPECT_EQ(text_of(get_ccdtree_path(find_or_create_ccdtree_path(second, "a%2eb.c"))),
              "n7.a.b.c");
}

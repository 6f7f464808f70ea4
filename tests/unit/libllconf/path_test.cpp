#include <gtest/gtest.h>

#include <cerrno>

#include "llconf_trees.h"

namespace {

std::string value_at(const tree &root, const char *path) {
    errno = 0;
    const cnfnode *node = at(root, path);
    EXPECT_EQ(errno, node != nullptr ? 0 : ENOENT) << path;
    if (node == nullptr) return "none";
    return node->value != nullptr ? node->value : "null";
}

/* The paths of all matches, each checked to lead back. */
std::string find(const tree &root, const char *path) {
    owned<cnfresult, destroy_cnfresult_list> list{cnf_find_entry(root.get(), path)};
    std::string text;
    for (const cnfresult *result = list.get(); result != nullptr; result = result->next) {
        EXPECT_EQ(cnf_get_node(root.get(), result->path), result->cnfnode) << result->path;
        text += (text.empty() ? "" : " ") + std::string{result->path};
    }
    return text;
}

TEST(Path, SelectsByNamePlaceAndKey) {
    tree root = make_tree("root=top{a=0{k=x} a=1{k=y k=z b=deep} c=2 a=3{k}}");
    EXPECT_EQ(value_at(root, ""), "top");
    EXPECT_EQ(value_at(root, "."), "top");
    EXPECT_EQ(value_at(root, "a"), "0");
    EXPECT_EQ(value_at(root, "a[2]"), "3");
    EXPECT_EQ(value_at(root, "a[3]"), "none");
    EXPECT_EQ(value_at(root, "a[99999999999999999999999]"), "none");
    EXPECT_EQ(value_at(root, "a[k=y]"), "1");
    EXPECT_EQ(value_at(root, "a[k=z]/b"), "deep");
    EXPECT_EQ(value_at(root, "a[k=]"), "none") << "a missing value is not the empty text";
    EXPECT_EQ(value_at(root, "a/b"), "deep") << "all matches of a step are followed";
    EXPECT_EQ(value_at(root, "a[0]/b"), "none");
    EXPECT_EQ(value_at(root, "c/b"), "none");
    EXPECT_EQ(value_at(root, "*"), "none") << "names are literal";
    EXPECT_STREQ(cnf_get_entry(root.get(), "a[1]/b"), "deep");
    errno = 0;
    EXPECT_EQ(cnf_get_entry(root.get(), "a[2]/k"), nullptr);
    EXPECT_EQ(errno, 0);
}

TEST(Path, WhatIsNoPathMatchesNothing) {
    tree root = make_tree("root{a=1{b=2}}");
    for (const char *path : {"/", "/a", "a/", "a//b", "a[", "a[0", "a]", "a[]", "a[x]", "a[-1]",
                             "a[=x]", "a[0]x", "a[0][0]", "a\\", "a[b=2\\]", "a/b["}) {
        EXPECT_EQ(value_at(root, path), "none") << path;
        EXPECT_EQ(find(root, path), "") << path;
        EXPECT_EQ(cnf_add_branch(root.get(), path), nullptr) << path;
        EXPECT_EQ(errno, EINVAL) << path;
    }
    EXPECT_EQ(show(root.get()), "root{a=1{b=2}}");
}

TEST(Path, EscapesLeadToAnyName) {
    tree root{create_cnfnode("root")};
    for (const char *name : {"a/b", "[0]", "x=y", "*", "?", "\\", ".", "plain", "a]b", ""}) {
        append_node(root.get(), create_cnfnode(name));
    }
    EXPECT_EQ(find(root, "*"), "a\\/b \\[0\\] x\\=y \\* \\? \\\\ \\. plain a\\]b [0]");
    EXPECT_EQ(find(root, "\\*"), "\\*");
    EXPECT_EQ(find(root, "a?b"), "a\\/b a\\]b");
    tree keyed = make_tree("root{e=1{net=10/8}}");
    EXPECT_EQ(value_at(keyed, "e[net=10/8]"), "1");
    EXPECT_EQ(value_at(keyed, "e[n\\et=10\\/8]"), "1");
}

TEST(Path, WildcardsMatchWholeNamesButNoLayout) {
    tree root = make_tree("root{eth0{ip=1} .comment=x eth1{ip=2} lo{ip=3} eth0{ip=4} .empty}");
    EXPECT_EQ(find(root, "eth*"), "eth0 eth1 eth0[1]");
    EXPECT_EQ(find(root, "?*?/ip"), "eth0/ip eth1/ip lo/ip eth0[1]/ip");
    EXPECT_EQ(find(root, "*0"), "eth0 eth0[1]");
    EXPECT_EQ(find(root, "*[1]"), "eth1");
    EXPECT_EQ(find(root, "*[ip=4]/*"), "eth0[1]/ip");
    EXPECT_EQ(find(root, "t*"), "");
    EXPECT_EQ(find(root, ".comment"), ".comment");
    EXPECT_EQ(find(root, "eth0/ip"), "eth0/ip eth0[1]/ip");
    EXPECT_EQ(find(root, "."), ".");
    tree umlaut = make_tree("root{\xc3\xbc \xfc ab}");
    EXPECT_EQ(find(umlaut, "?"), "\xc3\xbc \xfc");
}

TEST(Path, BranchesUseWhatIsThereAndCreateTheRest) {
    tree root = make_tree("root{a a{b}}");
    const cnfnode *c = cnf_add_branch(root.get(), "a/b/c");
    EXPECT_EQ(c, at(root, "a[1]/b/c"));
    EXPECT_EQ(show(root.get()), "root{a a{b{c}}}");
    cnf_add_branch(root.get(), "a/b");
    EXPECT_EQ(show(root.get()), "root{a{b} a{b{c}}}") << "the last one is always created";
    cnf_add_branch(root.get(), "x\\/y/z");
    cnf_add_branch(root.get(), "n[k=v]/w");
    cnf_add_branch(root.get(), "n[1]");
    cnf_add_branch(root.get(), "n[k=v]/w");
    EXPECT_EQ(show(root.get()), "root{a{b} a{b{c}} x/y{z} n{k=v w w} n}");
    EXPECT_EQ(cnf_add_branch(root.get(), "n[7]"), nullptr) << "not the place that it would get";
    EXPECT_EQ(cnf_add_branch(root.get(), "new[1]/x"), nullptr);
    EXPECT_EQ(cnf_add_branch(root.get(), "."), nullptr);
    EXPECT_EQ(cnf_del_branch(root.get(), "a/b/c"), 0);
    EXPECT_EQ(cnf_del_branch(root.get(), "n[1]"), 0);
    EXPECT_EQ(show(root.get()), "root{a{b} a{b} x/y{z} n{k=v w w}}");
    EXPECT_EQ(cnf_del_branch(root.get(), "n[1]"), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(cnf_del_branch(root.get(), ""), -1);
}

TEST(Path, LongPathsAndLongListsCostNoMoreThanTheirLength) {
    std::string deep;
    for (int i = 0; i < 200000; i++)
        deep += "a/";
    deep += "a";
    tree root{create_cnfnode("root")};
    const cnfnode *last = cnf_add_branch(root.get(), deep.c_str());
    EXPECT_EQ(cnf_get_node(root.get(), deep.c_str()), last);
    EXPECT_EQ(cnf_get_node(root.get(), (deep + "/b").c_str()), nullptr);
    tree wide{create_cnfnode("root")};
    for (int i = 0; i < 100000; i++)
        append_node(wide.get(), create_cnfnode("same"));
    owned<cnfresult, destroy_cnfresult_list> list{cnf_find_entry(wide.get(), "*")};
    const cnfresult *result = list.get();
    for (int i = 0; i < 99999; i++)
        result = result->next;
    EXPECT_STREQ(result->path, "same[99999]");
    EXPECT_EQ(cnf_get_node(wide.get(), result->path), cnfnode_last_child(wide.get()));
}

}  // namespace

#include <gtest/gtest.h>

#include <cerrno>
#include <random>

#include "llconf_trees.h"

namespace {

TEST(Nodes, ChildrenStandWhereTheyArePut) {
    tree root = make_tree("root{a b c}");
    cnfnode *b = at(root, "b");
    EXPECT_EQ(append_node(root.get(), b), 0);
    EXPECT_EQ(show(root.get()), "root{a c b}");
    EXPECT_EQ(insert_node_before(at(root, "a"), b), 0);
    EXPECT_EQ(show(root.get()), "root{b a c}");
    EXPECT_EQ(insert_node_before(at(root, "a"), b), 0) << "where it stands already";
    EXPECT_EQ(append_node(at(root, "c"), at(root, "a")), 0);
    EXPECT_EQ(show(root.get()), "root{b c{a}}");
    EXPECT_EQ(cnfnode_prev(at(root, "c")), b);
    EXPECT_EQ(cnfnode_last_child(root.get()), at(root, "c"));
    EXPECT_EQ(unlink_node(b), 0);
    EXPECT_EQ(b->next, nullptr);
    EXPECT_EQ(b->parent, nullptr);
    destroy_cnftree(b);
    EXPECT_EQ(show(root.get()), "root{c{a}}");
}

TEST(Nodes, WhatWouldTearATreeIsRefused) {
    tree root = make_tree("root{a{b}}");
    cnfnode *a = at(root, "a");
    errno = 0;
    EXPECT_EQ(append_node(at(root, "a/b"), a), -1);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(append_node(a, a), -1);
    EXPECT_EQ(append_node(a, root.get()), -1);
    EXPECT_EQ(insert_node_before(nullptr, a), -1);
    EXPECT_EQ(insert_node_before(root.get(), a), -1) << "the top has no siblings";
    EXPECT_EQ(append_node(root.get(), nullptr), -1);
    EXPECT_EQ(show(root.get()), "root{a{b}}");
}

TEST(Nodes, ValuesAreCopiedAndMayComeFromTheNodeItself) {
    tree root = make_tree("root=value");
    EXPECT_EQ(cnfnode_setval(root.get(), root->value + 2), 0);
    EXPECT_STREQ(cnfnode_getval(root.get()), "lue");
    EXPECT_EQ(cnfnode_setval(root.get(), nullptr), 0);
    EXPECT_EQ(cnfnode_getval(root.get()), nullptr);
    EXPECT_EQ(cnfnode_setname(root.get(), root->name + 1), 0);
    EXPECT_STREQ(cnfnode_getname(root.get()), "oot");
}

TEST(Nodes, TreesAreComparedByNamesValuesAndOrder) {
    tree root = make_tree("root{a=1{x} b}");
    for (const char *same : {"root{a=1{x} b}"}) {
        EXPECT_EQ(compare_cnftree(root.get(), make_tree(same).get()), 0) << same;
    }
    for (const char *other :
         {"root{a=1{x}}", "root{a=1{x} b c}", "root{b a=1{x}}", "root{a=2{x} b}", "root{a{x} b}",
          "root{a=1 b}", "root{a=1{x{y}} b}", "root"}) {
        EXPECT_NE(compare_cnftree(root.get(), make_tree(other).get()), 0) << other;
        EXPECT_NE(compare_cnftree_children(make_tree(other).get(), root.get()), 0) << other;
    }
    EXPECT_EQ(compare_cnftree_children(root.get(), make_tree("other=1{a=1{x} b}").get()), 0);
    EXPECT_EQ(compare_cnftree_children(nullptr, make_tree("empty").get()), 0);
    EXPECT_NE(compare_cnftree_children(root.get(), nullptr), 0);
}

TEST(Nodes, StrippingRemovesLayoutAtEveryDepth) {
    tree root = make_tree("root{.comment=x a{.empty .comment b{.unparsed=y}} .commentary .empty}");
    strip_cnftree(root.get());
    EXPECT_EQ(show(root.get()), "root{a{b} .commentary}");
}

TEST(Nodes, NoDepthIsTooMuch) {
    constexpr int k_depth = 300000;
    tree root{create_cnfnode("d")};
    for (int i = 0; i < k_depth; i++) {
        tree above{create_cnfnode("d")};
        ASSERT_EQ(append_node(above.get(), root.release()), 0);
        root = std::move(above);
    }
    tree copy{clone_cnftree(root.get())};
    EXPECT_EQ(compare_cnftree(root.get(), copy.get()), 0);
    strip_cnftree(copy.get());
    EXPECT_EQ(unparse(parser("hosts"), root.get()), "hosts: 'd' cannot be stored in this file");
    EXPECT_EQ(unparse(parser("python"), root.get()), "python: 'd' cannot be stored in this file");
}

/* What find_node must answer. */
cnfnode *walk_to(cnfnode *first, const char *name) {
    while (first != nullptr && strcmp(first->name, name) != 0)
        first = first->next;
    return first;
}

TEST(Nodes, FindingByNameAnswersWhatAWalkWouldAfterAnyEdits) {
    std::mt19937 random{7};  // NOLINT(bugprone-random-generator-seed): repeatable
    tree root{create_cnfnode("root")};
    auto pick = [&](size_t below) {
        return std::uniform_int_distribution<size_t>{0, below - 1}(random);
    };
    auto any_name = [&] { return "n" + std::to_string(pick(90)); };
    size_t count = 0;
    auto any_child = [&] {
        cnfnode *child = root->first_child;
        for (size_t i = pick(count); i > 0; i--)
            child = child->next;
        return child;
    };
    for (int round = 0; round < 20000; round++) {
        size_t what = count < 30 ? 0 : pick(5);
        if (what <= 1) {
            append_node(root.get(), create_cnfnode(any_name().c_str()));
            count++;
        } else if (what == 2) {
            insert_node_before(any_child(), any_child());
        } else if (what == 3) {
            cnfnode_setname(any_child(), any_name().c_str());
        } else if (count > 150) {
            destroy_cnftree(any_child());
            count--;
        }
        std::string name = any_name();
        cnfnode *expected = walk_to(root->first_child, name.c_str());
        ASSERT_EQ(find_node(root->first_child, name.c_str()), expected);
        cnfnode *second = expected != nullptr ? walk_to(expected->next, name.c_str()) : nullptr;
        ASSERT_EQ(cnf_get_node(root.get(), (name + "[1]").c_str()), second);
        if (second != nullptr) {
            ASSERT_EQ(find_node(expected->next, name.c_str()), second);
        }
    }
}

TEST(Nodes, ANodeOfALargeCopyOutlivesIt) {
    tree root{create_cnfnode("(root)")};
    for (int i = 0; i < 5000; i++)
        append_node(root.get(), create_cnfnode(std::to_string(i).c_str()));
    tree copy{clone_cnftree(root.get())};
    EXPECT_EQ(compare_cnftree(root.get(), copy.get()), 0);
    tree kept{cnf_get_node(copy.get(), "4999")};
    ASSERT_EQ(unlink_node(kept.get()), 0);
    copy.reset();
    EXPECT_STREQ(kept->name, "4999");
    EXPECT_EQ(append_node(root.get(), kept.release()), 0);
    EXPECT_STREQ(cnf_get_node(root.get(), "4999[1]")->name, "4999");
}

}  // namespace

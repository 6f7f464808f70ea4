#include "llconf/journal.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <random>
#include <vector>

#include "llconf_trees.h"

namespace {

constexpr const char *k_hosts =
    "10.0.0.1  one uno # first\n\n# remark\n10.0.0.2 two\n10.0.0.1 again\n";

/* Everything that a tree is: its nodes themselves, their texts, and what would be written. */
struct snapshot {
    std::vector<const cnfnode *> nodes;
    std::vector<const char *> texts;
    std::string shown;
    std::string file;

    explicit snapshot(const cnfnode *root) : shown(show(root)) {
        file = unparse(parser("hosts"), root);
        collect(root);
    }
    void collect(const cnfnode *node) {
        nodes.push_back(node);
        texts.insert(texts.end(), {node->name, node->value});
        for (const cnfnode *c = node->first_child; c != nullptr; c = c->next)
            collect(c);
    }
    bool operator==(const snapshot &) const = default;
};

TEST(Journal, RollbackRestoresNodesTextsAndTheFile) {
    tree root = parse(parser("hosts"), k_hosts);
    snapshot before{root.get()};
    cnf_journal *journal = cnf_journal_begin(root.get());
    EXPECT_EQ(cnfnode_setval(at(root, "10.0.0.2/name"), "two"), 0);
    EXPECT_EQ(cnf_journal_changed(journal), 0) << "the same value again is no edit";
    cnfnode_setval(at(root, "10.0.0.1/name"), "eins");
    EXPECT_EQ(cnf_journal_changed(journal), 1);
    cnfnode_setname(at(root, "10.0.0.2"), "10.9.9.9");
    cnf_add_branch(root.get(), "10.0.0.3/name");
    cnf_del_branch(root.get(), "10.0.0.1");
    append_node(root.get(), at(root, "10.9.9.9"));
    strip_cnftree(root.get());
    EXPECT_NE(snapshot{root.get()}, before);
    cnf_journal_rollback(journal);
    EXPECT_EQ(snapshot{root.get()}, before);
    EXPECT_EQ(before.file, k_hosts);
    EXPECT_EQ(at(root, "10.0.0.1[1]/name"), cnf_get_node(root.get(), "10.0.0.1[name=again]/name"));
}

TEST(Journal, EachEditAndItsUndoIsCounted) {
    tree root = parse(parser("hosts"), k_hosts);
    uint64_t seen = cnf_edit_count();
    auto grown = [&seen](const char *what) {
        EXPECT_LT(seen, cnf_edit_count()) << what;
        seen = cnf_edit_count();
    };
    cnfnode *entry = at(root, "10.0.0.2");
    for (bool undone : {false, true}) {
        cnf_journal *journal = undone ? cnf_journal_begin(root.get()) : nullptr;
        EXPECT_EQ(seen, cnf_edit_count());
        cnfnode_setval(entry->first_child, undone ? "a" : "b");
        grown("value");
        cnf_journal_rollback(journal);
        if (undone) grown("undo");
    }
    cnfnode_setname(entry, "10.0.0.3");
    grown("name");
    unlink_node(entry);
    grown("unlinked");
    append_node(root.get(), entry);
    grown("linked");
    insert_node_before(root->first_child, entry);
    grown("moved");
    destroy_cnftree(entry);
    grown("destroyed");
}

TEST(Journal, JournalsNestAndTheOuterOneTakesBackWhatTheInnerKept) {
    tree root = make_tree("root{a=1 b=2}");
    cnf_journal *outer = cnf_journal_begin(root.get());
    cnfnode_setval(at(root, "a"), "10");
    cnf_journal *inner = cnf_journal_begin(root.get());
    cnf_del_branch(root.get(), "b");
    cnf_journal_rollback(inner);
    EXPECT_EQ(show(root.get()), "root{a=10 b=2}");
    inner = cnf_journal_begin(root.get());
    EXPECT_EQ(cnf_journal_changed(inner), 0);
    cnf_del_branch(root.get(), "a");
    cnf_journal_keep(inner);
    EXPECT_EQ(show(root.get()), "root{b=2}");
    cnf_journal_rollback(outer);
    EXPECT_EQ(show(root.get()), "root{a=1 b=2}");
    outer = cnf_journal_begin(root.get());
    cnf_del_branch(root.get(), "b");
    cnf_journal_keep(outer);
    EXPECT_EQ(show(root.get()), "root{a=1}");
}

TEST(Journal, WhatLeftTheTreeComesBackWhateverHappenedToItMeanwhile) {
    tree root = make_tree("root{a{x{y}} b}");
    cnf_journal *journal = cnf_journal_begin(root.get());
    cnfnode *a = at(root, "a");
    cnfnode *x = at(root, "a/x");
    unlink_node(a);
    unlink_node(x);
    cnfnode_setval(x, "edited");
    cnfnode *box = create_cnfnode("box");
    append_node(box, x);
    append_node(root.get(), box);
    destroy_cnftree(cnf_get_node(root.get(), "box/x/y"));
    destroy_cnftree(a);
    cnfnode *loose = create_cnfnode("loose");
    append_node(loose, at(root, "b"));
    destroy_cnftree(loose);
    EXPECT_EQ(show(root.get()), "root{box{x=edited}}");
    cnf_journal_rollback(journal);
    EXPECT_EQ(show(root.get()), "root{a{x{y}} b}");
}

TEST(Journal, TreesWithJournalsOfTheirOwnDoNotMix) {
    tree one = make_tree("one{a}");
    tree two = make_tree("two{b}");
    EXPECT_EQ(cnf_journal_begin(at(one, "a")), nullptr) << "not the top of a tree";
    EXPECT_EQ(errno, EINVAL);
    cnf_journal *first = cnf_journal_begin(one.get());
    cnf_journal *second = cnf_journal_begin(two.get());
    EXPECT_EQ(append_node(two.get(), at(one, "a")), -1);
    EXPECT_EQ(append_node(at(two, "b"), one.get()), -1);
    cnfnode_setval(at(one, "a"), "1");
    cnfnode_setval(at(two, "b"), "2");
    cnf_journal_rollback(first);
    EXPECT_EQ(show(two.get()), "two{b=2}");
    cnf_journal_rollback(second);
    EXPECT_EQ(show(one.get()) + show(two.get()), "one{a}two{b}");
    cnf_journal_begin(one.get());
    cnf_del_branch(one.get(), "a");
    one.reset(); /* ends the journal as well */
}

/* Edits at random, in the tree and in what was taken out of it. */
class random_editor {
  public:
    random_editor(cnfnode *root, unsigned seed) : root_(root), random_(seed) {}

    void edit() {
        cnfnode *node = any();
        cnfnode *other = any();
        std::string text = "t" + std::to_string(pick(40));
        switch (pick(8)) {
            case 0:
                cnfnode_setval(node, pick(4) == 0 ? nullptr : text.c_str());
                break;
            case 1:
                if (node != root_) cnfnode_setname(node, text.c_str());
                break;
            case 2:
            case 3:
                append_node(node, create_cnfnode(text.c_str()));
                break;
            case 4:
                append_node(node, other);
                break;
            case 5:
                insert_node_before(node, other);
                break;
            case 6:
                if (node->parent != nullptr && unlink_node(node) == 0) out_.push_back(node);
                break;
            default:
                if (node->parent != nullptr && pick(3) == 0) destroy_cnftree(node);
                if (!out_.empty()) settle(out_.back());
        }
        std::erase_if(out_, [](const cnfnode *n) { return n->parent != nullptr; });
    }
    /* Nothing stays outside: a journal's end may free it. */
    void clear() {
        while (!out_.empty())
            settle(out_.back());
    }

  private:
    size_t pick(size_t below) {
        return std::uniform_int_distribution<size_t>{0, below - 1}(random_);
    }
    void settle(cnfnode *node) {
        out_.pop_back();
        if (pick(2) == 0 && append_node(root_, node) == 0) return;
        destroy_cnftree(node);
    }
    cnfnode *any() {
        cnfnode *node = !out_.empty() && pick(4) == 0 ? out_.back() : root_;
        while (node->first_child != nullptr && pick(3) != 0) {
            node = node->first_child;
            for (size_t i = pick(25); i > 0 && node->next != nullptr; i--)
                node = node->next;
        }
        return node;
    }

    cnfnode *root_;
    std::mt19937 random_;
    std::vector<cnfnode *> out_;
};

TEST(Journal, AnyEditsCanBeTakenBack) {
    for (unsigned seed = 0; seed < 60; seed++) {
        std::string text;
        for (int i = 0; i < 40; i++)
            text += "10.0.0." + std::to_string(i % 30) + " name a b c\n";
        tree root = parse(parser("hosts"), text);
        random_editor editor{root.get(), seed};
        (void)at(root, "nothing");
        snapshot start{root.get()};
        cnf_journal *outer = cnf_journal_begin(root.get());
        for (int i = 0; i < 100; i++)
            editor.edit();
        editor.clear();
        snapshot middle{root.get()};
        cnf_journal *inner = cnf_journal_begin(root.get());
        for (int i = 0; i < 100; i++)
            editor.edit();
        editor.clear();
        cnf_journal_rollback(inner);
        ASSERT_EQ(snapshot{root.get()}, middle) << seed;
        inner = cnf_journal_begin(root.get());
        for (int i = 0; i < 100; i++)
            editor.edit();
        editor.clear();
        cnf_journal_keep(inner);
        for (int i = 0; i < 40; i++) {
            std::string name = "t" + std::to_string(i);
            cnfnode *walk = root->first_child;
            while (walk != nullptr && name != walk->name)
                walk = walk->next;
            ASSERT_EQ(at(root, name.c_str()), walk);
        }
        if (seed % 2 == 0) {
            cnf_journal_keep(outer);
            continue;
        }
        cnf_journal_rollback(outer);
        ASSERT_EQ(snapshot{root.get()}, start) << seed;
    }
}

}  // namespace

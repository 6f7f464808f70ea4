#include "backend/discarded.h"
#include "backend_fixture.h"

namespace {

class transactions : public backend_test {
  protected:
    transactions() {
        put("hosts", "10.0.0.1 alpha\n10.0.0.2 beta\n");
        put("other", "1\n");
        modules("hosts {\n file: hosts\n}\nother {\n module: lines\n file: other\n}\n");
        session.reset(trns_copy_ctx(g_trns_ctx));
        batch.reset(trns_copy_ctx(session.get()));
    }
    static cnfnode *tree(const owned_ctx &ctx) { return item("hosts", ctx.get())->cn_root; }
    std::string name(const owned_ctx &ctx) const {
        return eval("llget('hosts', '10.0.0.1/name')", ctx.get());
    }
    void set(const owned_ctx &ctx, const std::string &value) const {
        EXPECT_EQ(eval("llset('hosts', '10.0.0.1/name', '" + value + "')", ctx.get()), "1");
    }

    owned_ctx session;
    owned_ctx batch;
};

TEST_F(transactions, AnEditStaysInItsSessionUntilItIsCommittedOrReverted) {
    set(session, "gamma");
    EXPECT_EQ(eval("llget('hosts', '10.0.0.1/name')"), "alpha");
    EXPECT_EQ(trns_isdirty_ctx(session.get()), 1);
    EXPECT_EQ(trns_isdirty_ctx(g_trns_ctx), 0);
    trns_commit_ctx(session.get());
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(get("hosts"), "10.0.0.1 gamma\n10.0.0.2 beta\n");
    set(session, "delta");
    EXPECT_EQ(trns_revert_ctx(session.get()), 0);
    EXPECT_EQ(name(session), "gamma");
    EXPECT_EQ(trns_isdirty_ctx(session.get()), 0);
}

TEST_F(transactions, ALargeTreeThatIsGivenUpIsFreedPieceByPiece) {
    std::string text;
    for (int i = 0; i < 5000; i++)
        text += "10.0.0.1 name\n";
    put("long", text);
    modules("long {\n module: hosts\n file: long\n}\n");
    EXPECT_EQ(eval("llset('long', '10.0.0.1/name', 'gamma')", session.get()), "1");
    const cnfnode *given_up = item("long", session.get())->cn_root;
    trns_revert_ctx(session.get());
    discard_go_on();
    long left = 0;
    for (const cnfnode *child = given_up->first_child; child; child = child->next)
        left++;
    EXPECT_TRUE(left > 0 && left < 5000) << left;
    for (int i = 0; i < 10; i++)
        discard_go_on();
}

TEST_F(transactions, WhatACommitsChildWroteIsReadAlthoughAnotherSessionRevertedMeanwhile) {
    put("pipe", "");
    modules("out {\n module: lines\n pipe-in: cat " + path("pipe") + "\n pipe-out: cat\n}\n");
    owned_ctx other{trns_copy_ctx(g_trns_ctx)};
    set(session, "gamma");
    eval("lladd('out', '', 'line')", session.get());
    trns_submit_ctx(session.get());
    EXPECT_EQ(trns_revert_ctx(other.get()), 0);
    EXPECT_EQ(name(session), "alpha");
    auto second = std::filesystem::last_write_time(path("hosts"));
    put("pipe", "written\n");
    put("hosts.new", "10.0.0.1 gamma\n");
    std::filesystem::rename(path("hosts.new"), path("hosts"));
    std::filesystem::last_write_time(path("hosts"), second);
    trns_inc_ctx_serial(session.get());
    EXPECT_EQ(trns_revert_ctx(session.get()), 0);
    EXPECT_EQ(name(session), "gamma");
    EXPECT_EQ(eval("llget('out', 'line')", session.get()), "written");
}

TEST_F(transactions, ARefusedEditIsGoneEvenIfTheFileCannotBeReadAgain) {
    set(session, "gamma");
    trns_submit_ctx(session.get());
    std::filesystem::rename(path("hosts"), path("away"));
    std::filesystem::create_symlink("hosts", path("hosts"));
    trns_inc_ctx_serial(session.get());
    EXPECT_NE(trns_revert_ctx(session.get()), 0);
    EXPECT_EQ(name(session) + name(batch), "alphaalpha");
    /* What is not known is not written over, and known as soon as it can be. */
    set(session, "delta");
    trns_commit_ctx(session.get());
    EXPECT_EQ(errno, EINVAL);
    trns_inc_ctx_serial(session.get());
    trns_revert_ctx(session.get());
    std::filesystem::rename(path("away"), path("hosts"));
    put("hosts", "10.0.0.1 alpha\n10.0.0.3 added\n");
    set(session, "delta");
    trns_commit_ctx(session.get());
    EXPECT_EQ(get("hosts"), "10.0.0.1 delta\n10.0.0.3 added\n");
}

TEST_F(transactions, ABatchWorksInTheSessionsOwnTreeAndCancelTakesItsEditsBack) {
    set(session, "gamma");
    set(batch, "delta");
    eval("lldel('hosts', '', '10.0.0.2')", batch.get());
    EXPECT_EQ(tree(batch), tree(session));
    EXPECT_EQ(trns_cancel_ctx(batch.get()), 1);
    EXPECT_EQ(name(session), "gamma");
    EXPECT_EQ(eval("lllist('hosts', '')", session.get()), "10.0.0.1 10.0.0.2");
}

TEST_F(transactions, ABatchThatIsSubmittedLeavesItsEditsInTheSession) {
    set(session, "gamma");
    const cnfnode *lent = tree(session);
    item("hosts", session.get())->is_dirty = 0;
    set(batch, "delta");
    EXPECT_EQ(trns_submit_ctx(batch.get()), 0);
    EXPECT_EQ(tree(batch), nullptr);
    EXPECT_EQ(tree(session), lent);
    EXPECT_EQ(item("hosts", session.get())->is_dirty, 1);
    EXPECT_EQ(name(session), "delta");
    set(batch, "epsilon");
    batch.reset();
    EXPECT_EQ(name(session), "delta");
}

TEST_F(transactions, ASecondBatchCopiesWhatTheFirstOneBorrows) {
    set(session, "gamma");
    owned_ctx second{trns_copy_ctx(session.get())};
    set(batch, "delta");
    set(second, "epsilon");
    EXPECT_EQ(name(batch), "delta");
    EXPECT_EQ(trns_submit_ctx(second.get()), 0);
    EXPECT_EQ(name(session), "epsilon");
    EXPECT_EQ(tree(batch), nullptr);
    session.reset();
    EXPECT_EQ(item("hosts", batch.get()), nullptr);
}

TEST_F(transactions, ADeletionMarkMovesUpOnlyWithADirtyTree) {
    EXPECT_EQ(eval("llmoddelete('hosts')", batch.get()), "1");
    trns_submit_ctx(batch.get());
    trns_submit_ctx(session.get());
    EXPECT_EQ(item("hosts")->delete_me, 0);
    batch.reset(trns_copy_ctx(session.get()));
    EXPECT_EQ(eval("llisdirty('hosts')", batch.get()), "1");
    set(batch, "gamma");
    trns_submit_ctx(batch.get());
    trns_submit_ctx(session.get());
    EXPECT_EQ(item("hosts")->delete_me, 1);
    /* A commit's child removes the file; the daemon learns of it when it reverts. */
    std::filesystem::remove(path("hosts"));
    trns_revert_ctx(session.get());
    EXPECT_EQ(item("hosts"), nullptr);
    EXPECT_EQ(eval("llget('other', 'line')", session.get()), "1");
}

TEST_F(transactions, HooksSetInASessionMoveUpWithSubmitAndGoWithRevert) {
    eval("llmodsetpostcommit('hosts', llset('other', 'line', 'first'))", session.get());
    trns_revert_ctx(session.get());
    set(session, "gamma");
    trns_commit_ctx(session.get());
    EXPECT_EQ(eval("llget('other', 'line')"), "1");
    eval("llmodsetpostcommit('hosts', llset('other', 'line', 'second'))", session.get());
    set(session, "delta");
    trns_commit_ctx(session.get());
    EXPECT_EQ(get("other"), "second\n");
    /* An edit of a module that the commit has passed is written as well; one without end fails. */
    eval("llmodsetpostcommit('other', llset('hosts', '10.0.0.2/name', 'late'))", session.get());
    eval("llset('other', 'line', 'third')", session.get());
    trns_commit_ctx(session.get());
    EXPECT_EQ(get("hosts"), "10.0.0.1 delta\n10.0.0.2 late\n");
    eval("llmodsetpostcommit('other', lladd('other', '', 'line'))", session.get());
    eval("llset('other', 'line', 'fourth')", session.get());
    trns_commit_ctx(session.get());
    EXPECT_EQ(errno, EBUSY);
}

TEST_F(transactions, AnInstanceMadeInABatchIsSeenByAllAndWrittenByACommit) {
    owned_ctx second{trns_copy_ctx(g_trns_ctx)};
    EXPECT_EQ(eval("llmodcreate('new', 'lines', '/new')", batch.get()), "1");
    EXPECT_EQ(eval("lladd('new', '', 'line') && llset('new', 'line', 'x')", batch.get()), "1");
    EXPECT_EQ(eval("llexists('new', 'line')", second.get()), "0");
    trns_submit_ctx(batch.get());
    trns_commit_ctx(session.get());
    EXPECT_EQ(get("new"), "x\n");
    EXPECT_EQ(eval("llget('new', 'line')", second.get()), "x");
}

TEST_F(transactions, AContextThatWasCopiedWhenThereWasNothingGetsItsItemsLater) {
    owned<llconf_item, destroy_llconf_item> hosts{item("hosts")};
    llconf_item *other = item("other");
    unregister_llconf_module(hosts.get());
    unregister_llconf_module(other);
    owned_ctx empty{trns_copy_ctx(g_trns_ctx)};
    EXPECT_EQ(trns_submit_ctx(empty.get()), 1);
    register_llconf_module(other);
    EXPECT_EQ(eval("llget('other', 'line')", empty.get()), "1");
}

}  // namespace

#include "tree/trns.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string g_calls;
int g_results[2];

template <char name>
int call(trns_ctx_item *item) {
    g_calls += std::string(1, name) + std::to_string(item->id);
    return g_results[item->id - 1];
}
int copy(trns_ctx_item *item, trns_ctx_item *parent) {
    EXPECT_EQ(item->id, parent->id);
    return 0;
}
int destroy(trns_ctx_item *) {
    return 0;
}

}  // namespace

TEST(Transaction, EveryBackendIsCalledAndTheLastFailureCounts) {
    trns_ctx *before = trns_create_ctx();
    for (int id : {1, 2}) {
        register_trns_interface(id, nullptr, destroy, copy, call<'s'>, call<'x'>, call<'c'>,
                                call<'r'>, call<'d'>);
    }
    trns_ctx *ctx = trns_create_ctx();
    EXPECT_EQ(before->item_list, nullptr);
    EXPECT_EQ(trns_isdirty_ctx(before), 0);
    g_results[0] = 5;
    EXPECT_EQ(trns_submit_ctx(ctx), 5);
    g_results[1] = 7;
    EXPECT_EQ(trns_isdirty_ctx(ctx), 7);
    EXPECT_EQ(trns_commit_ctx(ctx), 0);
    EXPECT_EQ(g_calls, "s1s2d1d2c1c2");
    EXPECT_EQ(trns_find_ctx_byid(ctx, 2), ctx->item_list->next);
    trns_destroy_ctx(ctx);
    trns_destroy_ctx(before);
}

TEST(Transaction, ACommitMakesTheOtherCopiesStaleUntilTheyRevert) {
    trns_ctx *master = trns_create_ctx();
    trns_ctx *a = trns_copy_ctx(master);
    trns_ctx *b = trns_copy_ctx(master);
    EXPECT_EQ(trns_inc_ctx_serial(a), 1);
    EXPECT_EQ(trns_check_ctx_serial(a), 0);
    EXPECT_EQ(trns_check_ctx_serial(b), -1);
    trns_revert_ctx(b);
    EXPECT_EQ(trns_check_ctx_serial(b), 0);
    EXPECT_EQ(trns_get_ctx_serial(nullptr), -1);
    for (trns_ctx *ctx : {b, a, master})
        trns_destroy_ctx(ctx);
}

#include "ucfgd/databuf.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <climits>
#include <string>

#include "ucfgd/owners.h"

namespace {

using buffer = owned<databuf, destroy_databuf>;

std::string content(const buffer &b) {
    return {b->buf + b->start, b->buf + b->end};
}

void add(const buffer &b, const std::string &text) {
    ASSERT_EQ(databuf_add(b.get(), text.data(), static_cast<int>(text.size())), 0);
}

TEST(Databuf, MovesItsContentToTheFrontBeforeItGrowsByItsSlack) {
    buffer b{create_databuf()};
    add(b, std::string(600, 'x') + std::string(424, 'y'));
    databuf_remove(b.get(), 600);
    add(b, std::string(600, 'z'));
    EXPECT_EQ(b->size, 1024);
    add(b, "b");
    EXPECT_EQ(b->size, 1024 + 1 + 1024);
    EXPECT_EQ(content(b), std::string(424, 'y') + std::string(600, 'z') + "b");
}

TEST(Databuf, ShrinksToItsContentAfterMoreThanEightKibibytesWereConsumed) {
    buffer b{create_databuf()};
    add(b, std::string(8193, 'x') + "rest");
    databuf_remove(b.get(), 8192);
    EXPECT_EQ(b->start, 8192);
    databuf_remove(b.get(), 1);
    EXPECT_EQ(b->start, 0);
    EXPECT_EQ(b->size, 4 + 1024);
    EXPECT_EQ(content(b), "rest");
}

TEST(Databuf, RefusesToCountPastItsLimitAndStaysAsItWas) {
    buffer b{create_databuf()};
    add(b, "kept");
    EXPECT_LT(databuf_reserve(b.get(), INT_MAX), INT_MAX);
    EXPECT_EQ(databuf_add(b.get(), "", INT_MAX - 100), -1);
    EXPECT_EQ(errno, ENOMEM);
    EXPECT_EQ(content(b), "kept");
    free(databuf_steal(b.get()));
    add(b, "new");
    EXPECT_EQ(content(b), "new");
}

TEST(Databuf, ReadsChunksAndNeverWaitsForASocketOrDiesOfAVanishedPeer) {
    int ends[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
    unique_fd near{ends[0]};
    unique_fd far{ends[1]};
    buffer b{create_databuf()};
    EXPECT_EQ(databuf_flushout(b.get(), -1), 0) << "nothing to write";
    add(b, std::string(4 << 20, 's'));
    int sent = databuf_sendout(b.get(), near.get());
    EXPECT_GT(sent, 0);
    EXPECT_EQ(databuf_pending(b.get()), (4 << 20) - sent);
    EXPECT_EQ(b->start, sent) << "what waits is not moved with every piece";
    while (databuf_sendout(b.get(), near.get()) > 0) {}
    EXPECT_EQ(errno, EAGAIN);
    buffer received{create_databuf()};
    EXPECT_EQ(databuf_flushin(received.get(), far.get()), 1024);
    EXPECT_EQ(content(received), std::string(1024, 's'));
    far.reset();
    EXPECT_EQ(databuf_sendout(b.get(), near.get()), -1);
}

}  // namespace

#include "daemon/loop.h"

#include <errno.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

#include "ucfgd/owners.h"

namespace {

int g_sweeps = 0;
int g_closes = 0;

/* Both ends of a connection, the far one ours; the near one is registered and closed by the loop.
 */
struct watched {
    explicit watched(int type, std::function<void(watched &)> action) : act(std::move(action)) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        far.reset(ends[1]);
        fd = ends[0];
        cb = create_fd_callback(fd, type, called, this);
        EXPECT_EQ(loop_add_callback(cb), 0);
    }

    static int called(int, void *data) {
        auto *self = static_cast<watched *>(data);
        self->calls++;
        self->act(*self);
        return -1;
    }

    void finish() { cb->state = FD_CALLBACK_FINISHED; }
    void make_readable() { EXPECT_EQ(write(far.get(), "x", 1), 1); }
    bool closed() const { return fcntl(fd, F_GETFD) < 0; }

    std::function<void(watched &)> act;
    unique_fd far;
    int fd = -1;
    int calls = 0;
    fd_callback *cb = nullptr;
};

class Loop : public testing::Test {
  protected:
    Loop() {
        g_sweeps = 0;
        g_closes = 0;
        loop_set_hooks([] { g_sweeps++; }, [] { g_closes++; });
    }
    ~Loop() override {
        loop_set_hooks(nullptr, nullptr);
        while (g_cb_list) {
            close(g_cb_list->fd);
            loop_del_callback(g_cb_list);
        }
    }
};

void finish_all(watched &) {
    loop_finish_all();
}

TEST_F(Loop, CallsReadersAndWritersInOrderAndEndsWhenNoneIsLeft) {
    std::string order;
    watched reader(FD_CALLBACK_READ, [&](watched &w) {
        order += 'r';
        w.finish();
    });
    watched writer(FD_CALLBACK_WRITE, [&](watched &w) {
        order += 'w';
        w.finish();
    });
    reader.make_readable();
    loop(0);
    EXPECT_EQ(order, "rw");
    EXPECT_TRUE(reader.closed());
    EXPECT_TRUE(writer.closed());
    EXPECT_EQ(g_cb_list, nullptr);
    EXPECT_EQ(g_sweeps, 1);
}

TEST_F(Loop, PassesOverARecordThatAnEarlierCallbackHasMarkedOrParked) {
    watched *marked = nullptr;
    watched *parked = nullptr;
    watched first(FD_CALLBACK_WRITE, [&](watched &w) {
        if (w.calls == 1) {
            marked->finish();
            parked->cb->type = FD_CALLBACK_PARKED;
        } else {
            loop_finish_all();
        }
    });
    watched second(FD_CALLBACK_READ, [](watched &) {});
    watched third(FD_CALLBACK_READ, [](watched &) {});
    marked = &second;
    parked = &third;
    second.make_readable();
    third.make_readable();
    loop(0);
    EXPECT_EQ(first.calls, 2);
    EXPECT_EQ(second.calls, 0);
    EXPECT_EQ(third.calls, 0);
    EXPECT_EQ(g_closes, 1) << "the last removal empties the list and ends the loop";
}

TEST_F(Loop, WatchesAParkedRecordAgainAndTakesRecordsAddedByCallbacks) {
    watched parked(FD_CALLBACK_PARKED, finish_all);
    parked.make_readable();
    std::unique_ptr<watched> added;
    watched first(FD_CALLBACK_WRITE, [&](watched &w) {
        w.finish();
        added = std::make_unique<watched>(FD_CALLBACK_WRITE, [&](watched &late) {
            late.finish();
            parked.cb->type |= FD_CALLBACK_READ;
        });
    });
    loop(0);
    EXPECT_EQ(first.calls, 1);
    EXPECT_EQ(added->calls, 1);
    EXPECT_EQ(parked.calls, 1);
}

TEST_F(Loop, StopsAtAStopMarkAndLeavesWhatStandsBehindIt) {
    watched stop(FD_CALLBACK_WRITE, [](watched &w) { w.cb->state = FD_CALLBACK_STOP; });
    watched behind(FD_CALLBACK_WRITE, [](watched &w) { w.finish(); });
    loop(0);
    EXPECT_FALSE(behind.closed());
    EXPECT_EQ(g_cb_list, stop.cb);
}

TEST_F(Loop, AppendsBehindTheLastRecordAlsoAfterThatOneWasRemoved) {
    watched first(FD_CALLBACK_PARKED, finish_all);
    watched last(FD_CALLBACK_PARKED, finish_all);
    close(last.fd);
    loop_del_callback(last.cb);
    watched next(FD_CALLBACK_WRITE, finish_all);
    EXPECT_EQ(first.cb->next, next.cb);
    loop(0);
    EXPECT_EQ(next.calls, 1);
}

TEST_F(Loop, RefusesDescriptorsThatSelectCannotWatch) {
    for (int fd : {-1, FD_SETSIZE, FD_SETSIZE + 5}) {
        owned<fd_callback, free> cb{create_fd_callback(fd, FD_CALLBACK_READ, nullptr, nullptr)};
        EXPECT_EQ(loop_add_callback(cb.get()), -1);
        EXPECT_EQ(errno, fd < 0 ? EBADF : EMFILE);
    }
    EXPECT_EQ(loop_add_callback(nullptr), -1);
    EXPECT_EQ(g_cb_list, nullptr);
}

TEST_F(Loop, GoesOnWhenSomebodyElseHasClosedADescriptor) {
    watched broken(FD_CALLBACK_READ, finish_all);
    watched alive(FD_CALLBACK_READ, finish_all);
    close(broken.fd);
    alive.make_readable();
    loop(0);
    EXPECT_EQ(alive.calls, 1);
    EXPECT_EQ(broken.calls, 0);
}

}  // namespace

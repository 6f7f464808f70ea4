#include "daemon/loop.h"

#include <fcntl.h>
#include <sys/select.h>
#include <sys/socket.h>

#include <functional>
#include <memory>

#include "loop_fixture.h"
#include "ucfgd/owners.h"

namespace {

/* A registration on one end of a connection; the far end is ours. */
struct watched {
    watched(int type, std::function<void(watched &)> action) : act(std::move(action)) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        far.reset(ends[1]);
        EXPECT_EQ(write(far.get(), "x", 1), 1);
        cb = create_fd_callback(fd = ends[0], type, called, this);
        EXPECT_EQ(loop_add_callback(cb), 0);
    }

    static int called(int, void *data) {
        auto *self = static_cast<watched *>(data);
        self->calls++;
        self->act(*self);
        return -1;
    }

    void finish() { cb->state = FD_CALLBACK_FINISHED; }
    bool closed() const { return fcntl(fd, F_GETFD) < 0; }

    std::function<void(watched &)> act;
    unique_fd far;
    int fd = -1;
    int calls = 0;
    fd_callback *cb = nullptr;
};

using Loop = LoopFixture;

void finish_all(watched &) {
    loop_finish_all();
}

TEST_F(Loop, CallsReadersAndWritersInOrderAndEndsWhenNoneIsLeft) {
    std::string order;
    watched reader(FD_CALLBACK_READ, [&](watched &w) { order += 'r', w.finish(); });
    watched writer(FD_CALLBACK_WRITE, [&](watched &w) { order += 'w', w.finish(); });
    loop(0);
    EXPECT_EQ(order, "rw");
    EXPECT_TRUE(reader.closed() && writer.closed());
    EXPECT_EQ(g_cb_list, nullptr);
}

TEST_F(Loop, PassesOverRecordsThatAnEarlierCallbackHasMarkedOrParked) {
    watched *marked = nullptr;
    watched *parked = nullptr;
    watched first(FD_CALLBACK_WRITE, [&](watched &) {
        if (marked->closed()) return loop_finish_all();
        marked->finish();
        parked->cb->type = FD_CALLBACK_PARKED;
    });
    watched second(FD_CALLBACK_READ, finish_all);
    watched third(FD_CALLBACK_READ, finish_all);
    marked = &second;
    parked = &third;
    loop(0);
    EXPECT_EQ(first.calls, 2);
    EXPECT_EQ(second.calls + third.calls, 0);
}

TEST_F(Loop, WatchesAParkedRecordAgainAndTakesRecordsAddedByCallbacks) {
    watched parked(FD_CALLBACK_PARKED, finish_all);
    std::unique_ptr<watched> added;
    watched last(FD_CALLBACK_WRITE, [&](watched &w) {
        w.finish();
        added = std::make_unique<watched>(FD_CALLBACK_WRITE, [&](watched &late) {
            late.finish();
            parked.cb->type |= FD_CALLBACK_READ;
        });
    });
    loop(0);
    EXPECT_EQ(parked.calls, 1);
}

TEST_F(Loop, StopsAtAStopMarkAndLeavesWhatStandsBehindIt) {
    watched stop(FD_CALLBACK_WRITE, [](watched &w) { w.cb->state = FD_CALLBACK_STOP; });
    watched behind(FD_CALLBACK_WRITE, [](watched &w) { w.finish(); });
    loop(0);
    EXPECT_FALSE(behind.closed());
    EXPECT_EQ(g_cb_list, stop.cb);
}

TEST_F(Loop, RefusesDescriptorsThatSelectCannotWatchAndParksThoseClosedByOthers) {
    for (int fd : {-1, FD_SETSIZE}) {
        owned<fd_callback, free> cb{create_fd_callback(fd, FD_CALLBACK_READ, nullptr, nullptr)};
        EXPECT_EQ(loop_add_callback(cb.get()), -1);
    }
    watched broken(FD_CALLBACK_READ, finish_all);
    watched alive(FD_CALLBACK_READ, finish_all);
    close(broken.fd);
    loop(0);
    EXPECT_EQ(alive.calls, 1);
    EXPECT_EQ(broken.calls, 0);
}

int64_t g_clock = 0;

TEST_F(Loop, RunsTimersInTheOrderOfTheirTimesAndSweepsWhenWorkIsLeft) {
    static std::string order;
    order.clear();
    static int asked;
    asked = 0;
    /* The machine sleeps in the wait behind "late", for longer than the last timer has left. */
    g_loop_clock = [] { return g_clock += order.ends_with("late ") && ++asked == 2 ? 1000000 : 5; };
    static loop_timer timers[4];
    watched idle(FD_CALLBACK_PARKED, finish_all);
    auto note = [](void *text) { order += static_cast<const char *>(text); };
    loop_set_timer(&timers[0], 40, note, const_cast<char *>("late "));
    loop_set_timer(&timers[1], 20, note, const_cast<char *>("early "));
    loop_set_timer(&timers[2], 0, note, const_cast<char *>("cleared "));
    loop_clear_timer(&timers[2]);
    auto end = [](void *) { loop_work_left(); };
    loop_set_timer(&timers[3], 1000000, end, nullptr);
    loop_set_hooks(
        [] {
            if (timers[3].due != 0) return;
            order += "sweep ";
            if (order.ends_with("sweep sweep ")) loop_finish_all();
        },
        nullptr);
    loop(0);
    g_loop_clock = nullptr;
    EXPECT_EQ(order, "early late sweep sweep ");
}

}  // namespace

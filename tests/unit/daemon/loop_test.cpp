#include "daemon/loop.h"

#include <fcntl.h>
#include <sys/socket.h>

#include <functional>
#include <memory>

#include "loop_fixture.h"
#include "ucfgd/owners.h"

namespace {

/* A registration on one end of a connection; the far end is ours. */
struct watched {
    watched(int type, std::function<void(watched &)> action,
            int (*add)(fd_callback *) = loop_add_callback)
        : act(std::move(action)) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends), 0);
        far.reset(ends[1]);
        EXPECT_EQ(write(far.get(), "x", 1), 1);
        cb = create_fd_callback(fd = ends[0], type, called, this);
        EXPECT_EQ(add(cb), 0);
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

TEST_F(Loop, RefusesNoDescriptorAndParksThoseClosedByOthers) {
    owned<fd_callback, free> none{create_fd_callback(-1, FD_CALLBACK_READ, nullptr, nullptr)};
    EXPECT_EQ(loop_add_callback(none.get()), -1);
    watched broken(FD_CALLBACK_READ, finish_all);
    watched alive(FD_CALLBACK_READ, finish_all);
    close(broken.fd);
    loop(0);
    EXPECT_EQ(alive.calls, 1);
    EXPECT_EQ(broken.calls, 0);
}

/* The kernel goes on telling of a file that somebody else still holds. */
TEST_F(Loop, WorkIsStillLeftWhenOthersHaveClosedWhatWasWatched) {
    static int sweeps;
    sweeps = 0;
    loop_timer late{};
    unique_fd held;
    watched lost(FD_CALLBACK_READ, [&](watched &w) {
        held.reset(dup(w.fd));
        close(w.fd);
        w.finish();
        loop_work_left();
    });
    watched idle(FD_CALLBACK_PARKED, finish_all);
    auto end = [](void *) { loop_finish_all(); };
    loop_set_timer(&late, 1000, end, nullptr);
    loop_set_hooks(
        [] {
            if (++sweeps == 2) loop_finish_all();
        },
        nullptr);
    loop(0);
    EXPECT_NE(late.due, 0);
    loop_clear_timer(&late);
}

/* In the order of the list, however the kernel tells of them, and whoever shares a descriptor. */
TEST_F(Loop, QuietRecordsAreSeenWhenTheyAreChangedAndHaveTheirPlaceInTheOrder) {
    std::string order;
    std::vector<std::unique_ptr<watched>> quiet;
    for (int i = 0; i < 100; i++) {
        const int type = i == 3 || i == 70 ? FD_CALLBACK_PARKED : FD_CALLBACK_READ;
        quiet.push_back(std::make_unique<watched>(
            type,
            [&order, i](watched &w) {
                order += std::to_string(i) + ' ';
                loop_watch(w.cb, FD_CALLBACK_PARKED);
            },
            loop_add_quiet_callback));
    }
    fd_callback *also = create_fd_callback(
        quiet[3]->fd, FD_CALLBACK_WRITE,
        [](int, void *data) { return *static_cast<std::string *>(data) += "also ", 0; }, &order);
    ASSERT_EQ(loop_add_quiet_callback(also), 0);
    watched last(FD_CALLBACK_WRITE, [&](watched &w) {
        order += "| ";
        if (w.calls == 1) {
            order.clear();
            for (int i : {70, 8, 3})
                loop_watch(quiet[static_cast<size_t>(i)]->cb, FD_CALLBACK_READ);
        } else if (w.calls == 2) {
            loop_watch(also, FD_CALLBACK_PARKED);
            loop_finish(quiet[50]->cb);
        } else if (w.calls == 3) {
            EXPECT_TRUE(quiet[50]->closed() && !quiet[51]->closed());
            EXPECT_EQ(g_cb_plain, w.cb);
            EXPECT_EQ(w.cb->next_marked, nullptr);
            loop_finish_all();
        }
    });
    loop(0);
    EXPECT_EQ(order, "3 8 70 also | | ");
    EXPECT_EQ(g_cb_list, nullptr);
}

int64_t g_clock = 0;

TEST_F(Loop, RunsTimersInTheOrderOfTheirTimesAndSweepsWhenWorkIsLeft) {
    static std::string order;
    order.clear();
    g_loop_clock = [] { return g_clock += 5; };
    static loop_timer timers[4];
    watched idle(FD_CALLBACK_PARKED, finish_all);
    auto note = [](void *text) { order += static_cast<const char *>(text); };
    loop_set_timer(&timers[0], 40, note, const_cast<char *>("late "));
    loop_set_timer(&timers[1], 20, note, const_cast<char *>("early "));
    loop_set_timer(&timers[2], 0, note, const_cast<char *>("cleared "));
    loop_clear_timer(&timers[2]);
    auto end = [](void *) { loop_work_left(); };
    loop_set_timer(&timers[3], 60, end, nullptr);
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

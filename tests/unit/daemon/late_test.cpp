#include <gtest/gtest.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

#include "archive/record.h"
#include "daemon/log_sink.h"
#include "hlxauth/hlxauth.h"
#include "tavevent/tavevent.h"

/* What is noted after 2038 is noted whole, on 32-bit machines too. This program's clock stands
 * there. */
constexpr time_t k_late = 2'224'843'200; /* 2040-07-02 12:00:00 UTC */

extern "C" time_t time(time_t *now) noexcept {
    if (now) *now = k_late;
    return k_late;
}

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept {
    *now = {clock == CLOCK_REALTIME ? k_late : 1000, 0};
    return 0;
}

namespace {

TEST(Late, TimesPast2038AreWholeInTheLogEventsTheStoreAndTheArchive) {
    std::string name = testing::TempDir() + "late-XXXXXX";
    ASSERT_NE(mkdtemp(name.data()), nullptr);

    setenv("TZ", "UTC", 1);
    EXPECT_EQ(syslog_sink::message(6, "ucfgd", 0, "x"), "<6>Jul  2 12:00:00 ucfgd: x");

    tavevent_set_file((name + "/events").c_str());
    EXPECT_EQ(writeevt(1, "s", "x"), 0);
    std::ifstream events{name + "/events"};
    EXPECT_EQ(
        std::string(std::istreambuf_iterator<char>{events}, {}).find(R"({"time": 2224843200.0,)"),
        0u);

    const std::string store = "/late-" + std::to_string(getpid());
    hlx_auth_set_store(store.c_str());
    hlx_auth_session session{};
    session.lifetime = -1;
    char sid[HLX_AUTH_SID_SIZE + 1];
    EXPECT_GE(hlx_auth_session_create(&session, sid), 0);
    EXPECT_EQ(hlx_auth_session_get(sid, &session), 0);
    EXPECT_EQ(session.created, k_late);
    std::filesystem::remove("/dev/shm" + store);

    commit_record written;
    written.number = 1;
    written.time = time(nullptr);
    commit_record read;
    EXPECT_EQ(write_record(name, written), 0);
    EXPECT_EQ(read_record(name, read), 0);
    EXPECT_EQ(read.time, k_late);
    std::filesystem::remove_all(name);
}

}  // namespace

#include "session/limits.h"

#include "session_fixture.h"

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

int read_section(const std::string &text) {
    owned_tree tree{conf_text("limits {\n" + text + "}\n")};
    int result = 0;
    for (const cnfnode *node = tree->first_child->first_child; node; node = node->next)
        result |= limit_read(node);
    return result;
}

TEST(Limits, ValuesComeFromTheirSectionAndWhatCannotBeReadIsSaid) {
    daemon_log_use = DAEMON_LOG_STDERR;
    const long jobs = limit_value(k_limit_jobs);
    EXPECT_EQ(read_section(" # of our own\n commit-time: 90\n log-queue: 1M\n"), 0);
    EXPECT_EQ(limit_value(k_limit_commit_time), 90);
    EXPECT_EQ(limit_value(k_limit_log_queue), 1048576);
    testing::internal::CaptureStderr();
    EXPECT_EQ(read_section(" jobs: 0\n jobs: 5x\n jobs: 9999999999G\n jobs: -1\n job: 5\n"), -1);
    const std::string log = testing::internal::GetCapturedStderr();
    EXPECT_NE(log.find("jobs: '0' is no number from 1 to 10000; 64 holds"), std::string::npos);
    EXPECT_NE(log.find("there is no limit 'job:'"), std::string::npos);
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 5);
    EXPECT_EQ(limit_value(k_limit_jobs), jobs);
}

TEST(Limits, EachTimeIsCountedButSaidOnlyNowAndThen) {
    daemon_log_use = DAEMON_LOG_STDERR;
    static long now = 1000;
    g_uptime_source = [] { return now; };
    const unsigned long before = limit_met_count(k_limit_jobs);
    testing::internal::CaptureStderr();
    for (int i = 0; i < 3; i++)
        limit_met(k_limit_jobs, "number %d", i);
    now += 10;
    limit_met(k_limit_jobs, "number %d", 3);
    const std::string log = testing::internal::GetCapturedStderr();
    g_uptime_source = nullptr;
    EXPECT_EQ(limit_met_count(k_limit_jobs) - before, 4u);
    EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 2);
    EXPECT_NE(log.find("limit jobs: 64: number 3 (and 2 times more before)"), std::string::npos);
}

}  // namespace

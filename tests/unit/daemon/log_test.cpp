#include <fcntl.h>
#include <gtest/gtest.h>
#include <libdaemon/dlog.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <syslog.h>

#include <cstdlib>
#include <string>

#include "daemon/log.h"
#include "daemon/loop.h"
#include "session/limits.h"
#include "ucfgd/owners.h"

/* Readers of the log that do not read. */

namespace {

std::string take(int fd) {
    std::string all;
    char bytes[65536];
    for (pollfd waiting{fd, POLLIN, 0}; poll(&waiting, 1, 0) > 0;) {
        const ssize_t got = read(fd, bytes, sizeof bytes);
        if (got <= 0) break;
        all.append(bytes, static_cast<size_t>(got));
        if (all.size() > 4'000'000) break;
    }
    return all;
}

class Log : public ::testing::Test {
  protected:
    void SetUp() override { limit_set(k_limit_log_queue, 8192); }
    void TearDown() override {
        g_log_socket = "/dev/log";
        daemon_log_use = DAEMON_LOG_STDERR;
    }
};

TEST_F(Log, NeverWaitsForAFullPipeAndTellsWhatWasLost) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    const unique_fd reader{ends[0]};
    const unique_fd before{dup(2)};
    dup2(ends[1], 2);
    close(ends[1]);
    daemon_log_use = DAEMON_LOG_STDERR;
    const std::string padding(100, '.');
    for (int i = 0; i < 2000; i++)
        daemon_log(LOG_INFO, "line %04d %s", i, padding.c_str());
    std::string all = take(reader.get());
    daemon_log(LOG_INFO, "evil\nError: forged\x1b[2J");
    all += take(reader.get());
    dup2(before.get(), 2);

    int lines = 0;
    for (size_t at = 0, end; (end = all.find('\n', at)) != std::string::npos; at = end + 1) {
        const std::string line = all.substr(at, end - at);
        if (!line.starts_with("line ")) break;
        EXPECT_EQ(line, "line " + std::string(4 - std::to_string(lines).size(), '0') +
                            std::to_string(lines) + ' ' + padding);
        lines++;
    }
    EXPECT_GT(lines, 500);
    EXPECT_TRUE(all.ends_with("\nWarning: " + std::to_string(2000 - lines) +
                              " messages lost\nevil Error: forged [2J\n"))
        << all.substr(all.size() - 200);
    EXPECT_EQ(limit_met_count(k_limit_log_queue), static_cast<unsigned long>(2000 - lines));
}

TEST_F(Log, HurriesOnceItsReaderIsBack) {
    limit_set(k_limit_log_queue, 262'144);
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    fcntl(ends[1], F_SETPIPE_SZ, 4096);
    const unique_fd reader{ends[0]};
    const unique_fd before{dup(2)};
    dup2(ends[1], 2);
    close(ends[1]);
    for (int i = 0; i < 1000; i++)
        daemon_log(LOG_INFO, "%0100d", i);
    static size_t got = 0;
    fd_callback *cb = create_fd_callback(reader.get(), FD_CALLBACK_READ, nullptr, nullptr);
    cb->cb = [](int fd, void *) {
        got += take(fd).size();
        if (got >= 101'000) g_cb_list->state = FD_CALLBACK_STOP;
        return 0;
    };
    loop_add_callback(cb);
    loop_timer patience{};
    loop_set_timer(
        &patience, 10'000, [](void *) { g_cb_list->state = FD_CALLBACK_STOP; }, nullptr);
    loop(0);
    loop_clear_timer(&patience);
    loop_del_callback(cb);
    dup2(before.get(), 2);
    EXPECT_EQ(got, 101'000U);
}

TEST_F(Log, GathersLinesUntilOneIsUrgent) {
    int ends[2];
    ASSERT_EQ(pipe2(ends, O_NONBLOCK), 0);
    const unique_fd reader{ends[0]};
    const unique_fd before{dup(2)};
    dup2(ends[1], 2);
    close(ends[1]);
    log_gather(1);
    daemon_log(LOG_INFO, "one");
    EXPECT_EQ(take(reader.get()), "");
    daemon_log(LOG_ERR, "two");
    EXPECT_EQ(take(reader.get()), "one\ntwo\n");
    log_set_level(LOG_NOTICE);
    daemon_log(LOG_INFO, "below the level");
    daemon_log(LOG_NOTICE, "three");
    log_set_level(LOG_DEBUG);
    const pid_t child = fork();
    if (child == 0) {
        daemon_log(LOG_INFO, "of a child, at once");
        log_gather(1);
        daemon_log(LOG_INFO, "crashing");
        abort();
    }
    int status = 0;
    waitpid(child, &status, 0);
    EXPECT_NE(status, 0);
    EXPECT_EQ(take(reader.get()), "three\nof a child, at once\ncrashing\n");

    const unsigned long met = limit_met_count(k_limit_log_queue);
    const std::string line(99, '.');
    for (int i = 0; i < 1000; i++)
        daemon_log(LOG_INFO, "%s", line.c_str());
    std::string all = take(reader.get());
    log_flush();
    all += take(reader.get());
    log_gather(0);
    daemon_log(LOG_INFO, "last");
    all += take(reader.get());
    dup2(before.get(), 2);
    const unsigned long lost = limit_met_count(k_limit_log_queue) - met;
    const std::string notice = "Warning: " + std::to_string(lost) + " messages lost\n";
    EXPECT_NE(all.find(".\n" + notice), std::string::npos);
    EXPECT_EQ(all.size(), (1000 - lost) * 100 + notice.size() + 5);
}

TEST_F(Log, SendsToTheSystemLogWhenSomebodyListensThere) {
    const std::string name = "/tmp/log-test-" + std::to_string(getpid());
    g_log_socket = name.c_str();
    daemon_log_use = DAEMON_LOG_SYSLOG;
    daemon_log_ident = "unit";
    daemon_log(LOG_NOTICE, "before anybody listened");
    const unique_fd reader{socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0)};
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    name.copy(address.sun_path, sizeof address.sun_path - 1);
    ASSERT_EQ(bind(reader.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    const pid_t child = fork();
    if (child == 0) {
        openlog("pam_unix", 0, LOG_AUTHPRIV);
        syslog(LOG_ERR, "of a child\n");
        log_finish();
        _exit(0);
    }
    waitpid(child, nullptr, 0);
    for (int i = 0; i < 1000; i++)
        daemon_log(LOG_INFO, "%d", i);
    unlink(name.c_str());
    const std::string all = take(reader.get());
    const std::string pid = '[' + std::to_string(getpid()) + "]: ";
    EXPECT_EQ(all.substr(0, 4), "<83>") << all;
    EXPECT_EQ(all.substr(19, 22), " pam_unix: of a child<") << all;
    EXPECT_EQ(all.substr(40, 4), "<29>") << all;
    EXPECT_NE(all.find(" unit" + pid + "before anybody listened<30>"), std::string::npos) << all;
    EXPECT_NE(all.find(" unit" + pid + "0<30>"), std::string::npos) << all;
}

}  // namespace

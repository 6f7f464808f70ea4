#include "daemon/pid_file.h"

#include <errno.h>
#include <fcntl.h>
#include <libdaemon/daemon.h>
#include <signal.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "ucfgd/owners.h"

namespace {

constexpr long k_writing_takes_ns = 100'000'000;

/* The beginning of a file; none when it cannot be read. */
std::optional<std::string> read_start(const std::string &name) {
    const unique_fd fd{open(name.c_str(), O_RDONLY | O_CLOEXEC)};
    char bytes[64];
    const ssize_t got = fd ? read(fd.get(), bytes, sizeof bytes) : -1;
    if (got < 0) return std::nullopt;
    return std::string(bytes, static_cast<size_t>(got));
}

/* What makes the file writes its number a moment later. */
std::optional<std::string> read_written(const std::string &name) {
    std::optional<std::string> text = read_start(name);
    if (!text || !text->empty()) return text;
    struct timespec moment {};
    moment.tv_nsec = k_writing_takes_ns;
    nanosleep(&moment, nullptr);
    return read_start(name);
}

/* 0 for what is no process id. */
pid_t number_in(const std::string &text) {
    char *end = nullptr;
    errno = 0;
    const long number = std::strtol(text.c_str(), &end, 10);
    const bool alone = strspn(end, " \t\r\n") == strlen(end);
    return alone && errno == 0 && number > 0 && number <= INT_MAX ? static_cast<pid_t>(number) : 0;
}

bool runs_this_program(pid_t pid) {
    if (pid == getpid() || (kill(pid, 0) != 0 && errno != EPERM)) return false;
    const auto own = read_start("/proc/self/comm");
    const auto theirs = read_start("/proc/" + std::to_string(pid) + "/comm");
    return !own || !theirs || *own == *theirs;
}

}  // namespace

pid_t pid_file_owner(void) {
    const char *name = daemon_pid_file_proc();
    const std::optional<std::string> text = name ? read_written(name) : std::nullopt;
    if (!text) return -1;
    const pid_t pid = number_in(*text);
    if (pid > 0 && runs_this_program(pid)) return pid;
    daemon_log(LOG_WARNING, "Warning: PID file %s names no running daemon, removing it", name);
    unlink(name);
    return -1;
}

#include "ucfgsh/pager.h"

#include <fcntl.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>

#include "ucfgd/owners.h"
#include "ucfgsh/terminal.h"

namespace ucfgsh {

namespace {

constexpr int k_not_started = 127;

[[noreturn]] void run_pager(int input) {
    signal(SIGPIPE, SIG_DFL);
    signal(SIGINT, SIG_DFL);
    if (dup2(input, STDIN_FILENO) < 0) _exit(k_not_started);
    const char *chosen = getenv("PAGER");
    if (chosen && *chosen) execl("/bin/sh", "sh", "-c", chosen, nullptr);
    execlp("less", "less", "-R", nullptr);
    execlp("more", "more", nullptr);
    _exit(k_not_started);
}

/* A reader that goes away early has seen enough. */
void feed(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t put = write(fd, text.data(), text.size());
        if (put < 0 && errno != EINTR) return;
        if (put > 0) text.remove_prefix(static_cast<size_t>(put));
    }
}

}  // namespace

bool needs_pager(std::string_view text) {
    auto rows = static_cast<long>(terminal_rows());
    return std::count(text.begin(), text.end(), '\n') >= rows;
}

bool page(const std::string &text) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    unique_fd input{ends[0]};
    unique_fd feeder{ends[1]};
    pid_t child = fork();
    if (child < 0) return false;
    if (child == 0) run_pager(input.get());
    input.reset();
    feed(feeder.get(), text);
    feeder.reset();
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
        continue;
    return !WIFEXITED(status) || WEXITSTATUS(status) != k_not_started;
}

}  // namespace ucfgsh

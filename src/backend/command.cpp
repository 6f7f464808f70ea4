/* Commands of definitions, run with /bin/sh.
 *
 * The daemon has one thread, so whoever waits for a command makes everybody wait. Hence a command
 * that runs in the daemon itself has a limited time and a process group of its own: when the time
 * is over the group is asked to end, then made to, and the call has failed. A forked child of the
 * daemon delays nobody. There, commands stay in the child's group and have no limit of their own:
 * whoever ends the child ends the group, and so what its hooks have started.
 *
 * A command has ended when its shell has. What it leaves in the pipe is taken; a process that it
 * leaves in the background may hold the pipe, and is not waited for. It gets three descriptors and
 * nothing else of the daemon's, with signals as a program expects them. It is waited for by its own
 * process id, so the reaping of background jobs never sees it. */

#include "backend/command.h"

#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstring>
#include <new>
#include <optional>
#include <utility>

#include "daemon/descriptors.h"
#include "session/limits.h"
#include "ucfgd/owners.h"

extern char **environ;

namespace {

constexpr size_t k_most_output = 64UL << 20; /* bytes of a command's output that are kept */
constexpr int k_pipe_size = 1 << 20;         /* of a command that runs ahead */
constexpr int64_t k_grace = 500;             /* milliseconds to end in, once asked to */
constexpr int k_tick = 10;                   /* milliseconds between two looks */

bool g_in_child = false;
unsigned long g_ahead_started = 0;
unsigned long g_ahead_over = 0;
bool g_in_request = false;
bool g_overran = false;

/* Commands that could not even be killed at once (a system call that nothing ends), 0 for none.
 * They are reaped when they have gone. */
std::array<pid_t, 16> g_lingering{};

int64_t now_ms() {
    using namespace std::chrono;
    return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

void reap_lingering() {
    for (pid_t &pid : g_lingering)
        if (pid > 0 && waitpid(pid, nullptr, WNOHANG) != 0) pid = 0;
}

/* The attributes and file actions of a command that is about to start. */
class spawn_plan {
  public:
    spawn_plan() {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        sigset_t set;
        sigemptyset(&set);
        posix_spawnattr_setsigmask(&attributes_, &set);
        sigfillset(&set);
        posix_spawnattr_setsigdefault(&attributes_, &set);
        int flags = POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK;
        if (!g_in_child) flags |= POSIX_SPAWN_SETPGROUP;
        posix_spawnattr_setflags(&attributes_, static_cast<short>(flags));
    }
    spawn_plan(const spawn_plan &) = delete;
    spawn_plan &operator=(const spawn_plan &) = delete;
    ~spawn_plan() {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }

    void give(int fd, int as) { note(posix_spawn_file_actions_adddup2(&actions_, fd, as)); }
    void give_nothing(int as) {
        note(posix_spawn_file_actions_addopen(&actions_, as, "/dev/null", O_RDONLY, 0));
    }

    /* 0, or an error number. */
    int start(const char *command, pid_t &pid) {
        note(posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1));
        if (error_ != 0) return error_;
        const char *argv[] = {"sh", "-c", command, nullptr};
        fflush(stdout);
        descriptors_lower();
        const int error = posix_spawn(&pid, "/bin/sh", &actions_, &attributes_,
                                      const_cast<char *const *>(argv), environ);
        descriptors_raise();
        return error;
    }

  private:
    void note(int error) {
        if (error_ == 0) error_ = error;
    }

    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
    int error_ = 0;
};

/* A command that has been started; what runs on when its owner goes is ended. */
class running_command {
  public:
    explicit running_command(pid_t pid)
        : pid_(pid), end_{static_cast<int>(syscall(SYS_pidfd_open, pid, 0))} {}
    running_command(const running_command &) = delete;
    running_command &operator=(const running_command &) = delete;
    ~running_command() {
        if (pid_ > 0) end();
    }

    /* Whoever started it sees to it. */
    void disown() { pid_ = 0; }

    /* Readable when the command has ended; -1 on a system that has no such descriptors. */
    int descriptor() const { return end_.get(); }
    int status() const { return status_; }

    /* True once it has ended and been waited for. Somebody else's wait for it is an error. */
    bool has_ended(int &error) {
        pid_t got = pid_ > 0 ? waitpid(pid_, &status_, WNOHANG) : pid_;
        if (got < 0 && errno == EINTR) return false;
        if (got < 0) error = errno;
        if (got != 0) pid_ = 0;
        return got != 0;
    }

  private:
    bool has_gone() {
        int ignored = 0;
        return pid_ == 0 || has_ended(ignored);
    }

    /* False when the condition does not come true in time. */
    template <class condition>
    static bool wait_for(condition holds) {
        for (int64_t until = now_ms() + k_grace; !holds(); poll(nullptr, 0, k_tick))
            if (now_ms() >= until) return false;
        return true;
    }

    /* What is left of the group once its leader has been waited for keeps its number taken. */
    void end() {
        const bool is_group = !g_in_child;
        const pid_t target = is_group ? -pid_ : pid_;
        kill(target, SIGTERM);
        if (wait_for([&] { return has_gone() && (!is_group || kill(target, 0) < 0); })) return;
        kill(target, SIGKILL);
        if (wait_for([&] { return has_gone(); })) return;
        auto place = std::find(g_lingering.begin(), g_lingering.end(), 0);
        if (place != g_lingering.end()) *place = pid_;
    }

    pid_t pid_;
    unique_fd end_;
    int status_ = 0;
};

/* A file in memory that holds the text, at its beginning. A command may read it or not: nobody
 * waits for it, and nobody is told that it did not. Empty with errno on failure. */
unique_fd input_file(std::string_view text) {
    unique_fd fd{memfd_create("input", MFD_CLOEXEC)};
    while (fd && !text.empty()) {
        ssize_t n = write(fd.get(), text.data(), text.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) return unique_fd{};
        text.remove_prefix(static_cast<size_t>(n));
    }
    if (fd && lseek(fd.get(), 0, SEEK_SET) < 0) return unique_fd{};
    return fd;
}

/* A pipe whose end to read from never blocks. 0, or an error number. */
int make_pipe(unique_fd &ours, unique_fd &theirs) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0) return errno;
    ours.reset(ends[0]);
    theirs.reset(ends[1]);
    return fcntl(ours.get(), F_SETFL, O_NONBLOCK) < 0 ? errno : 0;
}

/* Where a command's output arrives. */
class collector {
  public:
    collector(unique_fd fd, std::string *text) : fd_(std::move(fd)), text_(text) {
        if (text_) start_ = text_->size();
    }

    int descriptor() const { return fd_.get(); }
    bool too_much() const { return text_ && text_->size() - start_ > k_most_output; }

    /* Takes one piece; nothing more is awaited behind the last one. False when there is none. */
    bool take(size_t most = sizeof chunk_) {
        ssize_t n = read(fd_.get(), chunk_, std::min(most, sizeof chunk_));
        if (n < 0 && (errno == EINTR || errno == EAGAIN)) return false;
        if (n <= 0)
            fd_.reset();
        else
            text_->append(chunk_, static_cast<size_t>(n));
        return n > 0;
    }

    /* Takes what is there now. Others may go on writing: that is not the command's any more. */
    void take_rest() {
        int left = 0;
        if (!fd_ || ioctl(fd_.get(), FIONREAD, &left) != 0) return;
        for (size_t before = text_->size(); left > 0 && take(static_cast<size_t>(left));) {
            left -= static_cast<int>(text_->size() - before);
            before = text_->size();
        }
    }

  private:
    unique_fd fd_;
    std::string *text_;
    size_t start_ = 0;
    char chunk_[16384];
};

/* How long to wait next: -1 is for ever. Without a descriptor that tells of the end, the end is
 * looked for again and again. */
int next_wait(int64_t left, bool told) {
    int64_t most = told ? INT_MAX : k_tick;
    if (g_in_child) return told ? -1 : k_tick;
    return static_cast<int>(std::clamp<int64_t>(left, 0, most));
}

int64_t end_of_time() {
    return now_ms() + 1000 * limit_value(k_limit_command_time);
}

command_end watch(const char *command, running_command &running, collector &output,
                  const int64_t until) {
    for (;;) {
        int error = 0;
        bool ended = running.has_ended(error);
        if (ended) output.take_rest();
        if (output.too_much()) {
            daemon_log(LOG_ERR, "command '%s' has printed more than %zu bytes", command,
                       k_most_output);
            return {EFBIG, 0};
        }
        if (ended) return {error, running.status()};
        const int64_t left = until - now_ms();
        if (!g_in_child && left <= 0) {
            limit_met(k_limit_command_time, "command '%s' is ended", command);
            g_overran = g_in_request;
            return {ETIME, 0};
        }
        pollfd polled[] = {{output.descriptor(), POLLIN, 0}, {running.descriptor(), POLLIN, 0}};
        int ready = poll(polled, 2, next_wait(left, running.descriptor() >= 0));
        if (ready > 0 && polled[0].revents != 0) output.take();
    }
}

command_end run(const char *command, const command_ends &ends) {
    reap_lingering();
    spawn_plan plan;
    unique_fd input;
    unique_fd ours;
    unique_fd theirs;
    const int64_t until = end_of_time();
    if (ends.input) {
        input = input_file(*ends.input);
        if (!input) return {errno, 0};
        plan.give(input.get(), STDIN_FILENO);
    } else {
        plan.give_nothing(STDIN_FILENO);
    }
    if (ends.output) {
        if (int error = make_pipe(ours, theirs); error != 0) return {error, 0};
        plan.give(theirs.get(), STDOUT_FILENO);
    }
    pid_t pid = -1;
    if (int error = plan.start(command, pid); error != 0) return {error, 0};
    running_command running{pid};
    theirs.reset();
    collector output{std::move(ours), ends.output};
    return watch(command, running, output, until);
}

}  // namespace

struct command_ahead::parts {
    std::string command;
    pid_t owner = getpid();
    int64_t until = end_of_time();
    std::optional<running_command> running;
    unique_fd output;
};

command_ahead::command_ahead() = default;

command_ahead::~command_ahead() {
    if (!is_ours()) parts_->running->disown();
    if (parts_ && parts_->running) g_ahead_over++;
}

unsigned long command_ahead::started() {
    return g_ahead_started;
}

unsigned long command_ahead::running() {
    return g_ahead_started - g_ahead_over;
}

std::unique_ptr<command_ahead> command_ahead::start(const char *command) {
    try {
        reap_lingering();
        auto made = std::make_unique<command_ahead>();
        made->parts_ = std::make_unique<parts>();
        made->parts_->command = command;
        spawn_plan plan;
        unique_fd theirs;
        pid_t pid = -1;
        plan.give_nothing(STDIN_FILENO);
        errno = make_pipe(made->parts_->output, theirs);
        if (errno != 0) return nullptr;
        /* What does not fit waits for whoever takes it. */
        fcntl(theirs.get(), F_SETPIPE_SZ, k_pipe_size);
        plan.give(theirs.get(), STDOUT_FILENO);
        errno = plan.start(command, pid);
        if (errno != 0) return nullptr;
        made->parts_->running.emplace(pid);
        g_ahead_started++;
        return made;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

int command_ahead::descriptor() const {
    return parts_->running->descriptor();
}

bool command_ahead::is_ours() const {
    return !parts_ || !parts_->running || parts_->owner == getpid();
}

bool command_ahead::is_late() const {
    return now_ms() >= parts_->until;
}

command_end command_ahead::finish(std::string &output) {
    errno_guard keep;
    try {
        collector taken{std::move(parts_->output), &output};
        return watch(parts_->command.c_str(), *parts_->running, taken, parts_->until);
    } catch (const std::bad_alloc &) {
        return {ENOMEM, 0};
    }
}

bool command_end::ran() const {
    constexpr int k_not_executable = 126;
    return error == 0 && WIFEXITED(status) && WEXITSTATUS(status) < k_not_executable;
}

std::array<char, 80> command_end::text() const {
    std::array<char, 80> text;
    if (error != 0)
        snprintf(text.data(), text.size(), "%s", std::strerror(error));
    else if (WIFSIGNALED(status))
        snprintf(text.data(), text.size(), "signal %d", WTERMSIG(status));
    else
        snprintf(text.data(), text.size(), "exit status %d", WEXITSTATUS(status));
    return text;
}

command_end run_command(const char *command, const command_ends &ends) {
    errno_guard keep;
    try {
        return run(command, ends);
    } catch (const std::bad_alloc &) {
        return {ENOMEM, 0};
    }
}

command_request::command_request() {
    g_in_request = true;
    g_overran = false;
}

command_request::~command_request() {
    g_in_request = g_overran = false;
}

bool command_request_overran() {
    return g_overran;
}

void commands_run_in_child() {
    g_in_child = true;
}

bool command_may_wait() {
    return g_in_child;
}

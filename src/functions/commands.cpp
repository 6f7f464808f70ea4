#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <signal.h>
#include <spawn.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <tavevent/tavevent.h>

#include <cstring>
#include <string>
#include <vector>

#include "functions/line_splitter.h"
#include "functions/llmisc.h"

/* Functions that run programs or speak to the world. A program gets three descriptors and nothing
 * else of the daemon's, with signals as a program expects them. It is waited for by its own process
 * id, so the reaping of background jobs never sees it. */

extern char **environ;

namespace {

constexpr size_t k_most_output = 64UL << 20; /* bytes of a command's output that are kept */

/* The attributes and file actions of a program that is about to start. */
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
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
    }
    spawn_plan(const spawn_plan &) = delete;
    spawn_plan &operator=(const spawn_plan &) = delete;
    ~spawn_plan() {
        posix_spawnattr_destroy(&attributes_);
        posix_spawn_file_actions_destroy(&actions_);
    }

    void give(int fd, int as) { posix_spawn_file_actions_adddup2(&actions_, fd, as); }
    void give_nothing(int as) {
        posix_spawn_file_actions_addopen(&actions_, as, "/dev/null", O_RDONLY, 0);
    }

    /* Starts the command in a shell; its process id, or -1 and errno. */
    pid_t start(const char *command) {
        posix_spawn_file_actions_addclosefrom_np(&actions_, STDERR_FILENO + 1);
        const char *argv[] = {"sh", "-c", command, nullptr};
        pid_t pid = -1;
        fflush(nullptr);
        int error = posix_spawn(&pid, "/bin/sh", &actions_, &attributes_,
                                const_cast<char *const *>(argv), environ);
        if (error == 0) return pid;
        errno = error;
        return -1;
    }

  private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

/* Waits for the end of a program; true when it ended with status 0. */
bool ended_well(pid_t pid) {
    int status = 0;
    while (waitpid(pid, &status, 0) < 0)
        if (errno != EINTR) return false;
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

/* A file in memory that holds the text, at its beginning. A program may read it or not: nobody
 * waits for it, and nobody is told that it did not. */
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

}  // namespace

fe_node *llmisc_system(const call_arguments &arguments) {
    spawn_plan plan;
    unique_fd input;
    if (arguments.count() == 2) {
        input = input_file(arguments[1]);
        if (!input) return const_node("0");
        plan.give(input.get(), STDIN_FILENO);
    } else {
        plan.give_nothing(STDIN_FILENO);
    }
    pid_t pid = plan.start(arguments[0]);
    return truth_node(pid > 0 && ended_well(pid));
}

fe_node *llmisc_readlinespipe(const call_arguments &arguments) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) < 0) return nullptr;
    unique_fd output{ends[0]};
    unique_fd theirs{ends[1]};
    spawn_plan plan;
    plan.give_nothing(STDIN_FILENO);
    plan.give(theirs.get(), STDOUT_FILENO);
    pid_t pid = plan.start(arguments[0]);
    theirs.reset();
    if (pid < 0) return nullptr;

    node_list lines;
    line_splitter splitter{lines};
    char chunk[4096];
    size_t total = 0;
    for (;;) {
        ssize_t n = read(output.get(), chunk, sizeof chunk);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        total += static_cast<size_t>(n);
        if (total > k_most_output) {
            daemon_log(LOG_ERR, "readlinespipe: output of '%s' is cut at %zu bytes", arguments[0],
                       k_most_output);
            break;
        }
        splitter.take({chunk, static_cast<size_t>(n)});
    }
    splitter.finish();
    output.reset();
    ended_well(pid);
    return lines.release();
}

fe_node *llmisc_print(const call_arguments &arguments) {
    for (const fe_node *text = arguments.first(); text != nullptr; text = text->next)
        printf("%s\n", text->text);
    return truth_node(fflush(stdout) == 0);
}

fe_node *llmisc_writeevt(const call_arguments &arguments) {
    std::vector<const char *> texts;
    for (const fe_node *text = arguments.first(); text != nullptr; text = text->next)
        texts.push_back(text->text);
    char *end = nullptr;
    errno_guard keep;
    errno = 0;
    long number = strtol(texts[0], &end, 10);
    bool valid =
        end != texts[0] && *end == '\0' && errno == 0 && number == static_cast<int>(number);
    return truth_node(valid && writeevt_list(static_cast<int>(number), texts[1], texts.size() - 2,
                                             texts.data() + 2) == 0);
}

#include "session/child.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "session/bgexec.h"

namespace {

int g_client_line = -1;

/* Descriptors 0 to 2 are where the child's ends go; a pipe that got one of them moves up. */
bool lift(unique_fd &fd) {
    if (fd.get() > 2) return true;
    fd.reset(fcntl(fd.get(), F_DUPFD_CLOEXEC, 3));
    return static_cast<bool>(fd);
}

bool open_pipe(unique_fd &read_end, unique_fd &write_end) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return false;
    read_end.reset(ends[0]);
    write_end.reset(ends[1]);
    return lift(read_end) && lift(write_end);
}

}  // namespace

bool open_child_pipes(child_pipes &pipes) {
    return open_pipe(pipes.child[0], pipes.parent[0]) &&
           open_pipe(pipes.parent[1], pipes.child[1]) && open_pipe(pipes.parent[2], pipes.child[2]);
}

all_signals_blocked::all_signals_blocked() {
    sigset_t all;
    sigfillset(&all);
    sigprocmask(SIG_SETMASK, &all, &saved_);
}

all_signals_blocked::~all_signals_blocked() {
    const errno_guard keep;
    sigprocmask(SIG_SETMASK, &saved_, nullptr);
}

void all_signals_blocked::unblock_all() {
    sigemptyset(&saved_);
    sigprocmask(SIG_SETMASK, &saved_, nullptr);
}

void bgexec_keep_client_line(void) {
    g_client_line = fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 3);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    dup2(ends[0], STDIN_FILENO);
    close(ends[0]);
    close(ends[1]);
}

int bgexec_client_line(void) {
    return g_client_line;
}

void wire_child(child_pipes &pipes) {
    for (int i = 0; i < 3; ++i)
        dup2(pipes.child[i].get(), i);
    if (close_range(3, ~0U, 0) != 0) {
        const auto limit = static_cast<int>(sysconf(_SC_OPEN_MAX));
        for (int fd = 3; fd < limit; ++fd)
            close(fd);
    }
}

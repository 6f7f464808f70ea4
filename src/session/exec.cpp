/* External programs under another account: in the background, or to their end. */

#include <fcntl.h>
#include <grp.h>
#include <poll.h>
#include <pwd.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

#include "daemon/descriptors.h"
#include "daemon/signals.h"
#include "session/bgexec.h"
#include "session/child.h"
#include "ucfgd/owners.h"

namespace {

constexpr gid_t k_no_group = 65534;

using owned_buffer = owned<databuf, destroy_databuf>;

/* Who the program runs as, looked up before the fork. */
struct identity {
    bool change = false;
    uid_t uid = 0;
    gid_t gid = k_no_group;
    std::vector<gid_t> groups;
};

identity identity_of(uid_t uid) {
    identity who;
    who.change = uid != getuid() || uid != geteuid();
    who.uid = uid;
    if (!who.change) return who;
    const passwd *account = getpwuid(uid);
    if (!account) return who;
    who.gid = account->pw_gid;
    int count = 0;
    getgrouplist(account->pw_name, account->pw_gid, nullptr, &count);
    who.groups.resize(static_cast<size_t>(count));
    getgrouplist(account->pw_name, account->pw_gid, who.groups.data(), &count);
    who.groups.resize(static_cast<size_t>(count));
    return who;
}

/* The bare system calls: the library's functions would look at the parent's threads, which a child
 * of vfork shares without having them. */
#ifdef SYS_setuid32
constexpr long k_setgroups = SYS_setgroups32;
constexpr long k_setgid = SYS_setgid32;
constexpr long k_setuid = SYS_setuid32;
#else
constexpr long k_setgroups = SYS_setgroups;
constexpr long k_setgid = SYS_setgid;
constexpr long k_setuid = SYS_setuid;
#endif

bool become(const identity &who) {
    return !who.change || (syscall(k_setgroups, who.groups.size(), who.groups.data()) == 0 &&
                           syscall(k_setgid, who.gid) == 0 && syscall(k_setuid, who.uid) == 0);
}

[[noreturn]] void run_program(const identity &who, const char *file, char *const argv[]) {
    descriptors_lower();
    if (become(who)) execvp(file, argv);
    char text[512];
    const int length =
        snprintf(text, sizeof(text), "executing '%s' failed: %s\n", file, strerror(errno));
    const size_t size =
        static_cast<size_t>(length) < sizeof(text) ? static_cast<size_t>(length) : sizeof(text) - 1;
    if (write(STDERR_FILENO, text, size) < 0) _exit(1);
    _exit(1);
}

[[noreturn, gnu::noinline]] void run_vforked(child_pipes &pipes, all_signals_blocked &blocked,
                                             const identity &who, const char *file,
                                             char *const argv[]) {
    signals_reset();
    wire_child(pipes);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    (void)blocked;
    run_program(who, file, argv);
}

/* The daemon may be large, so the child borrows its memory until it executes the program. It only
 * makes system calls, and writes nothing that the parent looks at. */
[[gnu::noinline]] pid_t spawn(child_pipes &pipes, const identity &who, const char *file,
                              char *const argv[]) {
    all_signals_blocked blocked;
    const pid_t pid = vfork();                                   // NOLINT
    if (pid == 0) run_vforked(pipes, blocked, who, file, argv);  // NOLINT
    return pid;
}

struct channel {
    int (*callback)(int fd, void *data);
    unique_fd fd;
    short events;
};

void exchange(channel (&channels)[3], void *cb_data) {
    while (channels[0].fd || channels[1].fd || channels[2].fd) {
        pollfd polled[3];
        for (int i = 0; i < 3; ++i)
            polled[i] = {channels[i].fd.get(), channels[i].events, 0};
        if (poll(polled, 3, -1) < 0) {
            if (errno == EINTR) continue;
            return;
        }
        for (int i = 0; i < 3; ++i) {
            if (polled[i].fd < 0 || polled[i].revents == 0) continue;
            const auto callback = channels[i].callback;
            if (!callback || callback(polled[i].fd, cb_data) < 1) channels[i].fd.reset();
        }
    }
}

int write_input(int fd, void *data) {
    databuf *input = static_cast<exec_cb_context *>(data)->dbuf_in;
    if (databuf_pending(input) > 0 && databuf_flushout(input, fd) < 0 && errno != EAGAIN) return -1;
    return databuf_pending(input) > 0 ? 1 : 0;
}

int read_output(int fd, databuf *output) {
    const int got = databuf_flushin(output, fd);
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return 1;
    return got < -1 ? -1 : got;
}

int read_stdout(int fd, void *data) {
    return read_output(fd, static_cast<exec_cb_context *>(data)->dbuf_out);
}

int read_stderr(int fd, void *data) {
    return read_output(fd, static_cast<exec_cb_context *>(data)->dbuf_err);
}

/* The buffer's content as a block of the caller's, with a NUL behind it. */
bool hand_out(databuf *buffer, char **data, int *size) {
    *data = nullptr;
    *size = databuf_pending(buffer);
    if (*size == 0) return true;
    if (databuf_add(buffer, "", 1) != 0) return false;
    *data = databuf_steal(buffer);
    return true;
}

}  // namespace

pid_t bgexec_file(const char *file, char *const argv[], uid_t uid, fd_callback *cb_in,
                  fd_callback *cb_out, fd_callback *cb_err) try {
    const identity who = identity_of(uid);
    const pid_t pid = bgfork(cb_in, cb_out, cb_err);
    if (pid == 0) {
        signal(SIGPIPE, SIG_DFL);
        run_program(who, file, argv);
    }
    return pid;
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return -1;
}

int exec_file(const char *file, char *const argv[], uid_t uid, int (*stdin_cb)(int fd, void *data),
              int (*stdout_cb)(int fd, void *data), int (*stderr_cb)(int fd, void *data),
              void *cb_data, int *pstatus) try {
    child_pipes pipes;
    if (!open_child_pipes(pipes)) return -1;
    const identity who = identity_of(uid);
    const pid_t pid = spawn(pipes, who, file, argv);
    if (pid < 0) return -1;
    signal(SIGPIPE, SIG_IGN);
    for (unique_fd &end : pipes.child)
        end.reset();
    /* A callback that writes to a full pipe would wait for a program that waits for it. */
    for (const unique_fd &end : pipes.parent)
        fcntl(end.get(), F_SETFL, O_NONBLOCK);
    channel channels[3] = {{stdin_cb, std::move(pipes.parent[0]), POLLOUT},
                           {stdout_cb, std::move(pipes.parent[1]), POLLIN},
                           {stderr_cb, std::move(pipes.parent[2]), POLLIN}};
    exchange(channels, cb_data);
    for (channel &c : channels)
        c.fd.reset();
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
    if (pstatus) *pstatus = status;
    return 0;
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return -1;
}

int execute(const char *filename, char *const argv[], uid_t uid, const char *data_in, int in_size,
            char **p_data_out, int *p_out_size, char **p_data_err, int *p_err_size, int *pstatus) {
    const owned_buffer in{create_databuf()};
    const owned_buffer out{create_databuf()};
    const owned_buffer err{create_databuf()};
    if (!in || !out || !err || databuf_add(in.get(), data_in, in_size) != 0) {
        errno = ENOMEM;
        return -1;
    }
    exec_cb_context context{in.get(), out.get(), err.get()};
    if (exec_file(filename, argv, uid, write_input, read_stdout, read_stderr, &context, pstatus) !=
        0) {
        return -1;
    }
    char *data_out = nullptr;
    if (!hand_out(out.get(), &data_out, p_out_size)) return -1;
    owned_str owned_out{data_out};
    if (!hand_out(err.get(), p_data_err, p_err_size)) return -1;
    *p_data_out = owned_out.release();
    return 0;
}

/* Preloaded into the daemon: lets one of its calls that change the file system fail, or be the
 * last.
 *
 * The file that FAILING_CALL names holds five 64-bit numbers, which whoever tests the daemon maps
 * too: how many such calls there were since it was set to 0, the number of the one that is hit (0
 * for none), what happens to it (an errno; or 1000: the process is killed before it, 1001: the
 * daemon as well), whose calls count (0: all, 1: the daemon's own, 2: its children's), and how many
 * have been hit. Programs that the daemon starts do not count. */

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdatomic.h>
#include <stdint.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

enum { k_count, k_hit_at, k_what, k_whose, k_hits, k_numbers };
enum { k_die = 1000, k_die_with_daemon = 1001 };
enum { k_all, k_daemon, k_children };

static _Atomic uint64_t *g_numbers;
static pid_t g_daemon;

__attribute__((constructor)) static void set_up(void) {
    const char *name = getenv("FAILING_CALL");
    int (*real_open)(const char *, int, ...) = dlsym(RTLD_NEXT, "open");
    int fd = name ? real_open(name, O_RDWR | O_CLOEXEC) : -1;
    unsetenv("LD_PRELOAD");
    g_daemon = getpid();
    if (fd < 0) return;
    void *memory =
        mmap(NULL, k_numbers * sizeof(uint64_t), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (memory != MAP_FAILED) g_numbers = memory;
}

static int counts(void) {
    uint64_t whose = g_numbers ? g_numbers[k_whose] : k_all;
    return g_numbers && (whose == k_all || (whose == k_daemon) == (getpid() == g_daemon));
}

/* True when the call fails, with errno. */
static int fails(void) {
    if (!counts() || ++g_numbers[k_count] != g_numbers[k_hit_at]) return 0;
    g_numbers[k_hits]++;
    uint64_t what = g_numbers[k_what];
    if (what == k_die_with_daemon) kill(g_daemon, SIGKILL);
    if (what >= k_die) kill(getpid(), SIGKILL);
    errno = (int)what;
    return 1;
}

#define REAL(name) ((__typeof__(&name))dlsym(RTLD_NEXT, #name))
#define WRAP(name, parameters, arguments)           \
    int name parameters {                           \
        return fails() ? -1 : REAL(name) arguments; \
    }

WRAP(fsync, (int fd), (fd))
WRAP(rename, (const char *from, const char *to), (from, to))
WRAP(renameat, (int from_fd, const char *from, int to_fd, const char *to),
     (from_fd, from, to_fd, to))
WRAP(unlink, (const char *path), (path))
WRAP(unlinkat, (int fd, const char *path, int flags), (fd, path, flags))
WRAP(link, (const char *from, const char *to), (from, to))
WRAP(symlinkat, (const char *target, int fd, const char *path), (target, fd, path))
WRAP(mkdir, (const char *path, mode_t mode), (path, mode))
WRAP(fchmod, (int fd, mode_t mode), (fd, mode))
WRAP(fchown, (int fd, uid_t uid, gid_t gid), (fd, uid, gid))

int open(const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return fails() ? -1 : REAL(open)(path, flags, mode);
}

int openat(int fd, const char *path, int flags, ...) {
    va_list arguments;
    va_start(arguments, flags);
    mode_t mode = va_arg(arguments, mode_t);
    va_end(arguments);
    return fails() ? -1 : REAL(openat)(fd, path, flags, mode);
}

/* What goes to a log, a pipe or a client is no change of a file. */
ssize_t write(int fd, const void *data, size_t size) {
    struct stat st;
    int is_file = fd > STDERR_FILENO && fstat(fd, &st) == 0 && S_ISREG(st.st_mode);
    return is_file && fails() ? -1 : REAL(write)(fd, data, size);
}

/* The instant in which a file is replaced or removed.
 *
 * Between the last look at a file and its replacement others may replace it, or write into it: a
 * program that has opened it before writes to a file that has no name any more, and nobody would
 * see its lines again. So the two files exchange their names, which is one step for everybody, and
 * the old one is looked at under the name that it has then. As long as somebody has it open for
 * writing it is waited for. Only when it is certainly the file that the commit knows, it goes;
 * otherwise the names are exchanged once more, and what others have written stands where they
 * wrote it. A file that is removed goes the same way, with no new one. */

#include "backend/exchange.h"

#include <errno.h>
#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <signal.h>
#include <stdio.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include "ucfgd/owners.h"

namespace {

/* A writer that stays longer has it open for good. */
constexpr int k_longest_wait_ms = 500;

int rename_with(const place &at, const std::string &temporary, unsigned int how) {
    const char *name = at.name().c_str();
    return renameat2(at.folder(), temporary.c_str(), at.folder(), name, how) == 0 ? 0 : errno;
}

bool is_unsupported(int reason) {
    return reason == EINVAL || reason == ENOSYS;
}

/* Whether nobody has it open for writing, as far as the file system can tell: a lease is given for
 * such a file only. */
bool has_no_writer(int fd) {
    fcntl(fd, F_SETSIG, SIGURG); /* which is ignored */
    return fcntl(fd, F_SETLEASE, F_RDLCK) == 0 || errno != EAGAIN;
}

/* The times of the name have changed with it. */
bool is_untouched(int fd, const file_identity &known) {
    struct stat st {};
    if (fstat(fd, &st) != 0) return false;
    return st.st_dev == known.device && st.st_ino == known.inode && st.st_size == known.size &&
           same_time(st.st_mtim, known.modified);
}

bool is_still_the_known_one(const place &at, const std::string &temporary,
                            const file_identity &known) {
    const unique_fd old{openat(at.folder(), temporary.c_str(),
                               O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC)};
    if (!old) return false;
    for (int waited = 0; !has_no_writer(old.get()); waited++) {
        if (!is_untouched(old.get(), known)) return false;
        if (waited == k_longest_wait_ms) {
            daemon_log(LOG_WARNING, "somebody has the old %s open for writing", at.name().c_str());
            break;
        }
        usleep(1000);
    }
    return is_untouched(old.get(), known);
}

/* A link that leads nowhere has the name, but is no file that others have made. */
int take_free_name(const place &at, const std::string &temporary) {
    struct stat st {};
    const bool is_free = at.look(st) != 0;
    const int reason = rename_with(at, temporary, is_free ? RENAME_NOREPLACE : 0);
    if (reason == EEXIST) return ESTALE;
    return is_unsupported(reason) ? rename_with(at, temporary, 0) : reason;
}

}  // namespace

int exchange_file(const place &at, const std::string &temporary, const file_identity *expected) {
    if (!expected) return rename_with(at, temporary, 0);
    if (!expected->exists) return take_free_name(at, temporary);
    int reason = rename_with(at, temporary, RENAME_EXCHANGE);
    if (is_unsupported(reason)) return rename_with(at, temporary, 0);
    if (reason != 0) return reason == ENOENT ? ESTALE : reason;
    reason = ESTALE;
    if (is_still_the_known_one(at, temporary, *expected))
        reason = unlinkat(at.folder(), temporary.c_str(), 0) == 0 ? 0 : errno;
    if (reason == 0) return 0;
    const int back = rename_with(at, temporary, RENAME_EXCHANGE);
    return back == 0 ? reason : back;
}

int withdraw_file(const place &at, const std::string &temporary, const file_identity *expected) {
    const char *name = at.name().c_str();
    struct stat st {};
    const bool is_known = expected && expected->exists && at.look(st) == 0 && S_ISREG(st.st_mode);
    if (!is_known || renameat2(at.folder(), name, at.folder(), temporary.c_str(), 0) != 0)
        return unlinkat(at.folder(), name, 0) == 0 ? 0 : errno;
    int reason = ESTALE;
    if (is_still_the_known_one(at, temporary, *expected))
        reason = unlinkat(at.folder(), temporary.c_str(), 0) == 0 ? 0 : errno;
    if (reason == 0) return 0;
    const int back = rename_with(at, temporary, RENAME_NOREPLACE);
    return back == 0 || back == EEXIST ? reason : back;
}

/* The commit archive, for its next owner.
 *
 * A commit replaces files, and what stood in them is gone. With an archive it is kept, so that a
 * commit can be looked at and taken back: by an administrator days later, by the daemon when the
 * time of a trial is over, and by the next start when a crash has left a commit half done.
 *
 *   file_state   what stands under a name: contents, owner, mode or link target; read and replaced
 *   record       who, when, why, what became of it, which files: one text file a commit
 *   archive      the directory of all commits, their numbers, and how old ones go
 *   journal      the way of one commit: contents before and after, then the record "open", then the
 *                files themselves, then the record "done"
 *   put_back     the way back, for each file by what stands there now
 *   line_diff    what differs between two texts
 *   merge        three versions of a text, line by line
 *   trials       the commit that undoes itself unless it is confirmed in time
 *
 * What may never happen: a file is replaced before its old contents are on the disk, or a record
 * says "done" before all the files are. So a record that is open tells everything that is needed to
 * bring back the old files, and whoever finds one does so. Each step is one rename, so that after a
 * power cut it has happened or not.
 *
 * The folder knows files and texts. What a module is, and how its tree becomes a text, is known to
 * src/backend above it. */

#include "archive/archive.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstring>

#include "archive/file_state.h"
#include "daemon/place.h"
#include "ucfgd/owners.h"

namespace {

struct settings {
    std::string directory; /* empty without an archive */
    long kept = 0;
    int64_t size = 0;
};

settings g_archive;

constexpr long k_lock_step_ms = 10;

int fail(const char *what, const std::string &path, int reason) {
    daemon_log(LOG_ERR, "archive: %s '%s' failed: %s", what, path.c_str(), strerror(reason));
    errno = reason;
    return -1;
}

int refuse(const std::string &directory, const char *why) {
    daemon_log(LOG_ERR, "archive: '%s' cannot be used: %s", directory.c_str(), why);
    errno = EPERM;
    return -1;
}

/* The directories that lead there, made as the system makes them; only the last one is ours. Links
 * on the way lead where they lead for the files of modules; what comes back has none any more. */
int make_directory(std::string &directory) {
    place at;
    while (directory.size() > 1 && directory.ends_with('/'))
        directory.pop_back();
    for (size_t end = 0; end != std::string::npos;) {
        end = directory.find('/', end + 1);
        const bool is_last = end == std::string::npos;
        const std::string path = directory.substr(0, end);
        errno = at.find(path.c_str(), is_last ? link_at_end::is_meant : link_at_end::is_followed);
        if (errno != 0 || (mkdirat(at.folder(), at.name().c_str(), is_last ? 0700 : 0777) != 0 &&
                           errno != EEXIST))
            return fail("making", path, errno);
    }
    const std::string real = real_path(at);
    if (real.empty()) return fail("looking at", directory, errno);
    directory = real;
    return 0;
}

void wait_a_moment() {
    struct timespec moment {
        0, k_lock_step_ms * 1'000'000
    };
    nanosleep(&moment, nullptr);
}

bool read_folder_name(const std::string &name, long &number) {
    const char *end = name.data() + name.size();
    auto [stop, error] = std::from_chars(name.data(), end, number);
    return error == std::errc{} && stop == end && number > 0 && name[0] != '0';
}

/* The names in a folder as far as they can be read; errno tells, 0 for all of them. The iterators
 * of the C++ library end the program where memory is missing. */
std::vector<std::string> names_in(const std::string &folder) {
    std::vector<std::string> names;
    int reason = 0;
    {
        const owned<DIR, closedir> directory{opendir(folder.c_str())};
        if (!directory) reason = errno;
        while (directory) {
            errno = 0;
            const dirent *entry = readdir(directory.get());
            if (!entry) reason = errno;
            if (!entry) break;
            names.emplace_back(entry->d_name);
        }
    }
    errno = reason;
    return names;
}

std::string path_in(std::string folder, const std::string &name) {
    return folder.append("/").append(name);
}

/* Contents that commits share go with the last of them. */
struct folder_size {
    int64_t share = 0; /* what it takes, of shared contents its part */
    int64_t alone = 0; /* what is free when it has gone */
};

folder_size size_of(const std::string &folder) {
    folder_size size;
    for (const std::string &name : names_in(folder)) {
        struct stat st {};
        if (lstat(path_in(folder, name).c_str(), &st) != 0 || !S_ISREG(st.st_mode)) continue;
        size.share += static_cast<int64_t>(st.st_size) / static_cast<int64_t>(st.st_nlink);
        if (st.st_nlink == 1) size.alone += static_cast<int64_t>(st.st_size);
    }
    return size;
}

/* A folder without a record was never begun, and nothing can come of one that is damaged. But one
 * that cannot be read at the moment may be that of a trial. */
bool may_go(long number) {
    commit_record record;
    if (read_record(archive_folder(number), record) != 0) return errno == ENOENT || errno == EINVAL;
    return record.state != commit_state::open && record.state != commit_state::trial;
}

int check_directory(const std::string &directory) {
    struct stat st {};
    if (lstat(directory.c_str(), &st) != 0) return fail("looking at", directory, errno);
    if (!S_ISDIR(st.st_mode)) return refuse(directory, "it is no directory");
    if (st.st_uid != geteuid()) return refuse(directory, "it belongs to somebody else");
    if ((st.st_mode & 077) != 0 && chmod(directory.c_str(), 0700) != 0)
        return fail("closing", directory, errno);
    return 0;
}

}  // namespace

int archive_configure(const std::string &directory, long kept, int64_t size) {
    g_archive = {directory, std::max(kept, 1L), size};
    if (make_directory(g_archive.directory) != 0) return -1;
    return check_directory(g_archive.directory);
}

void archive_forget(void) {
    g_archive = {};
}

bool archive_is_on(void) {
    return !g_archive.directory.empty();
}

const std::string &archive_directory(void) {
    return g_archive.directory;
}

std::vector<long> archive_numbers(void) {
    std::vector<long> numbers;
    const std::vector<std::string> names = names_in(g_archive.directory);
    const int reason = errno;
    if (reason != 0) fail("reading", g_archive.directory, reason);
    for (const std::string &name : names) {
        long number = 0;
        if (read_folder_name(name, number)) numbers.push_back(number);
    }
    std::sort(numbers.begin(), numbers.end());
    errno = reason;
    return numbers;
}

std::string archive_folder(long number) {
    return g_archive.directory + "/" + std::to_string(number);
}

int archive_new_folder(long &number) {
    const std::vector<long> numbers = archive_numbers();
    if (errno != 0) return -1;
    number = numbers.empty() ? 1 : numbers.back() + 1;
    const std::string folder = archive_folder(number);
    if (mkdir(folder.c_str(), 0700) != 0) return fail("making", folder, errno);
    if (sync_directory(g_archive.directory) == 0) return 0;
    return fail("syncing", g_archive.directory, errno);
}

archive_lock::archive_lock(long milliseconds) {
    if (check_directory(g_archive.directory) != 0) return;
    fd_.reset(open((g_archive.directory + "/lock").c_str(),
                   O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    for (long left = milliseconds; fd_; left -= k_lock_step_ms) {
        held_ = flock(fd_.get(), LOCK_EX | LOCK_NB) == 0;
        if (held_ || errno != EWOULDBLOCK || left <= 0) return;
        wait_a_moment();
    }
}

/* The record goes first: without it the rest is nothing, wherever a crash interrupts. */
int archive_remove(long number) {
    const std::string folder = archive_folder(number);
    if (unlink((folder + "/record").c_str()) != 0 && errno != ENOENT)
        return fail("removing", folder, errno);
    for (const std::string &name : names_in(folder))
        unlink(path_in(folder, name).c_str());
    if (rmdir(folder.c_str()) == 0 || errno == ENOENT) return 0;
    return fail("removing", folder, errno);
}

int archive_trim(void) {
    std::vector<long> numbers = archive_numbers();
    if (numbers.empty()) return 0;
    int64_t size = 0;
    for (long number : numbers)
        size += size_of(archive_folder(number)).share;
    size_t left = numbers.size();
    int result = 0;
    numbers.pop_back();
    for (long number : numbers) {
        if (left <= static_cast<size_t>(g_archive.kept) && size <= g_archive.size) break;
        if (!may_go(number)) continue;
        const int64_t freed = size_of(archive_folder(number)).alone;
        /* One that cannot go keeps none of the others. */
        if (archive_remove(number) != 0) {
            result = -1;
            continue;
        }
        size -= freed;
        left--;
    }
    return result;
}

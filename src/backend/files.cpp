/* Files on disk: the matches of a directory instance, and the one way in which a file is replaced.
 *
 *      step                                        a crash behind it leaves
 *   1. remove a stale temporary file               the old file
 *   2. create the temporary file, mode 0600        the old file, an empty temporary one
 *   3. give it owner and mode of the new file      the same
 *   4. write the contents, sync them               the old file, a temporary one, perhaps whole
 *   5. rename it over the file                     the old file or the new one, whole
 *   6. sync the directory                          the new file
 *
 * The temporary file is created afresh and never opened through a link, so that nobody who may
 * write the directory can point us elsewhere between the steps. */

#include "backend/files.h"

#include <errno.h>
#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "daemon/dirs.h"
#include "llconf/modules.h"
#include "ucfgd/owners.h"

namespace {

constexpr std::string_view k_temporary_suffix = ".ucfgd-tmp";

/* glob tells its error function no more than this. */
bool g_unreadable_directory = false;

int note_unreadable(const char * /*path*/, int reason) {
    if (reason != ENOENT && reason != ENOTDIR) g_unreadable_directory = true;
    return 0;
}

std::string directory_of(const std::string &path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

/* Whether path lies below the module prefix, if there is one. */
bool is_inside_prefix(std::string_view path) {
    if (!g_filesprefix) return true;
    owned_str prefix{realpath(g_filesprefix, nullptr)};
    if (!prefix) return false;
    std::string_view top{prefix.get()};
    if (top == "/") return true;
    return path.size() > top.size() && path.starts_with(top) && path[top.size()] == '/';
}

/* Where a link leads whose target does not exist yet; empty when its directory does not either. */
std::string dangling_target(const std::string &path) {
    char text[PATH_MAX];
    ssize_t length = readlink(path.c_str(), text, sizeof(text));
    if (length <= 0 || static_cast<size_t>(length) >= sizeof(text)) return {};
    std::string target(text, static_cast<size_t>(length));
    if (target.front() != '/') target = directory_of(path) + "/" + target;
    owned_str directory{realpath(directory_of(target).c_str(), nullptr)};
    if (!directory) return {};
    return std::string(directory.get()) + "/" + target.substr(target.rfind('/') + 1);
}

/* The file to replace: path itself, or what a link there leads to. A link that leads out of the
 * prefix is replaced, so that a copy of a system never writes to the system itself. */
std::string resolve_target(const char *path) {
    struct stat st {};
    if (lstat(path, &st) != 0 || !S_ISLNK(st.st_mode)) return path;
    owned_str real{realpath(path, nullptr)};
    std::string target = real ? std::string(real.get()) : dangling_target(path);
    return !target.empty() && is_inside_prefix(target) ? target : path;
}

int fail_writing(const std::string &temporary) {
    int reason = errno;
    daemon_log(LOG_ERR, "writing to %s failed: %s", temporary.c_str(), std::strerror(reason));
    errno = reason;
    return -1;
}

/* Of a tree that the file cannot hold, the library says which node is to blame. */
int fail_unparsing(const std::string &temporary) {
    bool refused = errno == EINVAL;
    fail_writing(temporary);
    errno_guard keep;
    if (refused) daemon_log(LOG_ERR, "%s", cnf_error_text());
    return -1;
}

/* Owner before mode: a change of owner clears mode bits. Failures are logged only. */
void apply_attributes(int fd, const char *path, const struct stat *old,
                      const file_attributes &wanted) {
    struct stat now {};
    if (fstat(fd, &now) != 0) return;
    uid_t uid = wanted.uid >= 0 ? static_cast<uid_t>(wanted.uid) : (old ? old->st_uid : now.st_uid);
    gid_t gid = wanted.gid >= 0 ? static_cast<gid_t>(wanted.gid) : (old ? old->st_gid : now.st_gid);
    if ((uid != now.st_uid || gid != now.st_gid) && fchown(fd, uid, gid) != 0) {
        daemon_log(LOG_ERR, "chown('%s', %d, %d) failed: %s", path, static_cast<int>(uid),
                   static_cast<int>(gid), std::strerror(errno));
    }
    mode_t mask = umask(0);
    umask(mask);
    mode_t mode = old ? old->st_mode & 07777U : 0666U & ~mask;
    if (wanted.mode >= 0) mode = static_cast<mode_t>(wanted.mode);
    if (fchmod(fd, mode) != 0) {
        daemon_log(LOG_ERR, "chmod('%s', %o) failed: %s", path, static_cast<unsigned int>(mode),
                   std::strerror(errno));
    }
}

int sync_directory(const std::string &directory) {
    unique_fd fd{open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!fd) return -1;
    if (fsync(fd.get()) == 0 || errno == EINVAL || errno == EROFS) return 0;
    return -1;
}

/* Steps 1 to 4. */
int write_temporary(const cnfmodule *module, const std::string &temporary, const char *path,
                    const std::string &target, const cnfnode *tree,
                    const file_attributes &attributes) {
    struct stat old {};
    bool replaces = lstat(target.c_str(), &old) == 0;
    if (replaces && !S_ISREG(old.st_mode) && !S_ISLNK(old.st_mode)) {
        errno = S_ISDIR(old.st_mode) ? EISDIR : EINVAL;
        return fail_writing(temporary);
    }
    if (unlink(temporary.c_str()) != 0 && errno != ENOENT) return fail_writing(temporary);
    unique_fd fd{
        open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)};
    if (!fd) return fail_writing(temporary);
    bool keeps_attributes = replaces && S_ISREG(old.st_mode);
    apply_attributes(fd.get(), path, keeps_attributes ? &old : nullptr, attributes);
    if (cnfmodule_unparse_fd(module, fd.get(), tree) != 0) return fail_unparsing(temporary);
    if (fd.close_now() != 0) return fail_writing(temporary);
    return 0;
}

}  // namespace

directory_glob::directory_glob(const char *directory, const char *pattern) {
    char text[256];
    int length = std::snprintf(text, sizeof(text), "%s/%s", directory, pattern);
    g_unreadable_directory = false;
    int status = glob(text, 0, note_unreadable, &matches_);
    if (status == 0) count_ = matches_.gl_pathc;
    complete_ = length >= 0 && static_cast<size_t>(length) < sizeof(text) &&
                (status == 0 || status == GLOB_NOMATCH) && !g_unreadable_directory;
}

const char *name_below(const char *directory, const char *path) {
    size_t length = std::strlen(directory);
    if (std::strncmp(path, directory, length) != 0 || path[length] != '/') return nullptr;
    return path + length + 1;
}

bool is_temporary_name(const char *name) {
    return std::string_view(name).ends_with(k_temporary_suffix);
}

bool is_name_below(const char *name) {
    std::string_view rest{name};
    while (true) {
        std::string_view component = rest.substr(0, rest.find('/'));
        if (component.empty() || component == "." || component == "..") return false;
        if (component.size() == rest.size()) return true;
        rest.remove_prefix(component.size() + 1);
    }
}

int replace_file(const cnfmodule *module, const char *path, const cnfnode *tree,
                 const file_attributes &attributes) {
    std::string target = resolve_target(path);
    std::string temporary = target + std::string(k_temporary_suffix);
    daemon_log(LOG_NOTICE, "writing file %s", path);
    if (write_temporary(module, temporary, path, target, tree, attributes) != 0) return -1;
    if (rename(temporary.c_str(), target.c_str()) != 0) {
        int reason = errno;
        daemon_log(LOG_ERR, "rename('%s', '%s') failed: %s", temporary.c_str(), target.c_str(),
                   std::strerror(reason));
        errno = reason;
        return -1;
    }
    if (sync_directory(directory_of(target)) != 0) return fail_writing(directory_of(target));
    return 0;
}

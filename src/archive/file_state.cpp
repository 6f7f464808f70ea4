#include "archive/file_state.h"

#include <errno.h>
#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <syslog.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <new>
#include <string_view>

#include "daemon/crypto.h"
#include "daemon/dirs.h"
#include "daemon/place.h"
#include "ucfgd/owners.h"

namespace {

constexpr off_t k_largest_file = 256L * 1024 * 1024;
constexpr size_t k_piece = 65536;
constexpr mode_t k_permissions = 07777;

std::string temporary_of(const std::string &name) {
    return name + std::string{k_temporary_suffix};
}

int read_all(int fd, std::string &text) {
    text.clear();
    for (;;) {
        size_t filled = text.size();
        if (filled > static_cast<size_t>(k_largest_file)) {
            errno = EFBIG;
            return -1;
        }
        text.resize(filled + k_piece);
        ssize_t got = read(fd, text.data() + filled, k_piece);
        text.resize(filled + static_cast<size_t>(got > 0 ? got : 0));
        if (got == 0) return 0;
        if (got < 0 && errno != EINTR) return -1;
    }
}

int write_all(int fd, std::string_view text) {
    while (!text.empty()) {
        ssize_t put = write(fd, text.data(), text.size());
        if (put < 0 && errno != EINTR) return -1;
        if (put > 0) text.remove_prefix(static_cast<size_t>(put));
    }
    return 0;
}

int sync_fd(int fd) {
    int result = 0;
    do {
        result = fsync(fd);
    } while (result != 0 && errno == EINTR);
    return result;
}

int read_link(int folder, const std::string &name, std::string &text) {
    char target[PATH_MAX];
    ssize_t length = readlinkat(folder, name.c_str(), target, sizeof target);
    if (length < 0) return -1;
    text.assign(target, static_cast<size_t>(length));
    return 0;
}

/* A file may be exchanged between two looks at its name, so all is asked of one descriptor. */
int read_regular(int folder, const std::string &name, struct stat &st, std::string &text) {
    unique_fd fd{openat(folder, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    if (!fd || fstat(fd.get(), &st) != 0) return -1;
    if (!S_ISREG(st.st_mode)) {
        errno = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
        return -1;
    }
    return read_all(fd.get(), text);
}

int find(const std::string &path, place &at) {
    errno = find_file(path.c_str(), at);
    return errno == 0 ? 0 : -1;
}

int make_link(const place &at, const std::string &name, const file_state &state,
              std::string_view text) {
    if (symlinkat(std::string{text}.c_str(), at.folder(), name.c_str()) != 0) return -1;
    return fchownat(at.folder(), name.c_str(), state.uid, state.gid, AT_SYMLINK_NOFOLLOW);
}

/* Owner before mode: a change of owner clears mode bits. */
int make_file(const place &at, const std::string &name, const file_state &state,
              std::string_view text) {
    unique_fd fd{openat(at.folder(), name.c_str(),
                        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)};
    if (!fd || fchown(fd.get(), state.uid, state.gid) != 0 || fchmod(fd.get(), state.mode) != 0)
        return -1;
    if (write_all(fd.get(), text) != 0 || sync_fd(fd.get()) != 0) return -1;
    return fd.close_now();
}

int remove_name(const place &at, const std::string &name) {
    return unlinkat(at.folder(), name.c_str(), 0) == 0 || errno == ENOENT ? 0 : -1;
}

int replace_name(const place &at, const file_state &state, std::string_view text) {
    const std::string temporary = temporary_of(at.name());
    if (remove_name(at, temporary) != 0) return -1;
    int made = state.kind == file_kind::link ? make_link(at, temporary, state, text)
                                             : make_file(at, temporary, state, text);
    if (made == 0 && renameat(at.folder(), temporary.c_str(), at.folder(), at.name().c_str()) == 0)
        return 0;
    errno_guard keep;
    unlinkat(at.folder(), temporary.c_str(), 0);
    return -1;
}

}  // namespace

std::string whole_path(const std::string &path) {
    return g_filesprefix ? std::string{g_filesprefix} + "/" + path : path;
}

std::string name_in_module(const std::string &whole_path) {
    if (!g_filesprefix || !whole_path.starts_with(g_filesprefix)) return whole_path;
    size_t start = std::strlen(g_filesprefix) + 1;
    return whole_path.size() > start ? whole_path.substr(start) : whole_path;
}

std::string real_path(const place &at) {
    char folder[PATH_MAX];
    const std::string link = "/proc/self/fd/" + std::to_string(at.folder());
    const ssize_t length = readlink(link.c_str(), folder, sizeof folder);
    if (length < 0) return {};
    return std::string{folder, static_cast<size_t>(length)} + "/" + at.name();
}

bool same_state(const file_state &a, const file_state &b) {
    if (a.kind != b.kind) return false;
    if (a.kind == file_kind::absent) return true;
    if (a.digest != b.digest || a.uid != b.uid || a.gid != b.gid) return false;
    return a.kind == file_kind::link || a.mode == b.mode;
}

std::string digest_of(std::string_view text) {
    static constexpr char k_digits[] = "0123456789abcdef";
    const crypto_library *crypto = load_crypto();
    if (!crypto) return {};
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (crypto->digest(text.data(), text.size(), digest, &length, crypto->sha256(), nullptr) != 1) {
        errno = ENOMEM;
        return {};
    }
    std::string hex;
    for (unsigned int i = 0; i < length; i++) {
        hex += k_digits[digest[i] >> 4];
        hex += k_digits[digest[i] & 15];
    }
    return hex;
}

int read_state(const std::string &path, file_state &state, std::string &text) {
    place at;
    state = {};
    text.clear();
    if (find(path, at) != 0) return errno == ENOENT || errno == ENOTDIR ? 0 : -1;
    return read_state_at(at.folder(), at.name(), state, text);
}

int read_state_at(int folder, const std::string &name, file_state &state, std::string &text) {
    state = {};
    text.clear();
    struct stat st {};
    if (fstatat(folder, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? 0 : -1;
    bool is_link = S_ISLNK(st.st_mode);
    if ((is_link ? read_link(folder, name, text) : read_regular(folder, name, st, text)) != 0)
        return -1;
    state.kind = is_link ? file_kind::link : file_kind::regular;
    state.mode = st.st_mode & k_permissions;
    state.uid = st.st_uid;
    state.gid = st.st_gid;
    state.digest = digest_of(text);
    return state.digest.empty() ? -1 : 0;
}

int write_state(const std::string &path, const file_state &state, const std::string &text) {
    place at;
    if (find(path, at) != 0) return state.kind == file_kind::absent && errno == ENOENT ? 0 : -1;
    int changed = state.kind == file_kind::absent ? remove_name(at, at.name())
                                                  : replace_name(at, state, text);
    if (changed != 0) return -1;
    unique_fd folder = at.open_folder();
    if (!folder) return -1;
    errno = sync_folder(folder.get());
    return errno == 0 ? 0 : -1;
}

void remove_temporary(const char *path) {
    place at;
    struct stat st {};
    if (at.find(path, link_at_end::is_followed) != 0) return;
    try {
        std::string temporary = temporary_of(at.name());
        if (fstatat(at.folder(), temporary.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) return;
        if (!S_ISREG(st.st_mode) && !S_ISLNK(st.st_mode)) return;
        if (unlinkat(at.folder(), temporary.c_str(), 0) != 0) return;
        daemon_log(LOG_NOTICE, "removed %s, which a commit that was cut off had left",
                   temporary_of(path).c_str());
    } catch (const std::bad_alloc &) {
        return; /* the next start comes */
    }
}

int read_whole(const std::string &path, std::string &text) {
    place at;
    struct stat st {};
    return find(path, at) == 0 ? read_regular(at.folder(), at.name(), st, text) : -1;
}

int write_whole(const std::string &path, std::string_view text) {
    file_state own;
    own.kind = file_kind::regular;
    own.mode = 0600;
    own.uid = geteuid();
    own.gid = getegid();
    place at;
    return find(path, at) == 0 ? replace_name(at, own, text) : -1;
}

int sync_directory(const std::string &directory) {
    unique_fd fd{open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!fd) return -1;
    errno = sync_folder(fd.get());
    return errno == 0 ? 0 : -1;
}

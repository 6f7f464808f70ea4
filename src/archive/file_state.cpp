#include "archive/file_state.h"

#include <errno.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <climits>
#include <string_view>

#include "ucfgd/owners.h"

namespace {

constexpr off_t k_largest_file = 256L * 1024 * 1024;
constexpr size_t k_piece = 65536;
constexpr char k_temporary_suffix[] = ".ucfgd-tmp";
constexpr mode_t k_permissions = 07777;

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

int read_link(const std::string &path, std::string &text) {
    char target[PATH_MAX];
    ssize_t length = readlink(path.c_str(), target, sizeof target);
    if (length < 0) return -1;
    text.assign(target, static_cast<size_t>(length));
    return 0;
}

/* A file may be exchanged between two looks at its name, so all is asked of one descriptor. */
int read_regular(const std::string &path, struct stat &st, std::string &text) {
    unique_fd fd{open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC)};
    if (!fd || fstat(fd.get(), &st) != 0) return -1;
    if (!S_ISREG(st.st_mode)) {
        errno = S_ISDIR(st.st_mode) ? EISDIR : EINVAL;
        return -1;
    }
    return read_all(fd.get(), text);
}

int make_link(const std::string &path, const file_state &state, const std::string &text) {
    if (symlink(text.c_str(), path.c_str()) != 0) return -1;
    return lchown(path.c_str(), state.uid, state.gid);
}

/* Owner before mode: a change of owner clears mode bits. */
int make_file(const std::string &path, const file_state &state, const std::string &text) {
    unique_fd fd{open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)};
    if (!fd || fchown(fd.get(), state.uid, state.gid) != 0 || fchmod(fd.get(), state.mode) != 0)
        return -1;
    if (write_all(fd.get(), text) != 0 || sync_fd(fd.get()) != 0) return -1;
    return fd.close_now();
}

int remove_name(const std::string &path) {
    return unlink(path.c_str()) == 0 || errno == ENOENT ? 0 : -1;
}

int replace_name(const std::string &path, const file_state &state, const std::string &text) {
    const std::string temporary = path + k_temporary_suffix;
    if (remove_name(temporary) != 0) return -1;
    int made = state.kind == file_kind::link ? make_link(temporary, state, text)
                                             : make_file(temporary, state, text);
    if (made == 0 && rename(temporary.c_str(), path.c_str()) == 0) return 0;
    errno_guard keep;
    unlink(temporary.c_str());
    return -1;
}

}  // namespace

bool same_state(const file_state &a, const file_state &b) {
    if (a.kind != b.kind) return false;
    if (a.kind == file_kind::absent) return true;
    if (a.digest != b.digest || a.uid != b.uid || a.gid != b.gid) return false;
    return a.kind == file_kind::link || a.mode == b.mode;
}

std::string digest_of(const std::string &text) {
    static constexpr char k_digits[] = "0123456789abcdef";
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    if (EVP_Digest(text.data(), text.size(), digest, &length, EVP_sha256(), nullptr) != 1) {
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
    state = {};
    text.clear();
    struct stat st {};
    if (lstat(path.c_str(), &st) != 0) return errno == ENOENT || errno == ENOTDIR ? 0 : -1;
    bool is_link = S_ISLNK(st.st_mode);
    if ((is_link ? read_link(path, text) : read_regular(path, st, text)) != 0) return -1;
    state.kind = is_link ? file_kind::link : file_kind::regular;
    state.mode = st.st_mode & k_permissions;
    state.uid = st.st_uid;
    state.gid = st.st_gid;
    state.digest = digest_of(text);
    return state.digest.empty() ? -1 : 0;
}

int write_state(const std::string &path, const file_state &state, const std::string &text) {
    int changed =
        state.kind == file_kind::absent ? remove_name(path) : replace_name(path, state, text);
    return changed == 0 ? sync_folder(folder_of(path)) : -1;
}

int read_whole(const std::string &path, std::string &text) {
    struct stat st {};
    return read_regular(path, st, text);
}

int write_whole(const std::string &path, const std::string &text) {
    file_state own;
    own.kind = file_kind::regular;
    own.mode = 0600;
    own.uid = geteuid();
    own.gid = getegid();
    return replace_name(path, own, text);
}

int sync_folder(const std::string &directory) {
    unique_fd fd{open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
    if (!fd) return -1;
    if (sync_fd(fd.get()) == 0 || errno == EINVAL || errno == EROFS) return 0;
    return -1;
}

std::string folder_of(const std::string &path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

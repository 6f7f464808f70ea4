#include "daemon/place.h"

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <climits>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "daemon/dirs.h"

namespace {

constexpr int k_most_links = 40; /* as many as the kernel follows */
constexpr int k_folder_flags = O_PATH | O_DIRECTORY | O_CLOEXEC;

/* What follows the prefix in a path below it; null for a path that the kernel looks up. */
const char *below_prefix(const char *path) {
    if (!g_filesprefix) return nullptr;
    std::string_view prefix{g_filesprefix};
    while (prefix.ends_with('/'))
        prefix.remove_suffix(1);
    if (prefix.empty() || std::strncmp(path, prefix.data(), prefix.size()) != 0) return nullptr;
    const char *rest = path + prefix.size();
    return *rest == '/' || *rest == '\0' ? rest : nullptr;
}

/* 0 and the target of a link; EINVAL for what is none. */
int read_link(int folder, const char *name, std::string &target) {
    char text[PATH_MAX];
    ssize_t length = readlinkat(folder, name, text, sizeof(text));
    if (length < 0) return errno;
    if (static_cast<size_t>(length) >= sizeof(text)) return ENAMETOOLONG;
    target.assign(text, static_cast<size_t>(length));
    return target.empty() ? ENOENT : 0;
}

/* A walk from the prefix down, name by name. */
class walk {
  public:
    int run(std::string_view path, link_at_end rule);

    unique_fd folder;
    std::string name = "."; /* of the last component; of a path that ends in a folder: "." */

  private:
    void push(std::string_view path);
    int step(const std::string &component, bool expand);

    std::vector<unique_fd> folders_;
    std::vector<std::string> left_; /* the next one last */
    int links_ = 0;
    bool found_ = false;
};

void walk::push(std::string_view path) {
    while (!path.empty()) {
        size_t slash = path.rfind('/');
        std::string_view component = slash == path.npos ? path : path.substr(slash + 1);
        if (!component.empty() && component != ".") left_.emplace_back(component);
        path = slash == path.npos ? std::string_view{} : path.substr(0, slash);
    }
}

int walk::step(const std::string &component, bool expand) {
    if (component == "..") {
        if (folders_.size() > 1) folders_.pop_back();
        return 0;
    }
    bool last = left_.empty();
    std::string target;
    int reason =
        last && !expand ? EINVAL : read_link(folders_.back().get(), component.c_str(), target);
    if (reason == 0) {
        if (++links_ > k_most_links) return ELOOP;
        if (target.front() == '/') folders_.resize(1);
        push(target);
        return 0;
    }
    if (last && (reason == EINVAL || reason == ENOENT)) {
        name = component;
        found_ = true;
        return 0;
    }
    if (reason != EINVAL) return reason;
    unique_fd next{openat(folders_.back().get(), component.c_str(), k_folder_flags | O_NOFOLLOW)};
    if (!next) return errno;
    folders_.push_back(std::move(next));
    return 0;
}

int walk::run(std::string_view path, link_at_end rule) {
    unique_fd top{open(g_filesprefix, k_folder_flags)};
    if (!top) return errno;
    folders_.push_back(std::move(top));
    push(path);
    while (!left_.empty() && !found_) {
        std::string component = std::move(left_.back());
        left_.pop_back();
        int reason = step(component, rule == link_at_end::is_followed);
        if (reason != 0) return reason;
    }
    folder = std::move(folders_.back());
    return 0;
}

std::string folder_of(const std::string &path) {
    size_t slash = path.rfind('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

/* Looks a path below the prefix up for one system call; false with errno. */
bool look_up(const char *path, link_at_end rule, place &at) {
    int reason = at.find(path, rule);
    if (reason != 0) errno = reason;
    return reason == 0;
}

}  // namespace

int place::find(const char *path, link_at_end rule) {
    try {
        const char *below = below_prefix(path);
        if (!below) return follow(path, rule == link_at_end::is_followed ? k_most_links : 0);
        walk from_prefix;
        int reason = from_prefix.run(below, rule);
        folder_ = std::move(from_prefix.folder);
        name_ = std::move(from_prefix.name);
        return reason;
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
}

int place::follow(const std::string &path, int links) {
    folder_.reset(open(folder_of(path).c_str(), k_folder_flags));
    if (!folder_) return errno;
    name_ = path.substr(path.rfind('/') + 1);
    if (links == 0) return 0;
    std::string target;
    int reason = read_link(folder_.get(), name_.c_str(), target);
    if (reason != 0) return reason == EINVAL || reason == ENOENT ? 0 : reason;
    if (links == 1) return ELOOP;
    return follow(target.front() == '/' ? target : folder_of(path) + "/" + target, links - 1);
}

int place::look(struct stat &st) const {
    return fstatat(folder_.get(), name_.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 ? 0 : errno;
}

unique_fd place::open_folder() const {
    return unique_fd{openat(folder_.get(), ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)};
}

int find_file(const char *path, place &at) {
    int reason = at.find(path, link_at_end::is_followed);
    return reason == ENOENT ? at.find(path, link_at_end::is_meant) : reason;
}

int sync_folder(int fd) {
    while (fsync(fd) != 0) {
        if (errno == EINTR) continue;
        return errno == EINVAL || errno == EROFS ? 0 : errno;
    }
    return 0;
}

int place_stat(const char *path, struct stat *st) {
    if (!below_prefix(path)) return stat(path, st);
    place at;
    if (!look_up(path, link_at_end::is_followed, at)) return -1;
    return fstatat(at.folder(), at.name().c_str(), st, AT_SYMLINK_NOFOLLOW);
}

int place_lstat(const char *path, struct stat *st) {
    if (!below_prefix(path)) return lstat(path, st);
    place at;
    if (!look_up(path, link_at_end::is_meant, at)) return -1;
    return fstatat(at.folder(), at.name().c_str(), st, AT_SYMLINK_NOFOLLOW);
}

int place_readlink(const char *path, std::string &target) {
    place at;
    int reason = at.find(path, link_at_end::is_meant);
    if (reason == 0) reason = read_link(at.folder(), at.name().c_str(), target);
    if (reason != 0) errno = reason;
    return reason == 0 ? 0 : -1;
}

int place_open(const char *path, int flags) {
    if (!below_prefix(path)) return open(path, flags | O_CLOEXEC);
    place at;
    if (!look_up(path, link_at_end::is_followed, at)) return -1;
    return openat(at.folder(), at.name().c_str(), flags | O_NOFOLLOW | O_CLOEXEC);
}

DIR *place_opendir(const char *path) {
    unique_fd fd{place_open(path, O_RDONLY | O_DIRECTORY | O_NONBLOCK)};
    DIR *stream = fd ? fdopendir(fd.get()) : nullptr;
    if (stream) fd.release();
    return stream;
}

int place_unlink(const char *path) {
    if (!below_prefix(path)) return unlink(path);
    place at;
    if (!look_up(path, link_at_end::is_meant, at)) return -1;
    return unlinkat(at.folder(), at.name().c_str(), 0);
}

int place_symlink(const char *target, const char *path) {
    if (!below_prefix(path)) return symlink(target, path);
    place at;
    if (!look_up(path, link_at_end::is_meant, at)) return -1;
    return symlinkat(target, at.folder(), at.name().c_str());
}

int place_relink(const char *target, const char *path) {
    place at;
    if (!look_up(path, link_at_end::is_meant, at)) return -1;
    char beside[NAME_MAX + 1];
    const int length = snprintf(beside, sizeof(beside), "%s.ucfgd-tmp", at.name().c_str());
    if (length < 0 || static_cast<size_t>(length) >= sizeof(beside)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    unlinkat(at.folder(), beside, 0); /* what a killed daemon left */
    if (symlinkat(target, at.folder(), beside) != 0) return -1;
    int reason = renameat(at.folder(), beside, at.folder(), at.name().c_str()) == 0 ? 0 : errno;
    if (reason != 0) unlinkat(at.folder(), beside, 0);
    const unique_fd folder = at.open_folder();
    if (reason == 0) reason = folder ? sync_folder(folder.get()) : errno;
    if (reason != 0) errno = reason;
    return reason == 0 ? 0 : -1;
}

#include "backend/seen_file.h"

#include <time.h>

#include "daemon/place.h"
#include "llconf/nodes.h"

namespace {

/* Longer than a tick of the clock of files, on kernels that have long ones. */
constexpr int64_t k_settling_ns = 20'000'000;

int64_t nanoseconds(const struct timespec &t) {
    return int64_t{t.tv_sec} * 1'000'000'000 + t.tv_nsec;
}

/* The clock first: a file that changes behind the look must not pass for settled. */
template <class looking>
int look_with(looking ask, file_look &look) {
    struct timespec now {};
    clock_gettime(CLOCK_REALTIME, &now);
    if (ask(look.st) != 0) return -1;
    look.settled = nanoseconds(now) - nanoseconds(look.st.st_ctim) > k_settling_ns;
    return 0;
}

}  // namespace

file_identity identity_of(const struct stat &st) {
    return {true, st.st_dev, st.st_ino, st.st_size, st.st_mtim, st.st_ctim};
}

file_identity identity_at(const char *path) {
    struct stat st {};
    return place_stat(path, &st) == 0 ? identity_of(st) : file_identity{};
}

bool same_time(const struct timespec &a, const struct timespec &b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool same_identity(const file_identity &a, const file_identity &b) {
    if (!a.exists || !b.exists) return a.exists == b.exists;
    return a.device == b.device && a.inode == b.inode && a.size == b.size &&
           same_time(a.modified, b.modified) && same_time(a.changed, b.changed);
}

bool seen_file::is_still(const file_identity &now) const {
    return (settled || !identity.exists) && same_identity(identity, now);
}

std::optional<std::string_view> seen_file::text() const {
    if (!identity.exists) return std::string_view{};
    if (!source) return std::nullopt;
    size_t length = 0;
    const char *bytes = cnf_source_text(source.get(), &length);
    return std::string_view{bytes, length};
}

int look_at(int fd, file_look &look) {
    return look_with([fd](struct stat &st) { return fstat(fd, &st); }, look);
}

int look_at(const char *path, file_look &look) {
    return look_with([path](struct stat &st) { return place_stat(path, &st); }, look);
}

seen_file seen_in(const file_look &look, const cnfnode *tree) {
    seen_file seen{identity_of(look.st), look.settled, nullptr};
    if (cnf_source *held = cnfnode_hold_source(tree)) seen.source = {held, cnf_release_source};
    return seen;
}

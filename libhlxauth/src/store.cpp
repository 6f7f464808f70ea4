#include "store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <new>

#include "hlxauth/session.h"
#include "ucfgd/owners.h"
#include "ucfgd/strlcpy.h"

#ifndef HLXAUTH_STORE_NAME
#    define HLXAUTH_STORE_NAME "/hlxauth-sessions"
#endif

namespace hlx_auth {

namespace {

constexpr uint32_t k_mark = 0x484c5831; /* changes with the layout */
constexpr int k_open_attempts = 4;
constexpr int k_place_bits = 10;
static_assert(HLX_AUTH_SESSIONS_MAX <= 1 << k_place_bits);
constexpr uint32_t k_generation_mask = 0x1fffff; /* what is left of a positive int */

/* Made by the first call, which can tell that there is no memory for it. */
std::string &store_name() {
    static std::string name{HLXAUTH_STORE_NAME};
    return name;
}

[[noreturn]] void fail(const char *what, int error) {
    errno = error;
    throw session::session_error(std::string{"session store "} + store_name() + ": " + what + ": " +
                                 strerror(error));
}

/* The table of this process: mapped once, and again when its name leads to another file. */
struct mapping {
    session_store *store = nullptr;
    dev_t device = 0;
    ino_t inode = 0;
    bool hung = false; /* since a time-out; until a lock is had again it is tried, not waited for */
};

mapping g_mapping;

bool has_come(const timespec &deadline) {
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec > deadline.tv_sec ||
           (now.tv_sec == deadline.tv_sec && now.tv_nsec >= deadline.tv_nsec);
}

timespec deadline_in(long milliseconds) {
    timespec deadline;
    clock_gettime(CLOCK_MONOTONIC, &deadline);
    deadline.tv_sec += milliseconds / 1000;
    deadline.tv_nsec += milliseconds % 1000 * 1'000'000;
    if (deadline.tv_nsec >= 1'000'000'000) {
        deadline.tv_sec++;
        deadline.tv_nsec -= 1'000'000'000;
    }
    return deadline;
}

/* 0 or an error number. */
int init_mutex(pthread_mutex_t &mutex) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    const int error = pthread_mutex_init(&mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    return error;
}

/* Whether the mutex is of the kind that we made. Of another kind, locking it could do anything. */
bool is_our_kind(const pthread_mutex_t &mutex) {
#ifdef __GLIBC__
    pthread_mutex_t sample;
    if (init_mutex(sample) != 0) return false;
    return mutex.__data.__kind == sample.__data.__kind;
#else
    return true;
#endif
}

/* Opens the table, or makes an empty one. */
unique_fd open_store() {
    const char *name = store_name().c_str();
    for (int attempt = 0; attempt < k_open_attempts; attempt++) {
        unique_fd fd{shm_open(name, O_RDWR | O_CLOEXEC, 0)};
        if (!fd && errno == ENOENT)
            fd.reset(shm_open(name, O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
        if (!fd && errno == EEXIST) continue;
        if (!fd) fail("cannot be opened", errno);
        struct stat st;
        if (fstat(fd.get(), &st) < 0) fail("cannot be looked at", errno);
        if (S_ISREG(st.st_mode) && st.st_uid == geteuid() && (st.st_mode & 077) == 0) return fd;
        /* Anybody can make a file of that name before us, but only root can take it away. */
        if (geteuid() != 0 || st.st_uid == 0 || shm_unlink(name) < 0) break;
    }
    fail("has another owner or mode", EPERM);
}

/* Held while a table is set up. It belongs to what was opened, which the mapping keeps open, and so
 * is given back by itself. */
class set_up_lock {
  public:
    set_up_lock(int fd, long patience_ms) : fd_(fd) {
        static constexpr timespec k_pause{0, 10'000'000};
        const timespec deadline = deadline_in(g_mapping.hung ? 0 : patience_ms);
        while (flock(fd, LOCK_EX | LOCK_NB) < 0) {
            if (errno != EWOULDBLOCK && errno != EINTR) fail("cannot be locked", errno);
            if (has_come(deadline)) {
                g_mapping.hung = true;
                fail("is being set up by another program", ETIMEDOUT);
            }
            nanosleep(&k_pause, nullptr);
        }
        g_mapping.hung = false;
    }
    set_up_lock(const set_up_lock &) = delete;
    set_up_lock &operator=(const set_up_lock &) = delete;
    ~set_up_lock() { flock(fd_, LOCK_UN); }

  private:
    int fd_;
};

/* One who dies in here leaves a table without its mark, which the next one sets up. */
void set_up(int fd, session_store &store, long patience_ms) {
    const set_up_lock locked{fd, patience_ms};
    if (store.mark != 0) return;
    if (const int error = init_mutex(store.mutex); error != 0) fail("its lock", error);
    store.size = sizeof(session_store);
    std::atomic_thread_fence(std::memory_order_release);
    store.mark = k_mark;
}

/* All of a new table now, since a page that is not to be had later would be the end of us. */
void make_room(int fd) {
    int error;
    do {
        error = posix_fallocate(fd, 0, sizeof(session_store));
    } while (error == EINTR);
    if (error != 0) fail("cannot be sized", error);
}

session_store *map_file(int fd, off_t size) {
    if (size == 0)
        make_room(fd);
    else if (size != static_cast<off_t>(sizeof(session_store)))
        fail("has another size", EINVAL);
    void *memory = mmap(nullptr, sizeof(session_store), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (memory == MAP_FAILED) fail("cannot be mapped", errno);
    return static_cast<session_store *>(memory);
}

void unmap() {
    if (g_mapping.store != nullptr) munmap(g_mapping.store, sizeof(session_store));
    g_mapping = {};
}

/* The table, which is nobody else's, whole, and set up. It is looked for by its name every time,
 * since whoever made it may have made it anew. */
session_store *map_store(long patience_ms) {
    const unique_fd fd = open_store();
    struct stat st;
    if (fstat(fd.get(), &st) < 0) fail("cannot be looked at", errno);
    const bool is_mapped = g_mapping.store != nullptr && st.st_dev == g_mapping.device &&
                           st.st_ino == g_mapping.inode &&
                           st.st_size == static_cast<off_t>(sizeof(session_store));
    if (!is_mapped) {
        unmap();
        g_mapping = {map_file(fd.get(), st.st_size), st.st_dev, st.st_ino, false};
    }
    session_store &store = *g_mapping.store;
    if (store.mark == 0) set_up(fd.get(), store, patience_ms);
    if (store.mark != k_mark || store.size != sizeof store || !is_our_kind(store.mutex))
        fail("is damaged", EINVAL);
    return &store;
}

void repair(session_store &store) {
    for (session_place &place : store.places)
        if (place.state != place_state::live) place.state = place_state::free;
    pthread_mutex_consistent(&store.mutex);
}

/* After one time-out nobody waits again before the lock was to be had: whoever holds it that long
 * has stopped, and the next caller may be the daemon's next session, and the next. */
int lock(session_store &store, long patience_ms) {
    int error;
    if (g_mapping.hung) {
        error = pthread_mutex_trylock(&store.mutex);
        if (error == EBUSY) error = ETIMEDOUT;
    } else {
        const timespec deadline = deadline_in(patience_ms);
        error = pthread_mutex_clocklock(&store.mutex, CLOCK_MONOTONIC, &deadline);
    }
    if (error == EOWNERDEAD) {
        repair(store);
        error = 0;
    }
    g_mapping.hung = error == ETIMEDOUT;
    return error;
}

bool is_hexadecimal(char c) {
    return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
}

/* Whether a name ends, and holds nothing but text. */
template <size_t size>
bool is_name(const char (&text)[size]) {
    const size_t length = strnlen(text, size);
    return length < size && is_plain_name({text, length});
}

/* Whether what a place holds was written by a program of ours. */
bool is_sound(const session_place &place) {
    return std::all_of(place.sid, place.sid + sizeof place.sid, is_hexadecimal) &&
           place.group_count <= HLX_AUTH_GROUPS_MAX && is_name(place.user) && place.flags >= 0 &&
           std::all_of(place.groups, place.groups + place.group_count,
                       [](const auto &group) { return is_name(group); });
}

/* Where a session is looked for first, and where its place is taken from there on. */
size_t first_place(std::string_view sid) {
    size_t number = 0;
    for (char c : sid.substr(0, 3))
        number = number << 4 | ((static_cast<unsigned char>(c) & 0xf) + (c > '9' ? 9 : 0));
    return number % HLX_AUTH_SESSIONS_MAX;
}

/* Takes the same time wherever the identifiers differ. */
bool same_sid(const char *place, std::string_view sid) {
    unsigned char difference = 0;
    for (size_t i = 0; i < HLX_AUTH_SID_SIZE; i++)
        difference |= static_cast<unsigned char>(place[i] ^ sid[i]);
    return difference == 0;
}

}  // namespace

locked_store::locked_store(long patience_ms) : store_(map_store(patience_ms)) {
    if (const int error = lock(*store_, patience_ms); error != 0)
        fail("is held by another program", error);
}

locked_store::~locked_store() {
    pthread_mutex_unlock(&store_->mutex);
}

session_place *locked_store::find(std::string_view sid) const {
    if (sid.size() != HLX_AUTH_SID_SIZE) return nullptr;
    const size_t first = first_place(sid);
    for (size_t i = 0; i < store_->places.size(); i++) {
        session_place &place = store_->places[(first + i) % store_->places.size()];
        if (place.state == place_state::live && same_sid(place.sid, sid) && is_live(place))
            return &place;
    }
    return nullptr;
}

int locked_store::id_of(const session_place &place) const {
    auto number = static_cast<uint32_t>(&place - store_->places.data());
    return static_cast<int>((place.generation & k_generation_mask) << k_place_bits | number);
}

session_place *locked_store::by_id(int id) const {
    if (id < 0) return nullptr;
    auto number = static_cast<size_t>(id) & ((1U << k_place_bits) - 1);
    if (number >= store_->places.size()) return nullptr;
    session_place &place = store_->places[number];
    return is_live(place) && id_of(place) == id ? &place : nullptr;
}

session_place *locked_store::take_free(std::string_view sid) const {
    const size_t first = first_place(sid);
    for (size_t i = 0; i < store_->places.size(); i++) {
        session_place &place = store_->places[(first + i) % store_->places.size()];
        if (is_live(place)) continue;
        /* First of all, so that half of a new session is never a live old one. */
        place.state = place_state::writing;
        std::atomic_thread_fence(std::memory_order_release);
        session_place fresh{};
        fresh.state = place_state::writing;
        fresh.generation = place.generation + 1;
        place = fresh;
        return &place;
    }
    return nullptr;
}

bool is_live(const session_place &place) {
    return place.state == place_state::live &&
           (place.expires == 0 || boot_seconds() < place.expires) && is_sound(place);
}

hlx_auth_session copy_of(const session_place &place) {
    hlx_auth_session copy{};
    memcpy(copy.sid, place.sid, sizeof place.sid);
    memcpy(copy.user, place.user, sizeof copy.user - 1);
    copy.group_count = static_cast<int>(std::min<uint32_t>(place.group_count, HLX_AUTH_GROUPS_MAX));
    for (int i = 0; i < copy.group_count; i++)
        memcpy(copy.groups[i], place.groups[i], sizeof copy.groups[i] - 1);
    copy.flags = place.flags;
    copy.created = place.created;
    copy.lifetime = place.expires == 0 ? -1 : place.expires - boot_seconds();
    if (place.acl_valid != 0) memcpy(copy.acl, place.acl, sizeof copy.acl - 1);
    return copy;
}

int64_t boot_seconds() {
    timespec now;
    clock_gettime(CLOCK_BOOTTIME, &now);
    return now.tv_sec;
}

bool is_plain_name(std::string_view name) {
    return std::none_of(name.begin(), name.end(),
                        [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; });
}

std::string normal_sid(std::string_view text) {
    if (text.size() != HLX_AUTH_SID_SIZE) return {};
    std::string sid{text};
    for (char &c : sid) {
        if (c >= 'A' && c <= 'F') c = static_cast<char>(c - 'A' + 'a');
        if (!is_hexadecimal(c)) return {};
    }
    return sid;
}

}  // namespace hlx_auth

int hlx_auth_set_store(const char *name) {
    std::string_view wanted = name != nullptr ? name : HLXAUTH_STORE_NAME;
    if (wanted.size() < 2 || wanted.size() > 200 || wanted[0] != '/' ||
        wanted.find('/', 1) != std::string_view::npos) {
        errno = EINVAL;
        return -1;
    }
    try {
        hlx_auth::store_name() = wanted;
        return 0;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

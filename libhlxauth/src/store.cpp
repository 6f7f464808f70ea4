#include "store.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>

#include <algorithm>
#include <cstring>

#include "hlxauth/session.h"
#include "ucfgd/owners.h"
#include "ucfgd/strlcpy.h"

#ifndef HLXAUTH_STORE_NAME
#    define HLXAUTH_STORE_NAME "/hlxauth-sessions"
#endif

namespace hlx_auth {

namespace {

constexpr uint32_t k_mark = 0x484c5831; /* changes with the layout */
constexpr int k_lock_seconds = 1;
constexpr int k_place_bits = 10;
static_assert(HLX_AUTH_SESSIONS_MAX <= 1 << k_place_bits);
constexpr uint32_t k_generation_mask = 0x1fffff; /* what is left of a positive int */

std::string g_store_name{HLXAUTH_STORE_NAME};

[[noreturn]] void fail(const char *what, int error) {
    errno = error;
    throw session::session_error(std::string{"session store "} + g_store_name + ": " + what + ": " +
                                 strerror(error));
}

void init_mutex(session_store &store) {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setpshared(&attributes, PTHREAD_PROCESS_SHARED);
    pthread_mutexattr_setrobust(&attributes, PTHREAD_MUTEX_ROBUST);
    int error = pthread_mutex_init(&store.mutex, &attributes);
    pthread_mutexattr_destroy(&attributes);
    if (error != 0) fail("its lock", error);
}

/* Opens the table, which is nobody else's, whole, and set up. Setting up is guarded by a lock on
 * the descriptor; one who dies in it leaves a table without its mark, which the next one sets up.
 */
session_store *map_store() {
    unique_fd fd{shm_open(g_store_name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)};
    if (!fd) fail("cannot be opened", errno);
    struct stat st;
    if (flock(fd.get(), LOCK_EX) < 0 || fstat(fd.get(), &st) < 0) fail("cannot be locked", errno);
    if (st.st_uid != geteuid() || (st.st_mode & 077) != 0) fail("has another owner or mode", EPERM);
    if (st.st_size != 0 && st.st_size != static_cast<off_t>(sizeof(session_store)))
        fail("has another size", EINVAL);
    if (st.st_size == 0 && ftruncate(fd.get(), sizeof(session_store)) < 0)
        fail("cannot be sized", errno);
    void *memory =
        mmap(nullptr, sizeof(session_store), PROT_READ | PROT_WRITE, MAP_SHARED, fd.get(), 0);
    if (memory == MAP_FAILED) fail("cannot be mapped", errno);
    auto *store = static_cast<session_store *>(memory);
    if (store->mark != k_mark) {
        init_mutex(*store);
        store->size = sizeof(session_store);
        store->mark = k_mark;
    }
    return store;
}

void repair(session_store &store) {
    for (session_place &place : store.places)
        if (place.state != place_state::live) place.state = place_state::free;
    pthread_mutex_consistent(&store.mutex);
}

int lock(session_store &store) {
    timespec until;
    clock_gettime(CLOCK_MONOTONIC, &until);
    until.tv_sec += k_lock_seconds;
    int error = pthread_mutex_clocklock(&store.mutex, CLOCK_MONOTONIC, &until);
    if (error != EOWNERDEAD) return error;
    repair(store);
    return 0;
}

/* Takes the same time wherever the identifiers differ. */
bool same_sid(const char *place, std::string_view sid) {
    unsigned char difference = 0;
    for (size_t i = 0; i < HLX_AUTH_SID_SIZE; i++)
        difference |= static_cast<unsigned char>(place[i] ^ sid[i]);
    return difference == 0;
}

}  // namespace

locked_store::locked_store() : store_(map_store()) {
    int error = lock(*store_);
    if (error == 0) return;
    munmap(store_, sizeof *store_);
    fail("is held by another program", error);
}

locked_store::~locked_store() {
    pthread_mutex_unlock(&store_->mutex);
    munmap(store_, sizeof *store_);
}

session_place *locked_store::find(std::string_view sid) const {
    if (sid.size() != HLX_AUTH_SID_SIZE) return nullptr;
    for (session_place &place : store_->places)
        if (is_live(place) && same_sid(place.sid, sid)) return &place;
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

session_place *locked_store::take_free() const {
    for (session_place &place : store_->places) {
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
           (place.expires == 0 || boot_seconds() < place.expires);
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

std::string normal_sid(std::string_view text) {
    if (text.size() != HLX_AUTH_SID_SIZE) return {};
    std::string sid{text};
    for (char &c : sid) {
        if (c >= 'A' && c <= 'F') c = static_cast<char>(c - 'A' + 'a');
        bool digit = (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f');
        if (!digit) return {};
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
    hlx_auth::g_store_name = wanted;
    return 0;
}

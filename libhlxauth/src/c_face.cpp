#include <errno.h>
#include <stdlib.h>
#include <sys/random.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <ctime>
#include <new>
#include <stdexcept>
#include <vector>

#include "hlxauth/hlxauth.h"
#include "store.h"
#include "ucfgd/escape.h"
#include "ucfgd/strlcpy.h"

/* The C face: the same store without exceptions. */

using hlx_auth::locked_store;
using hlx_auth::place_state;
using hlx_auth::session_place;

namespace {

/* A check is asked again before long, and everybody else waits for it. */
constexpr long k_check_patience_ms = 50;

/* Runs what may throw; -1 and errno when it does. */
template <class body>
int guarded(body run) {
    try {
        return run();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    } catch (const std::exception &) {
        if (errno == 0) errno = EIO;
    }
    return -1;
}

int fail(int error) {
    errno = error;
    return -1;
}

std::string sid_of(const char *text) {
    return hlx_auth::normal_sid(text != nullptr ? text : "");
}

bool fits(const char *name) {
    size_t length = strnlen(name, HLX_AUTH_USER_SIZE);
    return length > 0 && length < HLX_AUTH_USER_SIZE && hlx_auth::is_plain_name({name, length});
}

bool is_sound(const hlx_auth_session &wanted) {
    /* A session without a user name is one that a program made for itself. */
    if (wanted.user[0] != '\0' && !fits(wanted.user)) return false;
    if (wanted.flags < 0 || wanted.group_count < 0 || wanted.group_count > HLX_AUTH_GROUPS_MAX)
        return false;
    return std::all_of(wanted.groups, wanted.groups + wanted.group_count,
                       [](const char *group) { return fits(group); });
}

/* A fresh identifier; false when the random source fails. */
bool make_sid(char *sid) {
    std::array<unsigned char, HLX_AUTH_SID_SIZE / 2> bytes;
    if (getrandom(bytes.data(), bytes.size(), 0) != static_cast<ssize_t>(bytes.size()))
        return false;
    hexencode(bytes.data(), sid, bytes.size(), HLX_AUTH_SID_SIZE + 1);
    return true;
}

void fill(session_place &place, const hlx_auth_session &wanted, const char *sid) {
    memcpy(place.sid, sid, sizeof place.sid);
    memcpy(place.user, wanted.user, sizeof place.user);
    memcpy(place.groups, wanted.groups, sizeof place.groups);
    place.group_count = static_cast<uint32_t>(wanted.group_count);
    place.flags = wanted.flags;
    place.created = time(nullptr);
    place.expires = 0;
    if (wanted.lifetime >= 0 &&
        __builtin_add_overflow(hlx_auth::boot_seconds(), wanted.lifetime, &place.expires))
        place.expires = INT64_MAX;
    std::atomic_thread_fence(std::memory_order_release);
    place.state = place_state::live;
}

}  // namespace

int hlx_auth_session_sid_check(const char *sid) {
    if (sid == nullptr || *sid == '\0') return HLX_AUTH_SID_NULL;
    return guarded([&]() -> int {
        const std::string normal = sid_of(sid);
        if (normal.empty()) return HLX_AUTH_SID_EINVAL;
        return locked_store{k_check_patience_ms}.find(normal) != nullptr ? HLX_AUTH_SID_VALID
                                                                         : HLX_AUTH_SID_ERANGE;
    });
}

int hlx_auth_session_sid_data(const char *sid, sid_data *data) {
    return guarded([&] {
        const std::string normal = sid_of(sid);
        if (normal.empty() || data == nullptr) return fail(EINVAL);
        memcpy(data->sid, normal.data(), normal.size());
        data->sid_sz = static_cast<int>(normal.size());
        return 0;
    });
}

int hlx_auth_session_get_attr_flag(const sid_data *data) {
    if (data == nullptr || data->sid_sz != HLX_AUTH_SID_SIZE) return fail(EINVAL);
    return guarded([&] {
        locked_store store;
        const session_place *place = store.find({data->sid, sizeof data->sid});
        return place != nullptr ? place->flags : fail(ENOENT);
    });
}

int hlx_auth_session_create(const hlx_auth_session *wanted, char *sid) {
    if (wanted == nullptr || sid == nullptr || !is_sound(*wanted)) return fail(EINVAL);
    return guarded([&] {
        if (!make_sid(sid)) return fail(EIO);
        locked_store store;
        session_place *place = store.take_free(sid);
        if (place == nullptr) return fail(ENOSPC);
        place->order = ++(*store).created_sessions;
        fill(*place, *wanted, sid);
        return 0;
    });
}

int hlx_auth_session_revoke(const char *sid) {
    return guarded([&] {
        locked_store store;
        session_place *place = store.find(sid_of(sid));
        if (place == nullptr) return fail(ENOENT);
        place->state = place_state::free;
        return 0;
    });
}

int hlx_auth_session_get(const char *sid, hlx_auth_session *session) {
    return guarded([&] {
        locked_store store;
        const session_place *place = store.find(sid_of(sid));
        if (place == nullptr) return fail(ENOENT);
        *session = hlx_auth::copy_of(*place);
        return 0;
    });
}

hlx_auth_session *hlx_auth_session_list(size_t *count) {
    hlx_auth_session *list = nullptr;
    *count = 0;
    errno = 0;
    guarded([&] {
        locked_store store;
        std::vector<const session_place *> live;
        for (const session_place &place : (*store).places)
            if (is_live(place)) live.push_back(&place);
        std::sort(live.begin(), live.end(), [](auto *a, auto *b) { return a->order < b->order; });
        if (live.empty()) return 0;
        list = static_cast<hlx_auth_session *>(calloc(live.size(), sizeof *list));
        if (list == nullptr) return -1;
        for (const session_place *place : live)
            list[(*count)++] = hlx_auth::copy_of(*place);
        return 0;
    });
    return list;
}

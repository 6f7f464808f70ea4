#ifndef HLXAUTH_STORE_H
#define HLXAUTH_STORE_H

#include <pthread.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "hlxauth/hlxauth.h"

/* The table in shared memory, and the way to it.
 *
 * A table is a header with a process-shared robust mutex and a fixed number of places. A place is
 * free, being written, or live; it becomes live by the last store of the one who writes it. When a
 * program dies with the lock held, the next one to lock it finds the places that were being written
 * and frees them.
 *
 * Nothing in the table is trusted. One whose owner, mode, size, mark or kind of lock is wrong is
 * refused, a lock that is not given back is waited for a second and then only tried until it was to
 * be had once, and a place that no program of ours can have written counts as free. */

namespace hlx_auth {

enum class place_state : uint32_t { free = 0, writing = 1, live = 2 };

struct session_place {
    place_state state;
    uint32_t generation; /* counted up with every session that gets the place */
    char sid[HLX_AUTH_SID_SIZE];
    char user[HLX_AUTH_USER_SIZE];
    char groups[HLX_AUTH_GROUPS_MAX][HLX_AUTH_USER_SIZE];
    uint32_t group_count;
    int32_t flags;
    int64_t created; /* seconds since the epoch, */
    int64_t expires; /* seconds since the machine started; 0 for never */
    uint64_t order;  /* of creation */
    uint32_t acl_valid;
    char acl[HLX_AUTH_ACL_SIZE];
};

struct session_store {
    uint32_t mark;
    uint32_t size; /* bytes of the whole table */
    uint64_t created_sessions;
    pthread_mutex_t mutex;
    std::array<session_place, HLX_AUTH_SESSIONS_MAX> places;
};

/* How long other programs are waited for. */
constexpr long k_patience_ms = 1000;

/* Holds the table's lock; one at a time in a process. The table itself stays mapped. Throws
 * session_error (hlxauth/session.h) when it cannot be had; errno then carries the cause, ETIMEDOUT
 * when another program holds the lock. */
class locked_store {
  public:
    explicit locked_store(long patience_ms = k_patience_ms);
    locked_store(const locked_store &) = delete;
    locked_store &operator=(const locked_store &) = delete;
    ~locked_store();

    session_store &operator*() const { return *store_; }

    /* The live session of that identifier, or null. */
    session_place *find(std::string_view sid) const;

    /* The number of a place, which changes with every session that gets it; and the place of a
     * number, null when it holds no live session or another one by now. */
    int id_of(const session_place &place) const;
    session_place *by_id(int id) const;

    /* A place for a session of that identifier, being written; null when there is none. Sessions
     * that have ended give way. */
    session_place *take_free(std::string_view sid) const;

  private:
    session_store *store_ = nullptr;
};

/* Whether the place holds a session that has not ended, undamaged. */
bool is_live(const session_place &place);

/* A copy of what the place holds. */
hlx_auth_session copy_of(const session_place &place);

/* Whole seconds since the machine started, which setting the clock does not move. */
int64_t boot_seconds();

/* Whether the name holds no control characters. */
bool is_plain_name(std::string_view name);

/* The identifier in lower case; empty for a text that is none. */
std::string normal_sid(std::string_view text);

}  // namespace hlx_auth

#endif

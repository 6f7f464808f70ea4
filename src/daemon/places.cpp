#include "daemon/places.h"

#include <sys/socket.h>

#include <algorithm>
#include <cstring>

#include "daemon/connection.h"
#include "daemon/descriptors.h"
#include "daemon/farewell.h"
#include "daemon/listen.h"
#include "daemon/loop.h"
#include "llconf/nodes.h"
#include "session/limits.h"
#include "session/session.h"
#include "ucfgd/owners.h"

namespace {

constexpr int64_t k_milliseconds = 1000;

loop_timer g_login_timer;

bool is_connected(const ccd_session *session) {
    return session->fdcb_in != nullptr;
}

bool is_of(const ccd_session *session, const char *listener) {
    return session->listenname && strcmp(session->listenname, listener) == 0;
}

bool is_of(const ccd_session *session, uid_t user) {
    return session->ucred && session->ucred->uid == user;
}

bool never_logged_in(const ccd_session *session) {
    return is_connected(session) && !session->username;
}

bool may_be_dropped(const ccd_session *session) {
    return never_logged_in(session) ||
           (is_connected(session) && session->state == k_session_logout);
}

template <class predicate>
long count_connections(predicate counts) {
    long count = 0;
    for (const ccd_session *session = g_session_list; session; session = session->next)
        if (is_connected(session) && counts(session)) count++;
    return count;
}

template <class action>
void for_each_listener(action act) {
    for (const fd_callback *cb = g_cb_plain; cb; cb = cb->next_marked)
        if (cb->cb == listen_callback && cb->state == FD_CALLBACK_ACTIVE && cb->data)
            act(cnfnode_getname(static_cast<const cnfnode *>(cb->data)));
}

/* Whatever else is registered needs its descriptor, too. */
long capacity() {
    long descriptors = descriptors_most() - k_descriptors_reserved;
    for (const fd_callback *cb = g_cb_plain; cb; cb = cb->next_marked)
        descriptors--;
    return std::clamp(descriptors, 1L, limit_value(k_limit_connections));
}

long count_listeners() {
    long listeners = 0;
    for_each_listener([&](const char *) { listeners++; });
    return listeners;
}

/* What is kept for each listener, as far as it goes round. */
long reserve() {
    return std::min(limit_value(k_limit_connections_reserved),
                    capacity() / std::max(count_listeners(), 1L));
}

long connections_of(const char *listener) {
    return count_connections([=](const ccd_session *s) { return is_of(s, listener); });
}

bool has_place(const char *listener) {
    const long each = reserve();
    const long most = capacity();
    const long leaving = farewell_count();
    /* Nobody is counted as long as it cannot matter. */
    if (g_session_count + leaving + each * count_listeners() < most) return true;
    long taken = count_connections([](const ccd_session *) { return true; }) + leaving;
    for_each_listener([&](const char *name) {
        if (strcmp(name, listener) != 0) taken += std::max(each - connections_of(name), 0L);
    });
    return taken < most;
}

/* The list has the order of the connections. */
template <class predicate>
bool drop_oldest(limit_id limit, predicate fits) {
    for (ccd_session *session = g_session_list; session; session = session->next) {
        if (!may_be_dropped(session) || !fits(session)) continue;
        limit_met(limit, "closing an idle connection on listen/%s", session->listenname);
        session_discard(session);
        return true;
    }
    return false;
}

bool user_may_come(const char *listener, uid_t user) {
    if (user == k_no_user || g_session_count < limit_value(k_limit_connections_per_user))
        return true;
    const auto is_theirs = [=](const ccd_session *s) { return is_of(s, user); };
    while (count_connections(is_theirs) >= limit_value(k_limit_connections_per_user)) {
        if (drop_oldest(k_limit_connections_per_user, is_theirs)) continue;
        limit_met(k_limit_connections_per_user, "closing a new one of uid %u on listen/%s",
                  static_cast<unsigned int>(user), listener);
        return false;
    }
    return true;
}

/* One that leaves makes room only where its listener has more than its reserve. */
bool listener_has_room(const char *listener) {
    while (!has_place(listener)) {
        if (farewell_drop_oldest()) continue;
        const long each = reserve();
        if (drop_oldest(k_limit_connections, [=](const ccd_session *s) {
                return is_of(s, listener) || connections_of(s->listenname) > each;
            }))
            continue;
        const bool is_short = capacity() < limit_value(k_limit_connections);
        limit_met(k_limit_connections, "closing a new one on listen/%s%s", listener,
                  is_short ? ", for want of descriptors" : "");
        return false;
    }
    return true;
}

void drop_late(void *) {
    const int64_t allowed = limit_value(k_limit_login_time) * k_milliseconds;
    for (ccd_session *session : removal_safe(g_session_list)) {
        if (!never_logged_in(session)) continue;
        const int64_t left = session->connected + allowed - loop_now();
        if (left > 0) {
            loop_set_timer(&g_login_timer, static_cast<long>(left), drop_late, nullptr);
            return;
        }
        limit_met(k_limit_login_time, "closing a connection on listen/%s that never logged in",
                  session->listenname);
        session_discard(session);
    }
}

}  // namespace

bool place_for(const char *listener, uid_t user) {
    return user_may_come(listener, user) && listener_has_room(listener);
}

void watch_for_login() {
    if (g_login_timer.due == 0)
        loop_set_timer(&g_login_timer, limit_value(k_limit_login_time) * k_milliseconds, drop_late,
                       nullptr);
}

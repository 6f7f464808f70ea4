#include "session/login_gate.h"

#include <arpa/inet.h>
#include <libdaemon/dlog.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdio>

#include "session/input.h"
#include "session/limits.h"
#include "session/login.h"
#include "session/turns.h"
#include "tavevent/tavevent.h"
#include "ucfgd/strlcpy.h"

namespace {

constexpr int64_t k_milliseconds = 1000;
constexpr int64_t k_window_ms = 60 * k_milliseconds;
constexpr size_t k_peers = 64;
constexpr size_t k_user_size = 64;

/* Who is at the other end. */
struct peer_key {
    enum class kind : uint8_t { unknown, user, address } what = kind::unknown;
    uint32_t number = 0;
    bool operator==(const peer_key &) const = default;
};

/* A peer that was refused. */
struct peer {
    peer_key key;
    int64_t due = 0;          /* when it may try again, and */
    int64_t window_end = 0;   /* when its refusals are told one by one again; times of loop_now */
    long told = 0;            /* in the window */
    unsigned long untold = 0; /* only counted, the last one for: */
    char user[k_user_size] = "";
};

std::array<peer, k_peers> g_peers;
unsigned long g_last_ticket = 0;
bool g_tried = false; /* in this round */
bool g_ready = false; /* somebody waits whose time has come */
bool g_waiting = false;
const ccd_session *g_granted = nullptr; /* by the sweep */
loop_timer g_wake;
loop_timer g_tell;

peer_key key_of(const ccd_session *session) {
    sockaddr_in address{};
    socklen_t size = sizeof address;
    if (session->fdcb_in &&
        getpeername(session->fdcb_in->fd, reinterpret_cast<sockaddr *>(&address), &size) == 0 &&
        address.sin_family == AF_INET) {
        uint32_t number = ntohl(address.sin_addr.s_addr);
        /* The machine itself has millions of addresses to choose from. */
        if (number >> 24 == IN_LOOPBACKNET) number = INADDR_LOOPBACK;
        return {peer_key::kind::address, number};
    }
    if (session->ucred) return {peer_key::kind::user, session->ucred->uid};
    return {};
}

peer *find_peer(const peer_key &key) {
    for (peer &known : g_peers)
        if (known.window_end != 0 && known.key == key) return &known;
    return nullptr;
}

int64_t due_of(const ccd_session *session) {
    const peer *known = find_peer(key_of(session));
    return known ? known->due : 0;
}

void tell(peer &known) {
    if (known.untold == 0) return;
    const auto count = static_cast<int>(std::min<unsigned long>(known.untold, INT32_MAX));
    daemon_log(LOG_NOTICE, "auth for user %s failed, repeated %d times", known.user, count);
    writeevt(TAVEVENT_LOGIN_FAILED, "si", known.user, count);
    known.untold = 0;
}

/* The peer's record, begun anew when its minute is over; where all are taken, that of who has
 * waited longest for a reason to be remembered. */
peer &record_of(const ccd_session *session) {
    const int64_t now = loop_now();
    const peer_key key = key_of(session);
    peer *known = find_peer(key);
    if (!known) {
        known = std::min_element(g_peers.begin(), g_peers.end(), [](const peer &a, const peer &b) {
            return a.window_end < b.window_end;
        });
        tell(*known);
        *known = peer{};
    }
    if (known->window_end <= now) {
        tell(*known);
        known->key = key;
        known->window_end = now + k_window_ms;
        known->told = 0;
    }
    return *known;
}

void tell_due(void * /*data*/) {
    const int64_t now = loop_now();
    int64_t next = 0;
    for (peer &known : g_peers) {
        if (known.untold == 0) continue;
        if (known.window_end <= now)
            tell(known);
        else if (next == 0 || known.window_end < next)
            next = known.window_end;
    }
    if (next != 0) loop_set_timer(&g_tell, static_cast<long>(next - now), tell_due, nullptr);
}

void wake(void * /*data*/) {
    /* The sweep that follows does the work. */
}

/* The session that has waited longest of those whose time has come, or null; *next is the time of
 * the others' first, 0 for none. */
ccd_session *next_in_line(int64_t now, int64_t &next) {
    ccd_session *found = nullptr;
    next = 0;
    g_waiting = false;
    for (ccd_session *session = g_session_list; session; session = session->next) {
        if (session->login_ticket == 0 || !session->inbuf || session->discarded) continue;
        g_waiting = true;
        const int64_t due = due_of(session);
        if (due > now)
            next = next == 0 ? due : std::min(next, due);
        else if (!found || session->login_ticket < found->login_ticket)
            found = session;
    }
    return found;
}

}  // namespace

int login_gate_pass(ccd_session *session) {
    if (session == g_granted) {
        g_granted = nullptr;
        return 1;
    }
    if (!g_tried && !g_ready && due_of(session) <= loop_now()) {
        g_tried = true;
        return 1;
    }
    session->login_ticket = ++g_last_ticket;
    g_waiting = true;
    /* The gate's own sweep of this round may be over already. */
    loop_work_left();
    return 0;
}

int login_gate_is_quiet(const ccd_session *session) {
    const peer *known = find_peer(key_of(session));
    return known && known->window_end > loop_now() &&
           known->told >= limit_value(k_limit_login_refusals);
}

void login_gate_refuse(ccd_session *session) {
    const long delay = limit_value(k_limit_login_delay);
    peer &known = record_of(session);
    known.due = loop_now() + delay * k_milliseconds;
    if (known.told >= limit_value(k_limit_login_refusals))
        limit_met(k_limit_login_delay, "log-ins of %s %u are refused again and again",
                  known.key.what == peer_key::kind::address ? "address" : "uid", known.key.number);
    if (++session->refusals < limit_value(k_limit_login_refusals)) return;
    limit_met(k_limit_login_refusals, "closing a connection on listen/%s",
              session->listenname ? session->listenname : "");
    session_terminate_with_reason(session, k_reason_logout);
}

void login_gate_report(const ccd_session *session, const char *user) {
    peer &known = record_of(session);
    if (known.told < limit_value(k_limit_login_refusals)) {
        known.told++;
        daemon_log(LOG_NOTICE, "auth for user %s failed", user);
        writeevt(TAVEVENT_LOGIN_FAILED, "s", user);
        return;
    }
    known.untold++;
    strlcpy(known.user, user, sizeof known.user);
    if (g_tell.due == 0) tell_due(nullptr);
}

void login_gate_sweep(void) {
    if (g_waiting && !loop_stopping()) {
        const int64_t now = loop_now();
        int64_t next = 0;
        ccd_session *session = next_in_line(now, next);
        if (session && !g_tried) {
            g_tried = true;
            session->login_ticket = 0;
            g_granted = session;
            turn_give(session);
            g_granted = nullptr;
            session = next_in_line(now, next);
        }
        g_ready = session != nullptr;
        if (g_ready)
            loop_work_left();
        else if (next != 0)
            loop_set_timer(&g_wake, static_cast<long>(next - now), wake, nullptr);
    } else {
        g_ready = false;
    }
    g_tried = false;
}

void login_gate_finish(void) {
    for (peer &known : g_peers)
        tell(known);
    loop_clear_timer(&g_tell);
    loop_clear_timer(&g_wake);
}

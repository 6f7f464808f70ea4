#include "session/turns.h"

#include <ctime>

#include "backend/command.h"
#include "session/input.h"

namespace {

using duration = std::chrono::nanoseconds;

/* Long enough for any burst of ordinary requests. */
constexpr duration k_turn = std::chrono::milliseconds{10};
constexpr duration k_round = std::chrono::milliseconds{20};

/* It is read for every line, so it is the clock that only counts the kernel's ticks: one of these
 * is no more than a turn, and reading a finer one takes a tenth of a short request. */
duration turn_clock() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::chrono::seconds{now.tv_sec} + duration{now.tv_nsec};
}

constexpr long k_await_ms = 1000;

/* For the loop to come back to who has waited long enough. */
loop_timer g_waited{};

/* What the turns of this round have taken; the sweep counts its own anew. */
duration g_used{};

bool can_go_on(const ccd_session *session) {
    return session->stalled && !turn_awaits_commands(session) && !session->discarded &&
           session->inbuf && (session->flags & k_session_locked) == 0 &&
           databuf_pending(session->outbuf) < k_session_output_limit;
}

ccd_session *longest_waiting() {
    ccd_session *found = nullptr;
    for (ccd_session *session = g_session_list; session; session = session->next)
        if (can_go_on(session) && (!found || session->queue < found->queue)) found = session;
    return found;
}

/* Of the light ones. Those before it had the same chance when they were the newest. */
ccd_session *newest_light() {
    ccd_session *found = nullptr;
    for (ccd_session *session = g_session_list; session; session = session->next)
        if (can_go_on(session) && !session->heavy && (!found || session->queue > found->queue))
            found = session;
    return found;
}

bool any_stalled() {
    for (const ccd_session *session = g_session_list; session; session = session->next)
        if (session->stalled) return true;
    return false;
}

}  // namespace

bool turn_awaits_commands(const ccd_session *session) {
    return session->awaits != 0 && command_ahead::running() != 0 && loop_now() < session->awaits;
}

void turn_await_commands(ccd_session *session) {
    session->awaits = loop_now() + k_await_ms;
    loop_set_timer(
        &g_waited, k_await_ms, [](void *) { g_session_sweep_needed = 1; }, nullptr);
}

session_turn::session_turn(ccd_session *session) : session_(session), begin_(turn_clock()) {}

session_turn::~session_turn() {
    const duration taken = turn_clock() - begin_;
    session_->heavy = taken > k_turn;
    g_used += taken;
}

bool session_turn::is_over() const {
    return turn_clock() - begin_ > k_turn;
}

bool turn_must_wait(const ccd_session *session) {
    return session->heavy || g_used > k_round || loop_stopping();
}

/* From both ends of the line: whoever comes now is not put behind a crowd of long requests, and
 * whoever waits is always among those who are served next. */
void turn_round(void) {
    g_used = {};
    if (loop_stopping()) return;
    while (longest_waiting() && g_used <= k_round) {
        if (ccd_session *light = newest_light()) turn_give(light);
        if (ccd_session *oldest = longest_waiting()) turn_give(oldest);
    }
    if (longest_waiting()) loop_work_left();
    if (any_stalled()) g_session_sweep_needed = 1;
}

/* The reply leaves at once, except a terminated session's, which goes with the write. */
void turn_give(ccd_session *session) {
    session_take_turn(session);
    fd_callback *out = session->fdcb_out;
    if (out && out->type == FD_CALLBACK_WRITE && session->state != k_session_logout)
        out->cb(out->fd, session);
}

void turn_end_round(void) {
    g_used = {};
}

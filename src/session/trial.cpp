#include "session/trial.h"

#include <libdaemon/dlog.h>
#include <syslog.h>
#include <time.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <string>

#include "archive/archive.h"
#include "archive/trials.h"
#include "backend/trial_end.h"
#include "daemon/loop.h"
#include "session/restore.h"
#include "tree/param_error.h"
#include "tree/param_ops.h"
#include "tree/trns.h"

namespace {

constexpr int64_t k_milliseconds = 1000;
constexpr long k_look_again_ms = 1000;

struct known_trial {
    long number = 0; /* of its newest commit; 0 while none runs */
    std::string user;
    int64_t end = 0; /* loop_now */
};

known_trial g_trial;
loop_timer g_timer;

int64_t left_now() {
    return std::max<int64_t>(g_trial.end - loop_now(), 0);
}

void time_is_over(void *) {
    trial_look();
    restore_next();
}

void look() {
    const std::vector<commit_record> commits = trial_commits();
    const int64_t left = trial_left();
    loop_clear_timer(&g_timer);
    g_trial = {};
    if (commits.empty() || left < 0) return;
    g_trial = {commits.back().number, commits.back().user, loop_now() + left};
    if (left == 0)
        restore_demand();
    else
        loop_set_timer(&g_timer, static_cast<long>(left), time_is_over, nullptr);
}

bool is_undone(long number) {
    commit_record record;
    return read_record(archive_folder(number), record) != 0 || record.state == commit_state::undone;
}

std::string time_text(int64_t milliseconds_ahead) {
    const time_t when = time(nullptr) + static_cast<time_t>(milliseconds_ahead / k_milliseconds);
    struct tm parts {};
    char text[32] = "";
    if (gmtime_r(&when, &parts)) strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S UTC", &parts);
    return text;
}

}  // namespace

void trial_look(void) try {
    if (archive_is_on()) look();
} catch (const std::bad_alloc &) {
    daemon_log(LOG_ERR, "out of memory; looking for a commit on trial again");
    loop_set_timer(&g_timer, k_look_again_ms, time_is_over, nullptr);
}

void trial_action_ended(void) try {
    const long number = g_trial.number;
    if (number == 0) return;
    trial_look();
    if (g_trial.number == number || !is_undone(number)) return;
    doubt_commands();
    trns_inc_ctx_serial(g_trns_ctx);
    ccd_revert(g_trns_ctx);
} catch (const std::bad_alloc &) {
    daemon_log(LOG_ERR, "out of memory; what a cancelled trial has changed is not read");
}

bool trial_refuses(const ccd_session *session) try {
    if (g_trial.number == 0) return false;
    const bool ordered = session->commit_trial > 0;
    if (!ordered && trns_isdirty_ctx(session->backend_ctx) == 0) return false;
    const int64_t left = left_now();
    const char *user = session->username ? session->username : "";
    if (ordered && left > 0 && g_trial.user == user) return false;
    if (left == 0) {
        const std::string number = std::to_string(g_trial.number);
        const std::string text = "the trial commit " + number + " is being undone";
        ccd_set_error((text + restore_trouble()).c_str(), "error.trial.undo");
        ccd_add_error_arg(number.c_str());
        return true;
    }
    ccd_set_error("commit conflict", "error.trial");
    ccd_add_error_arg(g_trial.user.c_str());
    ccd_add_error_arg(std::to_string((left + k_milliseconds - 1) / k_milliseconds).c_str());
    ccd_add_error_arg(time_text(left).c_str());
    return true;
} catch (const std::bad_alloc &) {
    return true;
}

bool trial_running(trial_view *view) {
    if (g_trial.number == 0) return false;
    *view = {g_trial.number, g_trial.user.c_str(), left_now()};
    return true;
}

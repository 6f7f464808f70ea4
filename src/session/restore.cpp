/* The child that puts files back.
 *
 * What it has to do it finds in the archive: each open commit, and a trial whose time is over. So
 * it may be killed at any time and begun again. When it fails, for want of space most likely, it is
 * begun again after a pause that grows; until then commits are refused, since what they would keep
 * as the old contents are those of a commit that never was. */

#include "session/restore.h"

#include <libdaemon/dlog.h>
#include <sys/wait.h>
#include <syslog.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

#include "archive/archive.h"
#include "archive/put_back.h"
#include "archive/trials.h"
#include "backend/trial_end.h"
#include "session/commit.h"
#include "session/limits.h"
#include "session/method_context.h"
#include "session/trial.h"
#include "tree/trns.h"
#include "ucfgd/owners.h"

namespace {

constexpr long k_milliseconds = 1000;
constexpr long k_lock_milliseconds = 5000;
constexpr long k_first_pause = 1000;
constexpr long k_longest_pause = 300'000;

using owned_job = owned<bgexec_ctx, destroy_bgexec_ctx>;

bool g_demanded = false;
long g_pause = 0; /* behind the last failure; 0 after a success */
loop_timer g_retry;

struct failure {
    int reason;
    time_t since;      /* of the first attempt that failed */
    int64_t next_time; /* loop_now */
};
failure g_failure; /* counts while g_pause does */

void try_again(void *) {
    g_demanded = true;
    restore_next();
}

void put_off(int reason) {
    if (g_pause == 0) g_failure.since = time(nullptr);
    g_pause = g_pause == 0 ? k_first_pause : std::min(2 * g_pause, k_longest_pause);
    daemon_log(LOG_ERR, "putting files back failed: %s; next try in %ld seconds", strerror(reason),
               g_pause / k_milliseconds);
    g_failure.reason = reason;
    g_failure.next_time = loop_now() + g_pause;
    loop_set_timer(&g_retry, g_pause, try_again, nullptr);
}

/* Ended, it is begun again like one that failed. */
void end_overdue(void *data) {
    auto *job = static_cast<bgexec_ctx *>(data);
    limit_met(k_limit_commit_time, "putting files back, process %ld, is ended",
              static_cast<long>(job->pid));
    bgexec_end(job, ETIME);
}

void cb_exit(bgexec_ctx *job, int status) {
    g_pause = WIFEXITED(status) && WEXITSTATUS(status) == 0 ? 0 : g_pause;
    if (!WIFEXITED(status)) {
        put_off(job->ended_for != 0 ? job->ended_for : EIO);
    } else if (WEXITSTATUS(status) != 0) {
        put_off(WEXITSTATUS(status));
    }
    doubt_commands();
    session_commit_end(job->session, job->id, job->answer);
}

/* Temporary files that somebody still writes, the child of a daemon that was killed perhaps, are no
 * leftovers. */
void remove_leftovers() {
    const archive_lock lock{k_lock_milliseconds};
    if (lock.held()) remove_all_leftovers();
}

[[noreturn]] void run() {
    const owned_context context{create_fe_context(nullptr, g_trns_ctx)};
    g_trns_fe_context = context.get();
    errno = 0;
    int result = archive_recover(k_lock_milliseconds);
    remove_leftovers();
    if (result == 0 && trial_left() == 0) result = end_trial();
    const int status = result == 0 ? 0 : errno;
    bgexit(result == 0 ? 0 : status <= 0 || status > 255 ? EIO : status);
}

bool start(ccd_session *session, const char *id, int answer) {
    loop_clear_timer(&g_retry);
    g_demanded = false;
    owned_job job{create_bgexec_writer(session, id, cb_exit)};
    errno = ENOMEM;
    const pid_t pid = job ? bgfork(nullptr, job->cb_out, job->cb_err) : -1;
    if (pid == 0) run();
    if (pid < 0) {
        put_off(errno);
        return false;
    }
    job->answer = answer;
    bgexec_ctx *started = job.release();
    bgexec_start(started, pid);
    loop_set_timer(&started->timer, limit_value(k_limit_commit_time) * k_milliseconds, end_overdue,
                   started);
    return true;
}

}  // namespace

void restore_begin(void) {
    if (restore_is_needed()) restore_demand();
    trial_look();
    restore_next();
}

bool restore_after(const bgexec_ctx *commit, int error) {
    return start(commit->session, commit->id, error);
}

void restore_demand(void) {
    if (g_pause == 0) g_demanded = true;
}

void restore_next(void) {
    if (g_demanded && !loop_stopping() && !bgexec_running_writer()) start(nullptr, "", 0);
}

const char *restore_trouble(void) {
    static char text[256];
    if (g_pause == 0) return "";
    struct tm parts {};
    char since[32] = "";
    if (gmtime_r(&g_failure.since, &parts))
        strftime(since, sizeof(since), "%Y-%m-%d %H:%M:%S UTC", &parts);
    const int64_t left = std::max<int64_t>(g_failure.next_time - loop_now(), 0);
    snprintf(text, sizeof(text), " since %s, which failed: %s; tried again in %lld seconds", since,
             strerror(g_failure.reason),
             static_cast<long long>((left + k_milliseconds - 1) / k_milliseconds));
    return text;
}

bool restore_is_needed(void) try {
    return archive_is_on() && archive_has_open();
} catch (const std::bad_alloc &) {
    return true;
}

bool restore_is_owed(void) {
    return g_pause != 0 && restore_is_needed();
}

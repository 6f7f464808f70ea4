/* COMMIT, and what a client may ask about its context: CURRENT, UPDATE, DIRTY, REVERT.
 *
 * A commit writes files and runs hooks, which takes time, so it happens in a child. The child does
 * the whole work on its copy of the daemon's memory; the daemon merges the same changes into its
 * own contexts, waits, and then reads the files again, but for those of which the child told that
 * it has written them (src/backend/prepared.cpp). While a child writes, no second one may: a second
 * COMMIT waits, locked, and by the time it is taken up its context is stale.
 *
 * A child that hangs, in a hook most likely, would make all later commits wait: when its time is
 * over it is ended with all that it has started. However a child ends, session_commit_cb_exit is
 * the one place that learns of it, and what it does about a failure is done before any other commit
 * can begin. Files that it has left half replaced are put back by a child of its own (restore.cpp)
 * before the client is answered.
 */

#include "session/commit.h"

#include <libdaemon/dlog.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "archive/archive.h"
#include "archive/trials.h"
#include "backend/ll_trns.h"
#include "daemon/crypto.h"
#include "session/bgexec.h"
#include "session/commit_log.h"
#include "session/commit_report.h"
#include "session/counters.h"
#include "session/limits.h"
#include "session/method_context.h"
#include "session/protocol.h"
#include "session/query.h"
#include "session/restore.h"
#include "session/trial.h"
#include "tree/param_error.h"
#include "tree/param_ops.h"
#include "ucfgd/owners.h"
#include "ucfgd/slist.h"
#include "ucfgd/uptime.h"

namespace {

constexpr long k_milliseconds = 1000;

using owned_job = owned<bgexec_ctx, destroy_bgexec_ctx>;

bgexec_ctx *first_waiting(void) {
    for (bgexec_ctx *job = g_bgexec_ctx_list; job; job = job->next) {
        if (job->writes && job->pid == 0) return job;
    }
    return nullptr;
}

const char *user_of(const bgexec_ctx *job) {
    return job->user ? job->user : "";
}

void end_overdue(void *data) {
    auto *job = static_cast<bgexec_ctx *>(data);
    limit_met(k_limit_commit_time, "commit of user '%s', process %ld, is ended", user_of(job),
              static_cast<long>(job->pid));
    bgexec_end(job, ETIME);
}

void log_waiting(const bgexec_ctx *waiting, const bgexec_ctx *running) {
    daemon_log(LOG_NOTICE,
               "commit of user '%s' waits for that of user '%s', process %ld, which has run for "
               "%ld seconds",
               user_of(waiting), user_of(running), static_cast<long>(running->pid),
               get_uptime() - running->started);
}

/* The child's end: what went wrong as an error number, which has one byte to pass through, and in
 * words for the client. */
[[noreturn]] void run_commit(ccd_session *session) {
    owned_context context = make_session_context(session);
    g_trns_fe_context = context.get();
    commit_log_look(session);
    commit_report_author(session);
    ccd_clear_error();
    llconf_use_tried();
    trns_submit_ctx(session->backend_ctx);
    errno = 0;
    const int result = ccd_commit(session->backend_ctx);
    const int status = result != 0 ? result : errno;
    if (status != 0) commit_report_leave();
    if (status == 0) commit_log_tell(session);
    /* The time of a trial begins when its services have been told. */
    if (status == 0 && archive_is_on() && session->commit_trial > 0)
        trial_extend(session->commit_trial);
    bgexit(status < 0 || status > 255 ? EIO : status);
}

/* The child's end where trying takes long: no more than that. */
[[noreturn]] void run_try(const ccd_session *session) {
    ccd_clear_error();
    const int status = llconf_try_long(session->backend_ctx);
    if (status != 0) commit_report_leave();
    bgexit(status < 0 || status > 255 ? EIO : status);
}

void cb_tried(bgexec_ctx *job, int status);

/* Forks the child of a job and merges the changes in the daemon, in this order: a fork that fails
 * changes nothing. What takes long to try is tried in a child of its own before. True when a child
 * runs; false when that was answered. */
bool start(owned_job &job, bool is_tried = false) {
    ccd_session *session = job->session;
    const bool tries = !is_tried && llconf_has_long_try(session->backend_ctx);
    if (tries) job->cb_exit = cb_tried;
    commit_report_begin();
    if (archive_is_on() || g_log_changes) load_crypto(); /* once here, or once in each child */
    errno = 0;
    const pid_t pid = bgfork(nullptr, job->cb_out, job->cb_err);
    if (pid == 0 && tries) run_try(session);
    if (pid == 0) run_commit(session);
    if (pid < 0) {
        session_writef(session, "%s ERR %s\n", job->id, strerror(errno));
        g_counters.refused_commits++;
        llconf_forget_tried();
        return false;
    }
    job->holds_edits = trns_isdirty_ctx(session->backend_ctx);
    if (!tries) trns_submit_ctx(session->backend_ctx);
    bgexec_ctx *started = job.release();
    bgexec_start(started, pid);
    loop_set_timer(&started->timer, limit_value(k_limit_commit_time) * k_milliseconds, end_overdue,
                   started);
    return true;
}

bool answer_if_stale(ccd_session *session, const char *id) {
    if (trns_check_ctx_serial(session->backend_ctx) == 0) return false;
    session_writef(session, "%s ERR commit conflict\n", id);
    return true;
}

/* Edits that no file can hold stay the session's, to be mended. */
bool answer_if_unwritable(ccd_session *session, const char *id) {
    ccd_clear_error();
    const int reason = llconf_try_ctx(session->backend_ctx);
    if (reason != 0) session_write_error(session, id, strerror(reason));
    return reason != 0;
}

/* A commit that must not begin: a trial runs, its context is stale, or the archive has something to
 * put back first. The trial comes first: a session that was there before it is stale because of it,
 * and is to learn until when it has to wait. One that waits will be stale, so its trees need no
 * try. */
bool answer_refusal(ccd_session *session, const char *id) {
    ccd_clear_error();
    if (!trial_refuses(session)) {
        if (answer_if_stale(session, id)) return true;
        if (!restore_is_owed())
            return !bgexec_running_writer() && answer_if_unwritable(session, id);
        char text[320];
        snprintf(text, sizeof text, "an interrupted commit is being put back%s", restore_trouble());
        ccd_set_error(text, "error.commit.restore");
    }
    session_write_error(session, id, "commit conflict");
    return true;
}

bool answer_if_refused(ccd_session *session, const char *id) {
    const bool refused = answer_refusal(session, id);
    if (refused) g_counters.refused_commits++;
    return refused;
}

int reply_ok(ccd_session *session, const char *id) {
    session_writef(session, "%s OK\n", id);
    return 0;
}

int reply_errno(ccd_session *session, const char *id, int error) {
    session_writef(session, "%s ERR %s\n", id, strerror(error));
    return 0;
}

/* The error number that a commit's child ended with. One that was killed has left the files in an
 * unknown state, which is no success. */
int error_of(const bgexec_ctx *job, int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    daemon_log(LOG_ERR, "commit of user '%s', process %ld, was ended by signal %d", user_of(job),
               static_cast<long>(job->pid), WTERMSIG(status));
    return job->ended_for != 0 ? job->ended_for : EIO;
}

/* Files that are put back afterwards, or because a trial has run out, are no commit; nor is one of
 * a session without edits, which writes nothing. */
void count_end(const bgexec_ctx *job, int error) {
    if (error != 0) {
        g_counters.failed_commits++;
    } else if (job->holds_edits) {
        g_counters.commits++;
        g_counters.last_commit = time(nullptr);
    }
}

void answer_error(ccd_session *session, const char *id, int error, bool in_words) {
    if (commit_report_take() && in_words) {
        session_write_error(session, id, strerror(error));
    } else {
        reply_errno(session, id, error);
    }
    ccd_clear_error();
}

/* Trees that can be written are committed; the edits of others stay the session's. */
void cb_tried(bgexec_ctx *job, int status) {
    ccd_session *session = job->session;
    if (!session) return;
    const int error = error_of(job, status);
    owned_job commit;
    if (error != 0) {
        answer_error(session, job->id, error, true);
    } else if (!answer_if_stale(session, job->id)) {
        commit.reset(create_bgexec_writer(session, job->id, session_commit_cb_exit));
        if (!commit) reply_errno(session, job->id, ENOMEM);
    }
    if (!commit) g_counters.refused_commits++;
    if (!commit || !start(commit, true)) bgexec_unlock(session);
}

}  // namespace

int session_process_commit(ccd_session *session, const char *id, const char *) {
    if (session_check_and_barf_perms(session, id, k_perm_write)) return 0;
    if (answer_if_refused(session, id)) return 0;
    owned_job job{create_bgexec_writer(session, id, session_commit_cb_exit)};
    if (!job) return reply_errno(session, id, ENOMEM);
    if (const bgexec_ctx *running = bgexec_running_writer()) {
        log_waiting(job.get(), running);
        bgexec_start(job.release(), 0);
    } else {
        start(job);
    }
    return 0;
}

void session_commit_next(void) {
    while (!bgexec_running_writer()) {
        owned_job job{first_waiting()};
        if (!job) return;
        g_bgexec_ctx_list = slist_unlink(g_bgexec_ctx_list, job.get());
        job->next = nullptr;
        ccd_session *session = job->session;
        if (!session) continue;
        if (answer_if_refused(session, job->id) || !start(job)) bgexec_unlock(session);
    }
}

void session_commit_cb_exit(bgexec_ctx *job, int status) {
    const int error = error_of(job, status);
    count_end(job, error);
    /* A child that was killed has left temporary files at the least. */
    const bool killed = archive_is_on() && !WIFEXITED(status);
    if (error != 0 && (killed || restore_is_needed()) && restore_after(job, error)) return;
    session_commit_end(job->session, job->id, error);
}

void session_commit_end(ccd_session *session, const char *id, int error) {
    trial_look();
    trns_ctx *ctx = session ? session->backend_ctx : g_trns_ctx;
    trns_inc_ctx_serial(ctx);
    ccd_revert(ctx);
    llconf_forget_tried();
    if (!session) return;
    if (error == 0) {
        reply_ok(session, id);
        session_forget_commit_order(session);
    } else {
        answer_error(session, id, error, archive_is_on() || error == ESTALE || error == ECANCELED);
    }
    bgexec_unlock(session);
}

int session_process_current(ccd_session *session, const char *id, const char *) {
    if (session_check_and_barf_perms(session, id, k_perm_read)) return 0;
    return answer_if_stale(session, id) ? 0 : reply_ok(session, id);
}

int session_process_update(ccd_session *session, const char *id, const char *) {
    if (session_check_and_barf_perms(session, id, k_perm_read)) return 0;
    if (trns_check_ctx_serial(session->backend_ctx) == 0) return reply_ok(session, id);
    if (trns_isdirty_ctx(session->backend_ctx) != 0) {
        session_writef(session, "%s ERR session is dirty and not current\n", id);
        return 0;
    }
    errno = 0;
    if (ccd_revert(session->backend_ctx) != 0) return reply_errno(session, id, errno);
    session_writef(session, "%s OK updated\n", id);
    return 0;
}

int session_process_dirty(ccd_session *session, const char *id, const char *) {
    if (session_check_and_barf_perms(session, id, k_perm_read)) return 0;
    session_writef(session, "%s.dirty %d\n", id, trns_isdirty_ctx(session->backend_ctx));
    return reply_ok(session, id);
}

int session_process_revert(ccd_session *session, const char *id, const char *) {
    errno = 0;
    if (ccd_revert(session->backend_ctx) != 0) return reply_errno(session, id, errno);
    return reply_ok(session, id);
}

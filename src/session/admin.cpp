/* ADMIN: a management action in a child of its own, whose output the client sees as it comes. */

#include <libdaemon/dlog.h>
#include <sys/wait.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "daemon/trace.h"
#include "session/arguments.h"
#include "session/bgexec.h"
#include "session/limits.h"
#include "session/method_context.h"
#include "session/protocol.h"
#include "session/query.h"
#include "session/trial.h"
#include "tree/param_ops.h"
#include "ucfgd/owners.h"
#include "ucfgd/words.h"

namespace {

constexpr size_t k_admin_word_size = 2048;

using owned_job = owned<bgexec_ctx, destroy_bgexec_ctx>;
using owned_buffer = owned<databuf, destroy_databuf>;

owned_job make_job(ccd_session *session, const char *id) {
    owned_buffer out{create_databuf()};
    owned_buffer err{create_databuf()};
    if (!out || !err) return nullptr;
    owned_job job{create_bgexec_ctx(session, id, nullptr, out.get(), err.get(), bgexec_std_in,
                                    bgexec_std_out, bgexec_std_err, session_admin_cb_exit)};
    if (!job) return nullptr;
    (void)out.release();
    (void)err.release();
    /* Nothing is written there: that it closes is the message. */
    job->cb_in->type = FD_CALLBACK_PARKED;
    return job;
}

/* Actions are bounded, since they hold descriptors that commits need, too. */
bool has_room(const ccd_session *session) {
    const char *user = session->username ? session->username : "";
    if (bgexec_count_actions(nullptr) >= limit_value(k_limit_jobs)) {
        limit_met(k_limit_jobs, "action of user '%s' refused", user);
        return false;
    }
    if (bgexec_count_actions(user) >= limit_value(k_limit_jobs_per_user)) {
        limit_met(k_limit_jobs_per_user, "action of user '%s' refused", user);
        return false;
    }
    return true;
}

/* Only what the action itself writes may reach the pipes. */
void silence_daemon(void) {
    g_debug_level = 0;
    daemon_log_use = DAEMON_LOG_SYSLOG;
}

[[noreturn]] void run_action(const ccd_session *session, const char *path, const line *arguments) {
    const owned_context context = make_sid_context(session);
    silence_daemon();
    bgexec_keep_client_line();
    errno = 0;
    bgexit(ccd_param_admin(g_mgmttree, session->backend_ctx, path, arguments, context.get()));
}

void write_rest(const bgexec_ctx *job, databuf *buffer, int stream) {
    if (buffer) bgexec_write_output(job, buffer, stream, 1);
}

}  // namespace

int session_process_admin(ccd_session *session, const char *id, const char *args) {
    if (session_check_and_barf_perms(session, id, k_perm_exec)) return 0;
    char path[k_admin_word_size];
    if (dup_next_word_b(&args, path, sizeof(path)) == 0) {
        session_writef(session, "%s at least one argument required\n", id);
        return 0;
    }
    owned_lines arguments;
    if (!session_arg_list(args, k_admin_word_size, arguments)) {
        session_writef(session, "%s ERR %s\n", id, strerror(errno));
        return 0;
    }
    if (session_check_and_barf_perms_access(session, g_mgmttree, id, k_perm_exec, path,
                                            arguments.get())) {
        return 0;
    }
    const bool room = has_room(session);
    owned_job job = room ? make_job(session, id) : nullptr;
    errno = room ? ENOMEM : EAGAIN;
    const pid_t pid = job ? bgfork(job->cb_in, job->cb_out, job->cb_err) : -1;
    if (pid == 0) run_action(session, path, arguments.get());
    if (pid < 0) {
        session_writef(session, "%s ERR %s\n", id, strerror(errno));
        return 0;
    }
    bgexec_start(job.release(), pid);
    return 0;
}

void session_admin_cb_exit(bgexec_ctx *job, int status) {
    trial_action_ended();
    write_rest(job, job->obuf, 1);
    write_rest(job, job->ebuf, 2);
    if (!job->session) return;
    session_writef(job->session, WEXITSTATUS(status) != 0 ? "%s ERR\n" : "%s OK\n", job->id);
    bgexec_unlock(job->session);
}

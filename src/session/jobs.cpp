/* The records of background jobs, and what becomes of them when their children end. */

#include <sys/ioctl.h>
#include <sys/wait.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>

#include "session/bgexec.h"
#include "tree/param_error.h"
#include "ucfgd/owners.h"
#include "ucfgd/slist.h"
#include "ucfgd/uptime.h"

static_assert(offsetof(bgexec_ctx, next) == 0);

bgexec_ctx *g_bgexec_ctx_list = nullptr;

namespace {

/* Jobs whose children have been reaped and which wait for their completion function. */
bgexec_ctx *g_finished = nullptr;

bool make_registration(bgexec_ctx *job, fd_callback *&registration, int type,
                       int (*callback)(int fd, void *data)) {
    if (!callback) return true;
    registration = create_fd_callback(-1, type, callback, job);
    return registration != nullptr;
}

/* Without a descriptor a registration has never been the loop's. */
void drop_registration(fd_callback *&registration) {
    if (!registration) return;
    if (registration->fd < 0) {
        free(registration);
    } else {
        registration->state = FD_CALLBACK_FINISHED;
        registration->data = nullptr;
    }
    registration = nullptr;
}

/* What the child has written is in the pipe by now. What comes later is another process's, which
 * holds the other end and may write for ever. The handler may clear the registration. */
void drain(bgexec_ctx *job, fd_callback *bgexec_ctx::*which) {
    int left = 0;
    if (!(job->*which) || ioctl((job->*which)->fd, FIONREAD, &left) != 0) left = 0;
    for (; job->*which && left >= 0; left -= k_bgexec_turn_size)
        (job->*which)->cb((job->*which)->fd, job);
}

/* A child that somebody else has reaped counts as one that failed. */
bool has_ended(bgexec_ctx *job) {
    if (job->pid <= 0) return false;
    pid_t pid = 0;
    do {
        pid = waitpid(job->pid, &job->status, WNOHANG);
    } while (pid < 0 && errno == EINTR);
    if (pid < 0) job->status = EIO << 8;
    return pid != 0;
}

void complete(bgexec_ctx *job) {
    const owned<bgexec_ctx, destroy_bgexec_ctx> owner{job};
    if (job->cb_in) job->cb_in->cb(job->cb_in->fd, job);
    drain(job, &bgexec_ctx::cb_out);
    drain(job, &bgexec_ctx::cb_err);
    drop_registration(job->cb_in);
    drop_registration(job->cb_out);
    drop_registration(job->cb_err);
    ccd_clear_error();
    if (job->cb_exit) job->cb_exit(job, job->status);
    ccd_clear_error();
}

void move_session(bgexec_ctx *list, const ccd_session *from, ccd_session *to) {
    for (bgexec_ctx *job = list; job; job = job->next) {
        if (job->session == from) job->session = to;
    }
}

}  // namespace

bgexec_ctx *create_bgexec_ctx(ccd_session *session, const char *id, databuf *ibuf, databuf *obuf,
                              databuf *ebuf, int (*cb_in)(int fd, void *data),
                              int (*cb_out)(int fd, void *data), int (*cb_err)(int fd, void *data),
                              void (*cb_exit)(bgexec_ctx *job, int status)) {
    owned<bgexec_ctx, destroy_bgexec_ctx> job{
        static_cast<bgexec_ctx *>(calloc(1, sizeof(bgexec_ctx)))};
    if (!job) return nullptr;
    job->id = strdup(id);
    const char *user = session ? session->username : nullptr;
    job->user = user ? strdup(user) : nullptr;
    if (!job->id || (user && !job->user) ||
        !make_registration(job.get(), job->cb_in, FD_CALLBACK_WRITE, cb_in) ||
        !make_registration(job.get(), job->cb_out, FD_CALLBACK_READ, cb_out) ||
        !make_registration(job.get(), job->cb_err, FD_CALLBACK_READ, cb_err)) {
        return nullptr;
    }
    job->session = session;
    job->ibuf = ibuf;
    job->obuf = obuf;
    job->ebuf = ebuf;
    job->cb_exit = cb_exit;
    return job.release();
}

bgexec_ctx *create_bgexec_writer(ccd_session *session, const char *id,
                                 void (*cb_exit)(bgexec_ctx *job, int status)) {
    owned<databuf, destroy_databuf> out{create_databuf()};
    owned<databuf, destroy_databuf> err{create_databuf()};
    if (!out || !err) return nullptr;
    bgexec_ctx *job = create_bgexec_ctx(session, id, nullptr, out.get(), err.get(), nullptr,
                                        bgcommit_std_out, bgcommit_std_err, cb_exit);
    if (!job) return nullptr;
    (void)out.release();
    (void)err.release();
    job->writes = 1;
    return job;
}

void destroy_bgexec_ctx(bgexec_ctx *job) {
    if (!job) return;
    drop_registration(job->cb_in);
    drop_registration(job->cb_out);
    drop_registration(job->cb_err);
    destroy_databuf(job->ibuf);
    destroy_databuf(job->obuf);
    destroy_databuf(job->ebuf);
    loop_clear_timer(&job->timer);
    free(job->user);
    free(job->id);
    free(job);
}

void bgexec_start(bgexec_ctx *job, pid_t pid) {
    job->pid = pid;
    job->started = get_uptime();
    if (job->session) job->session->flags |= k_session_locked;
    g_bgexec_ctx_list = slist_append(g_bgexec_ctx_list, job);
}

bgexec_ctx *bgexec_running_writer(void) {
    for (bgexec_ctx *job = g_bgexec_ctx_list; job; job = job->next)
        if (job->writes && job->pid > 0) return job;
    return nullptr;
}

long bgexec_count_actions(const char *user) {
    long count = 0;
    for (const bgexec_ctx *job = g_bgexec_ctx_list; job; job = job->next) {
        if (job->writes) continue;
        if (!user || (job->user && strcmp(job->user, user) == 0)) count++;
    }
    return count;
}

void bgexec_end(bgexec_ctx *job, int error) {
    if (job->pid <= 0) return;
    job->ended_for = error;
    if (kill(-job->pid, SIGKILL) != 0) kill(job->pid, SIGKILL);
}

void bgexec_hang_up(ccd_session *session) {
    for (bgexec_ctx *job = g_bgexec_ctx_list; job; job = job->next) {
        if (job->session != session || !job->cb_in) continue;
        drop_registration(job->cb_in);
        loop_work_left();
    }
}

void bgexec_move_session(ccd_session *from, ccd_session *to) {
    move_session(g_bgexec_ctx_list, from, to);
    move_session(g_finished, from, to);
}

void bgexec_reap(void) {
    /* All of them leave the list before the first completion function runs, which may start other
     * jobs. */
    list_builder<bgexec_ctx> ended;
    for (bgexec_ctx *job : removal_safe(g_bgexec_ctx_list)) {
        if (!has_ended(job)) continue;
        g_bgexec_ctx_list = slist_unlink(g_bgexec_ctx_list, job);
        job->next = nullptr;
        ended.append(job);
    }
    g_finished = slist_append(g_finished, ended.release());
    while (g_finished) {
        bgexec_ctx *job = g_finished;
        g_finished = job->next;
        job->next = nullptr;
        complete(job);
    }
}

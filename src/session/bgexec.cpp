/* Background jobs: the fork, the pipes, and where the output goes. */

#include "session/bgexec.h"

#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "backend/command.h"
#include "daemon/log.h"
#include "daemon/signals.h"
#include "daemon/trace.h"
#include "session/child.h"
#include "session/protocol.h"
#include "ucfgd/owners.h"
#include "ucfgd/uptime.h"

namespace {

/* Reads of 1024 bytes that one event may take, so that others get their turn. */
constexpr int k_reads_a_turn = k_bgexec_turn_size / 1024;

/* A line of output begins with so much of the tag and its suffix, which must stay: without it, what
 * an action writes could pass for the final reply. */
constexpr int k_output_tag_size = 16;

bool g_output_held = false;

/* The end of a pipe: the loop closes the descriptor. */
int end_of_pipe(fd_callback *&registration) {
    if (registration) {
        registration->state = FD_CALLBACK_FINISHED;
        registration->data = nullptr;
        registration = nullptr;
    }
    return -1;
}

/* Reads what is there, at most one turn's share. False at the end of the pipe. */
bool read_turn(int fd, databuf *buffer) {
    for (int i = 0; i < k_reads_a_turn; ++i) {
        const int got = databuf_flushin(buffer, fd);
        if (got > 0) continue;
        return got < 0 && (errno == EAGAIN || errno == EINTR);
    }
    return true;
}

bool output_is_stuck(const ccd_session *session) {
    return session && session->outbuf && databuf_pending(session->outbuf) >= k_session_output_limit;
}

/* The output of ADMIN. A client that does not read makes its action wait, not the daemon grow. */
int collect(int fd, bgexec_ctx *job, databuf *buffer, fd_callback *&registration, int stream) {
    if (!job || !buffer || !registration) return -1;
    const bool more = read_turn(fd, buffer);
    if (databuf_pending(buffer) > 0) {
        bgexec_write_output(job, buffer, stream, 0);
    }
    if (!more) return end_of_pipe(registration);
    if (output_is_stuck(job->session)) {
        registration->type = FD_CALLBACK_PARKED;
        g_output_held = true;
    }
    return 0;
}

void discard(databuf *buffer) {
    databuf_remove(buffer, databuf_pending(buffer));
}

/* Complete lines go where the daemon's own go; what follows waits for its newline, unless it is
 * the last or too long for a line. */
void pass_on_log(databuf *buffer, bool last) {
    if ((daemon_log_use & DAEMON_LOG_STDERR) == 0) {
        discard(buffer);
        return;
    }
    const auto pending = static_cast<size_t>(databuf_pending(buffer));
    if (pending == 0) return;
    const char *begin = buffer->buf + buffer->start;
    const auto *newline = static_cast<const char *>(memrchr(begin, '\n', pending));
    size_t length = newline ? static_cast<size_t>(newline - begin) + 1 : 0;
    if (last || pending - length >= k_line_size) length = pending;
    log_text(2, begin, length);
    databuf_remove(buffer, static_cast<int>(length));
}

bool resume(fd_callback *registration) {
    if (!registration || registration->type != FD_CALLBACK_PARKED) return false;
    registration->type = FD_CALLBACK_READ;
    return true;
}

/* Hands a pipe's end to the loop. False when the loop refuses it. */
bool watch(fd_callback *registration, unique_fd &end) {
    if (!registration) {
        end.reset();
        return true;
    }
    registration->fd = end.get();
    if (fcntl(end.get(), F_SETFL, O_NONBLOCK) != 0 || loop_add_callback(registration) != 0) {
        registration->fd = -1;
        return false;
    }
    end.release();
    return true;
}

}  // namespace

void bgexec_unlock(ccd_session *session) {
    if (!session) return;
    session->flags &= ~k_session_locked;
    /* The lines that waited are requests of now: the session was not idle, however long it took. */
    request_time = get_uptime();
    session->last_action = request_time;
    session_stall(session);
}

void bgexec_resume_output(void) {
    if (!g_output_held) return;
    g_output_held = false;
    for (bgexec_ctx *job = g_bgexec_ctx_list; job; job = job->next) {
        if (output_is_stuck(job->session)) {
            g_output_held = true;
            continue;
        }
        resume(job->cb_out);
        resume(job->cb_err);
    }
}

pid_t bgfork(fd_callback *cb_in, fd_callback *cb_out, fd_callback *cb_err) {
    child_pipes pipes;
    if (loop_stopping()) {
        errno = ECANCELED;
        return -1;
    }
    if (!open_child_pipes(pipes)) return -1;
    fflush(stdout);
    fflush(stderr);
    all_signals_blocked blocked;
    const pid_t pid = fork();
    if (pid < 0) return -1;
    if (pid == 0) {
        setpgid(0, 0);
        signals_reset();
        signal(SIGPIPE, SIG_IGN);
        blocked.unblock_all();
        wire_child(pipes);
        commands_run_in_child();
        return 0;
    }
    setpgid(pid, pid); /* whoever of the two comes first: nobody can miss the group */
    signal(SIGPIPE, SIG_IGN);
    fd_callback *const registrations[] = {cb_in, cb_out, cb_err};
    for (size_t i = 0; i < 3; ++i) {
        /* Checked above; without its pipe the child's output is lost, not the child. */
        if (!watch(registrations[i], pipes.parent[i])) trace(0, "bgfork: pipe not watched\n");
    }
    return pid;
}

void bgexit(int status) {
    fflush(stdout);
    fflush(stderr);
    log_finish();
    _exit(status);
}

void bgexec_write_output(const bgexec_ctx *job, databuf *buffer, int stream, int final) {
    char id[k_output_tag_size];
    constexpr int k_room = k_output_tag_size - sizeof(".1");
    snprintf(id, sizeof(id), "%.*s.%d", k_room, job->id, stream);
    session_write_databuf(job->session, id, buffer, final);
}

int bgexec_std_in(int, void *) {
    trace(4, "%s\n", __func__);
    return 0;
}

int bgexec_std_out(int fd, void *data) {
    auto *job = static_cast<bgexec_ctx *>(data);
    return job ? collect(fd, job, job->obuf, job->cb_out, 1) : -1;
}

int bgexec_std_err(int fd, void *data) {
    auto *job = static_cast<bgexec_ctx *>(data);
    return job ? collect(fd, job, job->ebuf, job->cb_err, 2) : -1;
}

int bgcommit_std_out(int fd, void *data) {
    auto *job = static_cast<bgexec_ctx *>(data);
    if (!job || !job->obuf || !job->cb_out) return 0;
    const bool more = read_turn(fd, job->obuf);
    discard(job->obuf);
    if (!more) end_of_pipe(job->cb_out);
    return 0;
}

int bgcommit_std_err(int fd, void *data) {
    auto *job = static_cast<bgexec_ctx *>(data);
    if (!job || !job->ebuf || !job->cb_err) return 0;
    const bool more = read_turn(fd, job->ebuf);
    pass_on_log(job->ebuf, !more);
    if (!more) end_of_pipe(job->cb_err);
    return 0;
}

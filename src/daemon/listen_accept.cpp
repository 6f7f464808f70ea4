#include "daemon/listen_accept.h"

#include <errno.h>
#include <fcntl.h>
#include <libdaemon/daemon.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>

#include "daemon/connection.h"
#include "daemon/listen.h"
#include "daemon/log.h"
#include "daemon/loop.h"
#include "daemon/places.h"
#include "llconf/nodes.h"
#include "session/limits.h"
#include "session/session.h"
#include "ucfgd/owners.h"

namespace {

/* Descriptors above which no connection goes, for the pipes of child processes and for files. */
constexpr int k_highest_descriptor = FD_SETSIZE - 32;
constexpr long k_pause_milliseconds = 100;

bool g_paused = false;
bool g_pause_told = false; /* since the last connection */
loop_timer g_pause_timer;

/* The two sides of a connection, each closed by a registration of its own. */
struct connection_pair {
    unique_fd in;
    unique_fd out;
};

void park_listener(int fd) {
    for (fd_callback *cb = g_cb_list; cb; cb = cb->next)
        if (cb->cb == listen_callback && cb->fd == fd) cb->type = FD_CALLBACK_PARKED;
    g_paused = true;
}

void end_pause(void *) {
    listen_resume();
}

/* The waiting connection keeps the listener readable, so watching it would spin. It is looked at
 * again after a while, and when a connection has closed. */
void pause_listener(int fd, const char *name) {
    if (!g_pause_told)
        daemon_log(LOG_ERR, "accept: %s, listener '%s' pauses", strerror(errno), name);
    g_pause_told = true;
    park_listener(fd);
    loop_set_timer(&g_pause_timer, k_pause_milliseconds, end_pause, nullptr);
}

bool is_transient(int error) {
    return error == EAGAIN || error == EWOULDBLOCK || error == EINTR || error == ECONNABORTED;
}

/* Both sides, or neither. The place of the second one is taken before anything is accepted, so that
 * no connection is lost for want of it. */
connection_pair accept_pair(int listener, const char *name) {
    connection_pair pair;
    pair.out.reset(dup(listener));
    if (pair.out) pair.in.reset(accept(listener, nullptr, nullptr));
    if (!pair.in) {
        if (!is_transient(errno)) pause_listener(listener, name);
        return {};
    }
    set_reuse_address(pair.in.get());
    if (dup2(pair.in.get(), pair.out.get()) < 0) {
        daemon_log(LOG_ERR, "dup: %s", strerror(errno));
        return {};
    }
    set_close_on_exec(pair.in.get());
    set_close_on_exec(pair.out.get());
    return pair;
}

/* Registers one side. The loop owns the descriptor then; otherwise it stays with fd. */
fd_callback *register_side(unique_fd &fd, int type, int (*callback)(int, void *), void *data) {
    fd_callback *cb = create_fd_callback(fd.get(), type, callback, data);
    if (cb && loop_add_callback(cb) == 0) {
        fd.release();
        return cb;
    }
    std::free(cb);
    return nullptr;
}

using owned_ucred = std::unique_ptr<ucred, free_memory>;

/* Null when the socket tells nothing of its peer. */
owned_ucred peer_credentials(int fd) {
    owned_ucred credentials{static_cast<ucred *>(std::calloc(1, sizeof(ucred)))};
    socklen_t size = sizeof(ucred);
    if (credentials && getsockopt(fd, SOL_SOCKET, SO_PEERCRED, credentials.get(), &size) != 0)
        credentials.reset();
    return credentials;
}

void log_connection_accepted(int listener, const char *name) {
    log_protocol_f("X(%d): Accepted connection on listen/%s\n", listener, name);
}

/* A listed session for the pair; null when memory is exhausted, and then nothing is left of it. */
ccd_session *make_session(connection_pair pair, owned_ucred peer, const char *name) {
    owned<ccd_session, destroy_session> session{create_session()};
    if (!session) return nullptr;
    session->listenname = strdup(name);
    session->fdcb_out = register_side(pair.out, FD_CALLBACK_PARKED, write_callback, session.get());
    session->fdcb_in = session->fdcb_out && session->listenname
                           ? register_side(pair.in, FD_CALLBACK_READ, read_callback, session.get())
                           : nullptr;
    session->backend_ctx = g_trns_ctx;
    if (!session->fdcb_in) return nullptr;
    session->ucred = peer.release();
    session->connected = loop_now();
    add_session(session.get());
    return session.release();
}

}  // namespace

void set_close_on_exec(int fd) {
    if (fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) daemon_log(LOG_ERR, "fcntl: %s\n", strerror(errno));
}

void set_reuse_address(int fd) {
    int on = 1;
    if (setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof on) != 0)
        daemon_log(LOG_ERR, "setsockopt: %s\n", strerror(errno));
}

int listen_callback(int fd, void *data) {
    auto *listener = static_cast<const cnfnode *>(data);
    const char *name = listener ? cnfnode_getname(listener) : "";
    session_timeout_check_all(nullptr);
    connection_pair pair = accept_pair(fd, name);
    if (!pair.out) return -1;
    g_pause_told = false;
    owned_ucred peer = peer_credentials(pair.in.get());
    if (!place_for(name, peer ? peer->uid : k_no_user)) return -1;
    if (std::max(pair.in.get(), pair.out.get()) >= k_highest_descriptor) {
        limit_met(k_limit_connections, "closing a new one on listen/%s", name);
        return -1;
    }
    if (!make_session(std::move(pair), std::move(peer), name)) {
        daemon_log(LOG_ERR, "closing a new connection on listen/%s: %s", name, strerror(errno));
        return -1;
    }
    watch_for_login();
    log_connection_accepted(fd, name);
    return 0;
}

void listen_resume(void) {
    if (!g_paused) return;
    g_paused = false;
    for (fd_callback *cb = g_cb_list; cb; cb = cb->next)
        if (cb->cb == listen_callback) cb->type = FD_CALLBACK_READ;
}

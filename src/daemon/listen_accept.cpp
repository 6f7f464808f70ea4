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
#include "daemon/descriptors.h"
#include "daemon/listen.h"
#include "daemon/log.h"
#include "daemon/loop.h"
#include "daemon/places.h"
#include "llconf/nodes.h"
#include "session/limits.h"
#include "session/session.h"
#include "ucfgd/owners.h"

namespace {

/* Libraries that still use select can work with the first descriptors only: beyond so many of them
 * connections go above. */
constexpr int k_low_descriptors = FD_SETSIZE / 2;

constexpr long k_pause_milliseconds = 100;

bool g_paused = false;
bool g_pause_told = false; /* since the last connection */
loop_timer g_pause_timer;

void park_listener(int fd) {
    for (fd_callback *cb = g_cb_plain; cb; cb = cb->next_marked)
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

void leave_low_numbers(unique_fd &fd) {
    if (fd.get() < k_low_descriptors || fd.get() >= FD_SETSIZE) return;
    unique_fd higher{fcntl(fd.get(), F_DUPFD_CLOEXEC, FD_SETSIZE)};
    if (higher) fd = std::move(higher);
}

/* None when nothing can be accepted now. */
unique_fd accept_one(int listener, const char *name) {
    unique_fd fd{accept(listener, nullptr, nullptr)};
    if (!fd) {
        if (!is_transient(errno)) pause_listener(listener, name);
        return fd;
    }
    set_reuse_address(fd.get());
    set_close_on_exec(fd.get());
    leave_low_numbers(fd);
    return fd;
}

/* Registers one side. Null without memory. */
fd_callback *register_side(int fd, int type, int (*callback)(int, void *), void *data) {
    fd_callback *cb = create_fd_callback(fd, type, callback, data);
    if (cb && loop_add_quiet_callback(cb) == 0) return cb;
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

/* A listed session for the connection; null when memory is exhausted, and then nothing is left of
 * it. Both sides are registered for the one descriptor, which the loop closes with the last. */
ccd_session *make_session(unique_fd fd, owned_ucred peer, const char *name) {
    owned<ccd_session, destroy_session> session{create_session()};
    if (!session) return nullptr;
    session->listenname = strdup(name);
    session->backend_ctx = g_trns_ctx;
    if (!session->listenname) return nullptr;
    session->fdcb_out = register_side(fd.get(), FD_CALLBACK_PARKED, write_callback, session.get());
    if (!session->fdcb_out) return nullptr;
    session->fdcb_in = register_side(fd.release(), FD_CALLBACK_READ, read_callback, session.get());
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
    unique_fd connection = accept_one(fd, name);
    if (!connection) return -1;
    g_pause_told = false;
    owned_ucred peer = peer_credentials(connection.get());
    if (!place_for(name, peer ? peer->uid : k_no_user)) return -1;
    if (connection.get() >= descriptors_most() - k_descriptors_reserved) {
        limit_met(k_limit_connections, "closing a new one on listen/%s, for want of descriptors",
                  name);
        return -1;
    }
    if (!make_session(std::move(connection), std::move(peer), name)) {
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
    for (fd_callback *cb = g_cb_plain; cb; cb = cb->next_marked)
        if (cb->cb == listen_callback) cb->type = FD_CALLBACK_READ;
}

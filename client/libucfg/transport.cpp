/* Bytes between the handle and the daemon.
 *
 * libucfg has four layers, each in files of its own. This one opens sockets and moves bytes; it
 * knows lines, but nothing of what is in them. reply.cpp knows tags: it sends one request, reads up
 * to the line that ends it, and leaves late replies of requests that were given up behind.
 * words.cpp and path.cpp hold everything about escaping and about what the protocol can carry;
 * whatever the daemon would cut without a word is refused there, before a byte is sent.
 * session.cpp, query.cpp and change.cpp are the calls that users see, a few lines each.
 *
 * The socket never blocks: every wait is in wait_for(), which is also the only place that looks at
 * the clock and at the interrupt flag. While a request is sent, replies are read at the same time,
 * because the daemon stops reading once its output has piled up; a client that only wrote would
 * then wait for the daemon, and the daemon for the client, for ever.
 *
 * The peer is not trusted: a line and a reply have limits, and breaking one drops the connection,
 * because nobody can say where the next reply would begin.
 */
#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <chrono>
#include <cstdlib>

#include "conn.h"

namespace {

using namespace ucfg;
using clock_type = std::chrono::steady_clock;

constexpr const char *k_default_socket = "/dev/ucfgd";
constexpr const char *k_default_host = "127.0.0.1";
constexpr const char *k_default_port = "222";

/* Not from the environment where the program runs with more rights than its caller. */
const char *default_socket() {
    const char *named = secure_getenv("UCFGD_SOCKET");
    return named && *named ? named : k_default_socket;
}

int milliseconds_left(int timeout, clock_type::time_point start) {
    if (timeout < 0) return -1;
    auto gone =
        std::chrono::duration_cast<std::chrono::milliseconds>(clock_type::now() - start).count();
    return gone >= timeout ? 0 : timeout - static_cast<int>(gone);
}

int wait_for(ucfg_conn *conn, int fd, short events, int timeout, short &revents) {
    auto start = clock_type::now();
    for (;;) {
        if (conn->interrupt && *conn->interrupt)
            return fail(conn, k_ucfg_interrupted, "interrupted");
        pollfd watch{fd, events, 0};
        int result = poll(&watch, 1, milliseconds_left(timeout, start));
        if (result > 0) {
            revents = watch.revents;
            return k_ucfg_ok;
        }
        if (result == 0) return fail(conn, k_ucfg_timeout, "no answer in time");
        if (errno != EINTR) return fail(conn, k_ucfg_lost, strerror(errno));
    }
}

/* Reads once what is there. */
int fill(ucfg_conn *conn) {
    std::array<char, 16384> chunk;
    ssize_t got = recv(conn->fd.get(), chunk.data(), chunk.size(), MSG_DONTWAIT);
    if (got > 0) {
        if (conn->in_start > conn->inbuf.size() / 2) {
            conn->inbuf.erase(0, conn->in_start);
            conn->in_scanned -= conn->in_start;
            conn->in_start = 0;
        }
        conn->inbuf.append(chunk.data(), static_cast<size_t>(got));
        if (conn->inbuf.size() - conn->in_start <= conn->reply_limit + k_reply_line_limit)
            return k_ucfg_ok;
        drop(conn);
        return fail(conn, k_ucfg_protocol, "the daemon sends more than this client takes");
    }
    if (got < 0 && (errno == EAGAIN || errno == EINTR)) return k_ucfg_ok;
    std::string reason = got == 0 ? "the daemon closed the connection" : strerror(errno);
    drop(conn);
    return fail(conn, k_ucfg_lost, reason);
}

int adopt(ucfg_conn *conn, int fd) {
    int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) < 0) {
        int reason = errno;
        close(fd);
        return fail(conn, k_ucfg_unreachable, strerror(reason));
    }
    conn->fd.reset(fd);
    return k_ucfg_ok;
}

int unreachable(ucfg_conn *conn, const char *reason) {
    return fail(conn, k_ucfg_unreachable, "cannot connect to " + conn->peer + ": " + reason);
}

int open_local(ucfg_conn *conn) {
    drop(conn);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (conn->host.size() >= sizeof address.sun_path)
        return unreachable(conn, "the path is too long for a socket");
    memcpy(address.sun_path, conn->host.c_str(), conn->host.size() + 1);
    unique_fd fd{socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0)};
    if (!fd) return unreachable(conn, strerror(errno));
    /* A full backlog makes a non-blocking connect fail; a blocking one waits for its turn, and this
     * option bounds the wait. */
    if (conn->timeout >= 0) {
        timeval limit{conn->timeout / 1000, conn->timeout % 1000 * 1000 + 1};
        setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
    }
    while (connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address) < 0) {
        const int reason = errno;
        if (reason == EINTR && !(conn->interrupt && *conn->interrupt)) continue;
        const int code = unreachable(conn, strerror(reason));
        errno = reason;
        return code;
    }
    return adopt(conn, fd.release());
}

/* One address of the host; false leaves errno. */
bool try_address(ucfg_conn *conn, const addrinfo &address, unique_fd &fd) {
    fd.reset(socket(address.ai_family, address.ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK,
                    address.ai_protocol));
    if (!fd) return false;
    if (connect(fd.get(), address.ai_addr, address.ai_addrlen) == 0) return true;
    if (errno != EINPROGRESS) return false;
    short revents = 0;
    if (wait_for(conn, fd.get(), POLLOUT, conn->timeout, revents) != k_ucfg_ok) {
        errno = ETIMEDOUT;
        return false;
    }
    int problem = 0;
    socklen_t size = sizeof problem;
    if (getsockopt(fd.get(), SOL_SOCKET, SO_ERROR, &problem, &size) < 0) return false;
    errno = problem;
    return problem == 0;
}

/* The resolver takes any number modulo 65536. The name of a service begins with a letter, or has
 * one behind its digits. */
bool may_be_port(const std::string &text) {
    size_t digits = text.find_first_not_of("0123456789");
    if (text.empty() || (digits == 0 && !isalpha(static_cast<unsigned char>(text[0]))))
        return false;
    if (digits != std::string::npos) return true;
    unsigned long number = strtoul(text.c_str(), nullptr, 10);
    return number >= 1 && number <= 65535;
}

int open_tcp(ucfg_conn *conn) {
    drop(conn);
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    int result = getaddrinfo(conn->host.c_str(), conn->port.c_str(), &hints, &found);
    if (result != 0) return unreachable(conn, gai_strerror(result));
    owned<addrinfo, freeaddrinfo> addresses{found};
    unique_fd fd;
    for (addrinfo *a = found; a; a = a->ai_next)
        if (try_address(conn, *a, fd)) return adopt(conn, fd.release());
    return unreachable(conn, strerror(errno));
}

}  // namespace

namespace ucfg {

int fail(ucfg_conn *conn, int code, std::string text) {
    conn->text = std::move(text);
    return conn->code = code;
}

void drop(ucfg_conn *conn) {
    conn->fd.reset();
    conn->inbuf.clear();
    conn->inbuf.shrink_to_fit();
    conn->in_start = conn->in_scanned = 0;
}

int send_all(ucfg_conn *conn, std::string_view data) {
    while (!data.empty()) {
        if (!conn->fd) return fail(conn, k_ucfg_lost, "not connected");
        ssize_t sent = send(conn->fd.get(), data.data(), data.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            data.remove_prefix(static_cast<size_t>(sent));
            continue;
        }
        if (sent < 0 && errno != EAGAIN && errno != EINTR) {
            std::string reason = strerror(errno);
            drop(conn);
            return fail(conn, k_ucfg_lost, reason);
        }
        short revents = 0;
        int result = wait_for(conn, conn->fd.get(), POLLIN | POLLOUT, conn->timeout, revents);
        if (result != k_ucfg_ok) {
            /* Half a request is on its way: the next one would be read as its end. */
            drop(conn);
            return result;
        }
        if ((revents & ~POLLOUT) != 0) result = fill(conn);
        if (result != k_ucfg_ok) return result;
    }
    return k_ucfg_ok;
}

int read_line(ucfg_conn *conn, int timeout, std::string_view &line) {
    for (;;) {
        size_t end = conn->inbuf.find('\n', conn->in_scanned);
        size_t length = std::min(end, conn->inbuf.size()) - conn->in_start;
        if (length > k_reply_line_limit) {
            drop(conn);
            return fail(conn, k_ucfg_protocol, "a line of the daemon is too long");
        }
        if (end != std::string::npos) {
            line = std::string_view{conn->inbuf}.substr(conn->in_start, length);
            if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
            conn->in_start = conn->in_scanned = end + 1;
            return k_ucfg_ok;
        }
        conn->in_scanned = conn->inbuf.size();
        if (!conn->fd) return fail(conn, k_ucfg_lost, "not connected");
        short revents = 0;
        int result = wait_for(conn, conn->fd.get(), POLLIN, timeout, revents);
        if (result == k_ucfg_ok) result = fill(conn);
        if (result != k_ucfg_ok) return result;
    }
}

}  // namespace ucfg

ucfg_conn *ucfg_create(void) {
    return new (std::nothrow) ucfg_conn;
}

void ucfg_destroy(ucfg_conn *conn) {
    delete conn;
}

int ucfg_connect_local(ucfg_conn *conn, const char *path) {
    return guarded(conn, [&] {
        conn->kind = peer_kind::local;
        conn->host = path ? path : default_socket();
        conn->peer = conn->host;
        return open_local(conn);
    });
}

int ucfg_connect_tcp(ucfg_conn *conn, const char *host, const char *port) {
    return guarded(conn, [&] {
        conn->kind = peer_kind::tcp;
        conn->host = host ? host : k_default_host;
        conn->port = port ? port : k_default_port;
        bool colons = conn->host.find(':') != std::string::npos;
        conn->peer = (colons ? "[" + conn->host + "]" : conn->host) + ":" + conn->port;
        if (!may_be_port(conn->port)) {
            drop(conn);
            return fail(conn, k_ucfg_usage, "\"" + conn->port + "\" is no port (1 to 65535)");
        }
        return open_tcp(conn);
    });
}

int ucfg_reconnect(ucfg_conn *conn) {
    return guarded(conn, [&] {
        switch (conn->kind) {
            case peer_kind::local:
                return open_local(conn);
            case peer_kind::tcp:
                return open_tcp(conn);
            default:
                return fail(conn, k_ucfg_usage, "there is no address to connect to");
        }
    });
}

int ucfg_attach(ucfg_conn *conn, int fd) {
    return guarded(conn, [&] {
        drop(conn);
        conn->kind = peer_kind::none;
        conn->peer = "socket";
        return fd < 0 ? fail(conn, k_ucfg_usage, "no socket") : adopt(conn, fd);
    });
}

void ucfg_close(ucfg_conn *conn) {
    if (conn) drop(conn);
}

int ucfg_alive(ucfg_conn *conn) {
    if (!conn || !conn->fd) return 0;
    char byte = 0;
    ssize_t got = recv(conn->fd.get(), &byte, 1, MSG_PEEK | MSG_DONTWAIT);
    return got > 0 || (got < 0 && (errno == EAGAIN || errno == EINTR));
}

int ucfg_raw_write(ucfg_conn *conn, const char *data, size_t size) {
    return guarded(conn, [&] { return send_all(conn, {data, size}); });
}

int ucfg_raw_read(ucfg_conn *conn, char **line) {
    *line = nullptr;
    return guarded(conn, [&] {
        std::string_view text;
        int result = read_line(conn, conn->job_timeout, text);
        if (result == k_ucfg_ok) *line = make_text(text).release();
        return result;
    });
}

int ucfg_fd(const ucfg_conn *conn) {
    return conn ? conn->fd.get() : -1;
}

int ucfg_raw_pending(const ucfg_conn *conn) {
    return conn && conn->inbuf.find('\n', conn->in_start) != std::string::npos;
}

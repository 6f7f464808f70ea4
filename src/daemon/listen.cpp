#include "daemon/listen.h"

#include <arpa/inet.h>
#include <errno.h>
#include <fcntl.h>
#include <libdaemon/daemon.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string_view>

#include "daemon/dirs.h"
#include "daemon/listen_accept.h"
#include "daemon/loop.h"
#include "daemon/signals.h"
#include "daemon/trace.h"
#include "llconf/nodes.h"
#include "llconf/path.h"
#include "ucfgd/owners.h"
#include "ucfgd/strlcpy.h"

namespace {

constexpr int k_backlog = 1;
constexpr long k_highest_port = 0xffff;

/* The PID file was made just before, and the loop that would lead to the ordinary end never runs.
 */
[[noreturn]] void give_up() {
    daemon_pid_file_remove();
    exit(1);
}

[[noreturn]] void give_up_with(const char *format) {
    daemon_log(LOG_ERR, format, strerror(errno));
    give_up();
}

const char *setting(const cnfnode *listener, const char *name, const char *otherwise) {
    errno_guard keep;
    errno = 0;
    const char *value = cnf_get_entry(listener, name);
    /* Memory that is missing must not open another listener than the configured one. */
    if (!value && errno == ENOMEM) give_up_with("listen: %s\n");
    return value ? value : otherwise;
}

/* Listening never waits: a client that has gone before it is accepted must not hold up the others.
 */
void set_nonblocking(int fd) {
    int flags = fcntl(fd, F_GETFL);
    if (flags < 0 || fcntl(fd, F_SETFL, flags | O_NONBLOCK) != 0)
        daemon_log(LOG_ERR, "fcntl: %s\n", strerror(errno));
}

int start_listening(unique_fd fd) {
    set_nonblocking(fd.get());
    if (listen(fd.get(), k_backlog) != 0) give_up_with("listen: %s\n");
    return fd.release();
}

/* Nobody connects before the mode is the configured one. */
int bind_unreachable(int fd, const sockaddr_un &address) {
    mode_t mask = umask(0777);
    int result = bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address);
    errno_guard keep;
    umask(mask);
    return result;
}

/* The first of the addresses that takes a socket; none when none does. */
unique_fd bind_first(const addrinfo *results) {
    for (const addrinfo *ai = results; ai; ai = ai->ai_next) {
        unique_fd fd{socket(ai->ai_family, ai->ai_socktype, ai->ai_protocol)};
        if (fd && bind(fd.get(), ai->ai_addr, ai->ai_addrlen) == 0) return fd;
    }
    return unique_fd{};
}

int open_unix(const cnfnode *listener) {
    auto mode = std::strtol(setting(listener, "mode:", "0600"), nullptr, 0);
    return listen_sock_un(setting(listener, "path:", "/dev/ucfgd"), static_cast<int>(mode & 07777));
}

/* What cannot be read leads to another place than the one that was meant. */
void warn_of_odd_address(const char *listener, const char *ip, const char *port) {
    in_addr address{};
    if (inet_aton(ip, &address) == 0)
        daemon_log(LOG_WARNING, "Warning: listener '%s': ip: '%s' is no address; 127.0.0.1 is used",
                   listener, ip);
    errno_guard keep;
    char *end = nullptr;
    const long number = std::strtol(port, &end, 10);
    if (*end == '\0' && number > 0 && number <= k_highest_port) return;
    if ((number & k_highest_port) != 0)
        daemon_log(LOG_WARNING, "Warning: listener '%s': port: '%s' is no port; %ld is used",
                   listener, port, number & k_highest_port);
    else
        daemon_log(LOG_WARNING,
                   "Warning: listener '%s': port: '%s' is no port; the system chooses one",
                   listener, port);
}

int open_tcp(const cnfnode *listener) {
    const char *ip = setting(listener, "ip:", "127.0.0.1");
    const char *port = setting(listener, "port:", "222");
    warn_of_odd_address(cnfnode_getname(listener), ip, port);
    return listen_sock_in(ip, port);
}

int open_tcp6(const cnfnode *listener) {
    const char *ip = setting(listener, "ip:", "127.0.0.1");
    const char *fallback = ip ? ip : "::1";
    return listen_sock_in6(setting(listener, "host:", fallback), setting(listener, "port:", "222"));
}

struct listener_type {
    std::string_view name;
    int (*open)(const cnfnode *listener);
    bool may_ask_tls;
};

constexpr listener_type k_types[] = {
    {"unix", open_unix, false},
    {"tcp", open_tcp, true},
    {"tcp6", open_tcp6, true},
};

const listener_type *find_type(std::string_view name) {
    for (const listener_type &type : k_types)
        if (type.name == name) return &type;
    return nullptr;
}

/* Registers a reader; the descriptor is closed when that fails. */
void watch(int fd, int (*callback)(int, void *), void *data) {
    fd_callback *cb = create_fd_callback(fd, FD_CALLBACK_READ, callback, data);
    if (cb && loop_add_callback(cb) == 0) return;
    if (!cb) give_up_with("cannot watch a listener: %s");
    daemon_log(LOG_ERR, "cannot watch fd=%d: %s", fd, strerror(errno));
    std::free(cb);
    close(fd);
}

void open_listener(cnfnode *listener) {
    const char *type_name = setting(listener, "type:", nullptr);
    if (!type_name) return;
    const listener_type *type = find_type(type_name);
    if (!type) {
        printf("unknown type %s\n", type_name);
        fflush(stdout);
        return;
    }
    if (type->may_ask_tls && std::string_view{setting(listener, "tls:", "")} == "yes") {
        daemon_log(LOG_ERR, "gnutls not supported, skipping listener '%s'",
                   cnfnode_getname(listener));
        return;
    }
    int fd = type->open(listener);
    if (fd >= 0) watch(fd, listen_callback, listener);
}

/* A listener that is open goes by another node, which may be null. */
void go_by(fd_callback *cb, cnfnode *made) {
    const auto *before = static_cast<const cnfnode *>(cb->data);
    if (!made) {
        daemon_log(LOG_NOTICE, "reload: listener '%s' is closed", cnfnode_getname(before));
        cb->state = FD_CALLBACK_FINISHED;
    }
    cb->data = made;
    if (!made) return;
    for (const char *key : {"type:", "path:", "mode:", "ip:", "host:", "port:", "tls:"}) {
        const std::string_view old = setting(before, key, "");
        if (old != setting(made, key, ""))
            daemon_log(LOG_NOTICE, "reload: listener '%s': %s counts from the next start on",
                       cnfnode_getname(made), key);
    }
}

bool is_open(const cnfnode *listener) {
    for (const fd_callback *cb = g_cb_plain; cb; cb = cb->next_marked)
        if (cb->cb == listen_callback && cb->data == listener) return true;
    return false;
}

}  // namespace

int listen_setup(const cnfnode *section) {
    for (cnfnode *listener = section->first_child; listener; listener = listener->next)
        if (!cnfnode_is_formatting(listener)) open_listener(listener);
    int fd = daemon_signal_fd();
    if (fd >= 0) watch(fd, signal_callback, nullptr);
    return 0;
}

int listen_knows_type(const char *type) {
    return find_type(type) ? 1 : 0;
}

void listen_take_up(cnfnode *section) {
    const cnfnode *first = section ? section->first_child : nullptr;
    for (fd_callback *cb = g_cb_plain; cb; cb = cb->next_marked)
        if (cb->cb == listen_callback && cb->state == FD_CALLBACK_ACTIVE && cb->data)
            go_by(cb, find_node(first, cnfnode_getname(static_cast<const cnfnode *>(cb->data))));
    for (const cnfnode *listener = first; listener; listener = listener->next)
        if (!cnfnode_is_formatting(listener) && !is_open(listener))
            daemon_log(LOG_NOTICE, "reload: listener '%s' is opened at the next start",
                       cnfnode_getname(listener));
}

int listen_sock_un(const char *path, int mode) {
    owned_str name{prefix_ucfgdconffilename(path)};
    if (!name) give_up_with("socket: %s\n");
    trace(1, "path=%s, mode=%o\n", name.get(), static_cast<unsigned int>(mode));
    unique_fd fd{socket(AF_UNIX, SOCK_STREAM, 0)};
    if (!fd) give_up_with("socket: %s\n");
    set_close_on_exec(fd.get());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    bool fits =
        strlcpy(address.sun_path, name.get(), sizeof address.sun_path) < sizeof address.sun_path;
    if (fits) unlink(name.get());
    if (!fits) errno = ENAMETOOLONG;
    if (!fits || bind_unreachable(fd.get(), address) != 0) {
        daemon_log(LOG_ERR, "bind: %s on '%s'.\n", strerror(errno), name.get());
        give_up();
    }
    if (chmod(name.get(), static_cast<mode_t>(mode)) != 0)
        daemon_log(LOG_ERR, "chmod: %s on '%s'.\n", strerror(errno), name.get());
    return start_listening(std::move(fd));
}

int listen_sock_in(const char *ip, const char *port) {
    trace(1, "ip=%s, port=%s\n", ip, port);
    unique_fd fd{socket(AF_INET, SOCK_STREAM, 0)};
    if (!fd) give_up_with("socket: %s\n");
    set_reuse_address(fd.get());
    set_close_on_exec(fd.get());
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port =
        htons(static_cast<uint16_t>(std::strtol(port, nullptr, 10) & k_highest_port));
    /* An address that cannot be read must not become "every interface". */
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    inet_aton(ip, &address.sin_addr);
    if (bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        give_up_with("bind: %s\n");
    return start_listening(std::move(fd));
}

int listen_sock_in6(const char *hostname, const char *service) {
    trace(1, "hostname=%s, service=%s\n", hostname, service);
    addrinfo hints{};
    hints.ai_flags = AI_PASSIVE;
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    addrinfo *found = nullptr;
    int failure = getaddrinfo(hostname, service, &hints, &found);
    if (failure != 0) {
        daemon_log(LOG_ERR, "getaddrinfo: %s\n",
                   failure == EAI_SYSTEM ? strerror(errno) : gai_strerror(failure));
        give_up();
    }
    owned<addrinfo, freeaddrinfo> results{found};
    unique_fd fd = bind_first(results.get());
    if (!fd) {
        daemon_log(LOG_ERR, "socket/bind: %s\n", strerror(errno));
        return -1;
    }
    set_reuse_address(fd.get());
    set_close_on_exec(fd.get());
    return start_listening(std::move(fd));
}

#include "daemon/log_sink.h"

#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <syslog.h>
#include <time.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "daemon/log.h"
#include "session/limits.h"

namespace {

/* A line that was cut by an error ends where the next one begins. */
ssize_t write_line_part(int fd, std::string_view bytes, bool first, bool &cut) {
    if (first && cut) {
        if (write(fd, "\n", 1) != 1) return -1;
        cut = false;
    }
    ssize_t written;
    do {
        written = write(fd, bytes.data(), bytes.size());
    } while (written < 0 && errno == EINTR);
    if (written < 0 && errno != EAGAIN && !first) cut = true;
    return written;
}

std::string loss_text(unsigned long count) {
    return "Warning: " + std::to_string(count) + " messages lost";
}

/* The present second, as the system log has it; made once for all its messages. */
std::string_view time_stamp() {
    static constexpr const char *k_months[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                               "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    static time_t made = 0;
    static char text[64];
    const time_t now = time(nullptr);
    if (now != made) {
        struct tm local {};
        localtime_r(&now, &local);
        snprintf(text, sizeof text, "%s %2d %02d:%02d:%02d", k_months[local.tm_mon], local.tm_mday,
                 local.tm_hour, local.tm_min, local.tm_sec);
        made = now;
    }
    return text;
}

}  // namespace

void log_sink::gather(std::string_view line) {
    if (!lines_) lines_.reset(new (std::nothrow) char[k_gathered_max]);
    if (line.size() > k_gathered_max - gathered_) give_gathered();
    if (!lines_ || line.size() > k_gathered_max) {
        put(line);
        return;
    }
    line.copy(lines_.get() + gathered_, line.size());
    gathered_ += line.size();
}

/* What is not taken at once is queued, dropped and counted line by line. */
void log_sink::give_gathered() {
    if (gathered_ == 0) return;
    std::string_view lines = gathered();
    gathered_ = 0; /* before flush looks */
    size_t given = 0;
    const fate result = flush() ? give_all(lines, given) : fate::waits;
    if (result == fate::given) return;
    if (given > 0) {
        const size_t begun = lines.rfind('\n', given - 1) + 1;
        lines.remove_prefix(begun);
        given -= begun;
    }
    while (!lines.empty()) {
        const size_t size = lines.find('\n') + 1;
        if (result == fate::waits)
            enqueue(lines.substr(0, size), given);
        else
            lose();
        lines.remove_prefix(size);
        given = 0;
    }
}

void log_sink::put(std::string_view message) {
    size_t given = 0;
    if (flush()) {
        switch (give_all(message, given)) {
            case fate::given:
                return;
            case fate::lost:
                lose();
                return;
            case fate::waits:
                break;
        }
    }
    enqueue(message, given);
}

bool log_sink::flush() {
    give_gathered();
    while (!queue_.empty()) {
        const std::string &first = queue_.front();
        const fate result = give_all(first, given_);
        if (result == fate::waits) return false;
        queued_ -= first.size();
        given_ = 0;
        queue_.pop_front();
        if (result == fate::lost)
            lose();
        else if (queue_.empty() && lost_ > 0)
            note_losses();
    }
    return true;
}

log_sink::fate log_sink::give_all(std::string_view message, size_t &given) {
    while (given < message.size()) {
        const ssize_t taken = give(message.substr(given), given == 0);
        if (taken < 0) return errno == EAGAIN ? fate::waits : fate::lost;
        given += static_cast<size_t>(taken);
    }
    return fate::given;
}

/* Once a line had to be dropped, so are those behind it until half of the queue has gone: one line
 * tells of many losses. */
void log_sink::enqueue(std::string_view message, size_t given) {
    const auto limit = static_cast<size_t>(limit_value(k_limit_log_queue));
    const size_t room = lost_ > 0 ? limit / 2 : limit;
    if (queued_ + message.size() > room && given == 0) {
        lose();
        return;
    }
    try {
        if (lost_ > 0) note_losses();
        if (queue_.empty()) given_ = given;
        append(std::string{message});
    } catch (const std::bad_alloc &) {
        lose();
    }
}

void log_sink::append(std::string message) {
    queue_.push_back(std::move(message));
    queued_ += queue_.back().size();
}

void log_sink::note_losses() {
    const unsigned long count = lost_;
    try {
        append(loss_notice(count));
        lost_ = 0;
    } catch (const std::bad_alloc &) {
        lost_ = count;
    }
}

void log_sink::lose() {
    lost_++;
    limit_count(k_limit_log_queue, 1);
}

void log_sink::drop_all() {
    gathered_ = 0;
    queue_.clear();
    queued_ = 0;
    given_ = 0;
    lost_ = 0;
}

/* The descriptor may lead elsewhere since the last line. Where it would block, it is opened once
 * more: the flag belongs to what was opened, and the one that we were given is shared with whoever
 * started us. */
void stream_sink::look() {
    struct stat now {};
    if (fstat(fd_, &now) != 0) {
        kind_ = kind::closed;
        return;
    }
    if (kind_ != kind::closed && now.st_dev == device_ && now.st_ino == inode_) return;
    device_ = now.st_dev;
    inode_ = now.st_ino;
    own_.reset();
    cut_ = false;
    if (S_ISSOCK(now.st_mode)) {
        kind_ = kind::socket;
    } else if (S_ISFIFO(now.st_mode) || (S_ISCHR(now.st_mode) && isatty(fd_))) {
        char name[32];
        snprintf(name, sizeof name, "/proc/self/fd/%d", fd_);
        own_.reset(open(name, O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        kind_ = own_ ? kind::nonblocking : kind::polled;
    } else {
        kind_ = kind::plain;
    }
}

ssize_t stream_sink::give(std::string_view bytes, bool first) {
    look();
    switch (kind_) {
        case kind::closed:
            errno = EBADF;
            return -1;
        case kind::socket:
            return send(fd_, bytes.data(), bytes.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        case kind::nonblocking:
            return write_line_part(own_.get(), bytes, first, cut_);
        case kind::polled: {
            pollfd waiting{fd_, POLLOUT, 0};
            errno = EAGAIN;
            if (poll(&waiting, 1, 0) <= 0) return -1;
            /* What is writable takes this much at once. */
            return write_line_part(fd_, bytes.substr(0, PIPE_BUF), first, cut_);
        }
        default:
            return write_line_part(fd_, bytes, first, cut_);
    }
}

int stream_sink::descriptor() const {
    return own_ ? own_.get() : fd_;
}

void stream_sink::forget() {
    log_sink::forget();
    own_.reset();
    kind_ = kind::closed;
}

std::string stream_sink::loss_notice(unsigned long count) const {
    return loss_text(count) + '\n';
}

/* It shows passwords, so only the daemon's own user may read it. A FIFO that nobody reads cannot be
 * opened for writing alone. */
int file_sink::open(const char *path) {
    constexpr int k_flags = O_CREAT | O_TRUNC | O_APPEND | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;
    unique_fd fd{::open(path, O_WRONLY | k_flags, 0600)};
    if (!fd && errno == ENXIO) fd.reset(::open(path, O_RDWR | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat file {};
    if (!fd || fstat(fd.get(), &file) != 0) return -1;
    if (S_ISREG(file.st_mode) && fchmod(fd.get(), 0600) != 0) return -1;
    fd_ = std::move(fd);
    return 0;
}

void file_sink::forget() {
    log_sink::forget();
    fd_.reset();
}

ssize_t file_sink::give(std::string_view bytes, bool first) {
    return write_line_part(fd_.get(), bytes, first, cut_);
}

std::string file_sink::loss_notice(unsigned long count) const {
    return "X: " + loss_text(count) + '\n';
}

std::string syslog_sink::message(int priority, const char *ident, pid_t pid,
                                 std::string_view text) {
    constexpr size_t k_ident_max = 128;
    constexpr size_t k_rest_max = 64;
    std::string message;
    message.reserve(k_rest_max + k_ident_max + text.size());
    message.append("<").append(std::to_string(priority)).append(">").append(time_stamp());
    message.append(" ").append(std::string_view{ident}.substr(0, k_ident_max));
    if (pid > 0) message.append("[").append(std::to_string(pid)).append("]");
    return message.append(": ").append(text);
}

bool syslog_sink::connect() {
    fd_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::string_view{g_log_socket}.copy(address.sun_path, sizeof address.sun_path - 1);
    if (fd_ &&
        ::connect(fd_.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0)
        return true;
    fd_.reset();
    return false;
}

/* Until somebody listens there, messages wait. A reader that came back has another socket. */
ssize_t syslog_sink::give(std::string_view bytes, bool /*first*/) {
    for (int attempt = 0; attempt < 2 && (fd_ || connect()); attempt++) {
        const ssize_t sent = send(fd_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
        if (sent >= 0 || errno == EMSGSIZE) return sent;
        if (errno == EAGAIN || errno == ENOBUFS) break;
        fd_.reset();
    }
    errno = EAGAIN;
    return -1;
}

void syslog_sink::forget() {
    log_sink::forget();
    fd_.reset();
}

void syslog_sink::move_errors(log_sink &other) {
    for (const std::string &message : queue()) {
        const size_t end = message.find('>');
        if (end == std::string::npos) continue;
        if (LOG_PRI(std::atoi(message.c_str() + 1)) <= LOG_ERR)
            other.put(message.substr(end + 1) + '\n');
    }
    drop_all();
}

std::string syslog_sink::loss_notice(unsigned long count) const {
    return message(LOG_WARNING | LOG_DAEMON, daemon_log_ident ? daemon_log_ident : "ucfgd",
                   getpid(), loss_text(count));
}

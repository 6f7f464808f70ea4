#include "daemon/log.h"

#include <libdaemon/dlog.h>
#include <poll.h>
#include <pthread.h>
#include <syslog.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include "daemon/log_sink.h"
#include "daemon/loop.h"
#include "ucfgd/owners.h"

/* A log is read by somebody else: a pipe's other end, the system log, a terminal. When they stop
 * reading, a process that writes to them stops too, and this one must not, since everybody waits
 * for it. So every line leaves through a sink (log_sink.h) that gives what is taken at once and
 * keeps the rest; a timer of the loop tries again, ever more seldom while nothing moves. A process
 * without a loop, before the start or in a forked child, tries again with each line and at its end.
 *
 * The names of the C library and of libdaemon are taken over here, not wrapped: what PAM's modules
 * and libdaemon itself have to say blocks as well as our own lines, and the program's definitions
 * come before those of the libraries that it loads.
 */

const char *g_log_socket = "/dev/log";

namespace {

constexpr size_t k_line_max = 16384;
constexpr std::string_view k_cut = "...";
constexpr long k_first_retry_ms = 20;
constexpr long k_last_retry_ms = 2000;
constexpr int k_finish_ms = 500;
constexpr int k_finish_step_ms = 50;

/* The sinks, made at the first use and never destroyed: the last line comes after main. */
struct outlets {
    stream_sink output{1};
    stream_sink error{2};
    file_sink protocol;
    syslog_sink syslog;
    log_sink *all[4] = {&output, &error, &protocol, &syslog};
};

bool g_is_child = false;
loop_timer g_retry{};
long g_retry_ms = k_first_retry_ms;

/* What still goes to the standard streams. */
int g_verbosity = LOG_DEBUG;

log_observer g_observer = nullptr;

/* What openlog and setlogmask left. */
const char *g_ident = nullptr;
int g_options = 0;
int g_facility = LOG_USER;
int g_mask = 0xff;

outlets &outs();

void forget_in_child() {
    g_is_child = true;
    for (log_sink *sink : outs().all)
        sink->forget();
}

outlets &outs() {
    static outlets *const made = [] {
        pthread_atfork(nullptr, nullptr, forget_in_child);
        return new outlets;
    }();
    return *made;
}

/* True when nothing is left. */
bool flush_all() {
    bool empty = true;
    for (log_sink *sink : outs().all)
        if (!sink->flush()) empty = false;
    return empty;
}

size_t left_in_all() {
    size_t bytes = 0;
    for (const log_sink *sink : outs().all)
        bytes += sink->left();
    return bytes;
}

void retry(void * /*data*/) {
    const errno_guard keep;
    const size_t before = left_in_all();
    if (flush_all()) return;
    g_retry_ms =
        left_in_all() < before ? k_first_retry_ms : std::min(g_retry_ms * 2, k_last_retry_ms);
    loop_set_timer(&g_retry, g_retry_ms, retry, nullptr);
}

void put(log_sink &sink, std::string_view message) {
    sink.put(message);
    if (!sink.waits() || g_retry.due != 0) return;
    g_retry_ms = k_first_retry_ms;
    loop_set_timer(&g_retry, g_retry_ms, retry, nullptr);
}

/* One line of text out of a format, with room for a newline behind it. */
class log_line {
  public:
    __attribute__((format(printf, 2, 0))) log_line(const char *format, va_list arguments) {
        const int length = vsnprintf(text_, k_line_max, format, arguments);
        size_ = length < 0 ? 0 : std::min(static_cast<size_t>(length), k_line_max - 1);
        if (length >= static_cast<int>(k_line_max)) k_cut.copy(text_ + size_ - k_cut.size(), 3);
        while (size_ > 0 && text_[size_ - 1] == '\n')
            size_--;
        std::replace_if(text_, text_ + size_, is_unsafe, ' ');
        text_[size_] = '\n';
    }
    std::string_view text() const { return {text_, size_}; }
    std::string_view with_newline() const { return {text_, size_ + 1}; }

  private:
    static bool is_unsafe(char c) {
        return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f';
    }
    char text_[k_line_max + 1];
    size_t size_;
};

void send_to_syslog(int priority, const char *ident, pid_t pid, std::string_view text) {
    try {
        put(outs().syslog, syslog_sink::message(priority, ident, pid, text));
    } catch (const std::bad_alloc &) {
        /* The line is lost; there is nowhere to say so. */
    }
}

__attribute__((format(printf, 2, 0))) void log_to_syslog(int priority, const char *format,
                                                         va_list arguments) {
    const errno_guard keep;
    if ((LOG_MASK(LOG_PRI(priority)) & g_mask) == 0) return;
    const log_line line{format, arguments};
    const char *ident = g_ident            ? g_ident
                        : daemon_log_ident ? daemon_log_ident
                                           : program_invocation_short_name;
    if ((priority & LOG_FACMASK) == 0) priority |= g_facility;
    send_to_syslog(priority, ident, (g_options & LOG_PID) != 0 ? getpid() : 0, line.text());
}

}  // namespace

extern "C" {

/* The C library's functions, under names of our own because its headers may define them inline. */
void own_openlog(const char *ident, int options, int facility) __asm__("openlog");
void own_closelog(void) __asm__("closelog");
int own_setlogmask(int mask) __asm__("setlogmask");
void own_syslog(int priority, const char *format, ...) __asm__("syslog")
    __attribute__((format(printf, 2, 3)));
void own_vsyslog(int priority, const char *format, va_list arguments) __asm__("vsyslog")
    __attribute__((format(printf, 2, 0)));
void own_checked_syslog(int priority, int flag, const char *format, ...) __asm__("__syslog_chk")
    __attribute__((format(printf, 3, 4)));
void own_checked_vsyslog(int priority, int flag, const char *format,
                         va_list arguments) __asm__("__vsyslog_chk")
    __attribute__((format(printf, 3, 0)));

void own_openlog(const char *ident, int options, int facility) {
    g_ident = ident;
    g_options = options;
    if (facility != 0) g_facility = facility;
}

void own_closelog(void) {
    g_ident = nullptr;
}

int own_setlogmask(int mask) {
    const int before = g_mask;
    if (mask != 0) g_mask = mask;
    return before;
}

void own_vsyslog(int priority, const char *format, va_list arguments) {
    log_to_syslog(priority, format, arguments);
}

void own_checked_vsyslog(int priority, int, const char *format, va_list arguments) {
    log_to_syslog(priority, format, arguments);
}

void own_syslog(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log_to_syslog(priority, format, arguments);
    va_end(arguments);
}

void own_checked_syslog(int priority, int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    log_to_syslog(priority, format, arguments);
    va_end(arguments);
}

}  // extern "C"

void daemon_logv(int priority, const char *format, va_list arguments) {
    const errno_guard keep;
    const log_line line{format, arguments};
    if (g_observer && g_observer(priority, std::string{line.text()}.c_str())) return;
    if ((daemon_log_use & DAEMON_LOG_SYSLOG) != 0)
        send_to_syslog(priority | LOG_DAEMON, daemon_log_ident ? daemon_log_ident : "UNKNOWN",
                       getpid(), line.text());
    if (priority > g_verbosity) return;
    if ((daemon_log_use & DAEMON_LOG_STDERR) != 0) put(outs().error, line.with_newline());
    if ((daemon_log_use & DAEMON_LOG_STDOUT) != 0) put(outs().output, line.with_newline());
}

void log_set_observer(log_observer observer) {
    g_observer = observer;
}

void daemon_set_verbosity(int verbosity) {
    g_verbosity = verbosity;
}

void daemon_log(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    daemon_logv(priority, format, arguments);
    va_end(arguments);
}

void log_text(int fd, const char *text, size_t size) {
    const errno_guard keep;
    if (size > 0) put(fd == 2 ? outs().error : outs().output, {text, size});
}

int log_open_protocol(const char *path) {
    return outs().protocol.open(path);
}

int log_protocol_is_open(void) {
    return outs().protocol.is_open();
}

void log_protocol(const char *prefix, const char *text, size_t size) {
    const errno_guard keep;
    if (!outs().protocol.is_open()) return;
    try {
        std::string message = std::string{prefix}.append(text, size);
        if (!message.ends_with('\n')) message += '\n';
        put(outs().protocol, message);
    } catch (const std::bad_alloc &) {
        /* A line less. */
    }
}

void log_protocol_f(const char *format, ...) {
    if (!log_protocol_is_open()) return;
    va_list arguments;
    va_start(arguments, format);
    const log_line line{format, arguments};
    va_end(arguments);
    log_protocol("", line.text().data(), line.text().size());
}

void log_finish(void) {
    const errno_guard keep;
    for (int left = k_finish_ms; left > 0 && !flush_all(); left -= k_finish_step_ms) {
        pollfd waiting[std::size(outs().all)];
        nfds_t count = 0;
        for (const log_sink *sink : outs().all)
            if (sink->waits() && sink->descriptor() >= 0)
                waiting[count++] = {sink->descriptor(), POLLOUT, 0};
        if (count == 0) break;
        poll(waiting, count, k_finish_step_ms);
    }
    /* The standard error of a child is a client's, or nobody's. */
    if (!g_is_child) outs().syslog.move_errors(outs().error);
}

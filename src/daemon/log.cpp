#include "daemon/log.h"

#include <libdaemon/dlog.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include "daemon/log_sink.h"
#include "daemon/loop.h"
#include "session/chars.h"
#include "ucfgd/owners.h"
#include "ucfgd/simple_format.h"

/* A log is read by somebody else: a pipe's other end, the system log, a terminal. When they stop
 * reading, a process that writes to them stops too, and this one must not, since everybody waits
 * for it. So every line leaves through a sink (log_sink.h) that gives what is taken at once and
 * keeps the rest; a timer of the loop tries again, ever more seldom while nothing moves. A process
 * without a loop, before the start or in a forked child, tries again with each line and at its end.
 *
 * A line is short and a system call is not, so the lines of a round are gathered in the sinks and
 * leave with one write. A process that is killed takes with it what it did for requests that it had
 * not answered; one that crashes still writes what is gathered, since those lines tell why.
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

constexpr int k_crashes[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT};

bool g_is_child = false;
bool g_gathering = false;
bool g_gathered = false; /* since the last log_flush */
bool g_catching = false;
struct sigaction g_before_crash[std::size(k_crashes)];
int g_level = LOG_DEBUG;
loop_timer g_retry{};
long g_retry_ms = k_first_retry_ms;

/* What still goes to the standard streams. */
int g_verbosity = LOG_DEBUG;

log_observer g_observer = nullptr;
unsigned long g_line_count = 0;

/* What openlog and setlogmask left. */
const char *g_ident = nullptr;
int g_options = 0;
int g_facility = LOG_USER;
int g_mask = 0xff;

outlets &outs();

void forget_in_child() {
    g_is_child = true;
    g_gathering = false;
    for (log_sink *sink : outs().all)
        sink->forget();
}

outlets &outs() {
    static outlets *const made = [] {
        pthread_atfork(log_flush, nullptr, forget_in_child);
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

void retry_later(const log_sink &sink) {
    if (!sink.waits() || g_retry.due != 0) return;
    g_retry_ms = k_first_retry_ms;
    loop_set_timer(&g_retry, g_retry_ms, retry, nullptr);
}

void put(log_sink &sink, std::string_view message) {
    sink.put(message);
    retry_later(sink);
}

/* Whole lines, and not of an error. */
void put_soon(log_sink &sink, std::string_view lines) {
    if (!g_gathering) {
        put(sink, lines);
        return;
    }
    sink.gather(lines);
    g_gathered = true;
}

/* Looks at plain memory and calls nothing that a crash could have left in a bad state. */
void write_gathered(const log_sink &sink) {
    std::string_view left = sink.gathered();
    pollfd waiting{sink.descriptor(), POLLOUT, 0};
    while (!left.empty() && poll(&waiting, 1, 0) > 0) {
        const ssize_t written = write(waiting.fd, left.data(), left.size());
        if (written <= 0) return;
        left.remove_prefix(static_cast<size_t>(written));
    }
}

/* What was to happen otherwise happens when this returns. */
void act_on_crash(int signal_number) {
    for (size_t i = 0; i < std::size(k_crashes); i++)
        sigaction(k_crashes[i], &g_before_crash[i], nullptr);
    write_gathered(outs().error);
    write_gathered(outs().output);
    write_gathered(outs().protocol);
    raise(signal_number);
}

void catch_crashes() {
    outs(); /* made now and not in the handler */
    struct sigaction action {};
    action.sa_handler = act_on_crash;
    for (size_t i = 0; i < std::size(k_crashes); i++)
        sigaction(k_crashes[i], &action, &g_before_crash[i]);
}

/* One line of text out of a format, with room for a newline behind it. */
class log_line {
  public:
    __attribute__((format(printf, 2, 0))) log_line(const char *format, va_list arguments) {
        va_list again;
        va_copy(again, arguments);
        if (!format_simple(*this, format, arguments)) {
            const int length = vsnprintf(text_, k_line_max, format, again);
            size_ = length < 0 ? 0 : std::min(static_cast<size_t>(length), k_line_max - 1);
            is_cut_ = length >= static_cast<int>(k_line_max);
        }
        va_end(again);
        if (is_cut_) k_cut.copy(text_ + size_ - k_cut.size(), k_cut.size());
        while (size_ > 0 && text_[size_ - 1] == '\n')
            size_--;
        if (run_without_controls(text_, size_) < size_ || memchr(text_, '\x7f', size_))
            std::replace_if(text_, text_ + size_, is_unsafe, ' ');
        text_[size_] = '\n';
    }

    /* For format_simple. */
    void literal(std::string_view text) {
        const size_t taken = text.copy(text_ + size_, k_line_max - 1 - size_);
        size_ += taken;
        if (taken < text.size()) is_cut_ = true;
    }
    void inserted(std::string_view text) { literal(text); }

    std::string_view text() const { return {text_, size_}; }
    std::string_view with_newline() const { return {text_, size_ + 1}; }

  private:
    static bool is_unsafe(char c) {
        return (static_cast<unsigned char>(c) < ' ' && c != '\t') || c == '\x7f';
    }
    char text_[k_line_max + 1];
    size_t size_ = 0;
    bool is_cut_ = false;
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
    g_line_count++;
    if (log_takes(priority) == 0) return;
    const errno_guard keep;
    const log_line line{format, arguments};
    if (g_observer && g_observer(priority, std::string{line.text()}.c_str())) return;
    if ((daemon_log_use & DAEMON_LOG_SYSLOG) != 0)
        send_to_syslog(priority | LOG_DAEMON, daemon_log_ident ? daemon_log_ident : "UNKNOWN",
                       getpid(), line.text());
    if (priority > g_verbosity) return;
    if ((daemon_log_use & DAEMON_LOG_STDERR) != 0) put_soon(outs().error, line.with_newline());
    if ((daemon_log_use & DAEMON_LOG_STDOUT) != 0) put_soon(outs().output, line.with_newline());
    if (priority <= LOG_ERR) log_flush();
}

void log_set_level(int priority) {
    g_level = priority;
}

int log_takes(int priority) {
    return priority <= g_level || g_observer ? 1 : 0;
}

void log_gather(int on) {
    log_flush();
    if (on != 0 && !std::exchange(g_catching, true)) catch_crashes();
    g_gathering = on != 0;
}

void log_flush(void) {
    if (!g_gathered) return;
    const errno_guard keep;
    g_gathered = false;
    for (log_sink *sink : outs().all) {
        sink->give_gathered();
        retry_later(*sink);
    }
}

unsigned long log_line_count(void) {
    return g_line_count;
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
    log_flush();
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
        put_soon(outs().protocol, message);
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

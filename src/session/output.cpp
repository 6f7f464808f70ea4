/* Between a session's buffers and what is outside: bytes in, reply lines and bytes out. */

#include <libdaemon/dlog.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "daemon/log.h"
#include "session/chars.h"
#include "session/input.h"
#include "session/protocol.h"
#include "ucfgd/simple_format.h"

namespace {

/* Storage of an idle buffer that is given back. */
constexpr int k_idle_size = 4096;

constexpr size_t k_reply_max = k_line_size - 1;

void blank_control_characters(char *text, size_t length) {
    for (size_t i = run_without_controls(text, length); i < length;
         i += run_without_controls(text + i, length - i)) {
        text[i] = ' ';
    }
}

/* A long listing grows its buffer in steps of its own size. */
void make_room(databuf *out, int length) {
    if (out->size - out->end < length) databuf_reserve(out, length + databuf_pending(out) / 2);
}

/* One reply on its way. Literal text is copied, inserted text loses its control characters. */
class reply {
  public:
    void literal(std::string_view text) { used_ += copy(text, false); }
    void inserted(std::string_view text) { used_ += copy(text, true); }

    /* For formats that the fast path does not know. */
    void printed(const char *format, va_list args) __attribute__((format(printf, 2, 0))) {
        const int length = vsnprintf(text_, sizeof(text_), format, args);
        used_ = length < 0 ? 0 : static_cast<size_t>(length);
        cut_ = used_ > k_reply_max;
        if (cut_) used_ = k_reply_max;
        for (size_t i = 0; i + 1 < used_; ++i) {
            if (is_control(text_[i])) text_[i] = ' ';
        }
    }

    void clear() {
        used_ = 0;
        cut_ = false;
    }

    /* The reply, whose newline survives a cut. */
    std::string_view finish() {
        if (cut_) text_[used_ - 1] = '\n';
        return {text_, used_};
    }

  private:
    size_t copy(std::string_view text, bool blank_controls) {
        const size_t room = k_reply_max - used_;
        const size_t length = text.size() < room ? text.size() : room;
        if (length < text.size()) cut_ = true;
        char *to = text_ + used_;
        memcpy(to, text.data(), length);
        if (blank_controls) blank_control_characters(to, length);
        return length;
    }

    char text_[k_line_size];
    size_t used_ = 0;
    bool cut_ = false;
};

/* Drops control characters but the newline from the bytes behind the first `clean` ones. */
void drop_controls(databuf *buffer, int clean) {
    char *const end = buffer->buf + buffer->end;
    char *from = buffer->buf + buffer->start + clean;
    const auto skip_text = [&] {
        from += run_without_controls(from, static_cast<size_t>(end - from));
    };
    for (skip_text(); from < end && *from == '\n'; skip_text())
        ++from;
    char *to = from;
    for (; from < end; ++from) {
        if (!is_control(*from) || *from == '\n') *to++ = *from;
    }
    buffer->end = static_cast<int>(to - buffer->buf);
}

/* A buffer that once grew keeps its storage; an idle session should not. */
void release_idle_storage(databuf *buffer) {
    if (databuf_pending(buffer) == 0 && buffer->size > k_idle_size) free(databuf_steal(buffer));
}

/* What is answered is whole or not at all: without memory for a line the connection ends there, and
 * no final line follows. */
int lose_output(ccd_session *session) {
    if (!session->output_lost) daemon_log(LOG_ERR, "no memory for a reply, closing session");
    session->output_lost = 1;
    g_session_sweep_needed = 1;
    errno = ENOMEM;
    return -1;
}

/* Where that many bytes of output go; null where they have to take the long way, which knows what
 * is to be done then. */
char *reply_room(ccd_session *session, size_t size) {
    databuf *out = session->outbuf;
    if (!out || session->output_lost || size > k_reply_max || log_protocol_is_open())
        return nullptr;
    const int length = static_cast<int>(size);
    make_room(out, length);
    return out->size - out->end < length ? nullptr : out->buf + out->end;
}

void finish_reply(ccd_session *session, const char *end) {
    session->outbuf->end = static_cast<int>(end - session->outbuf->buf);
    loop_watch(session->fdcb_out, FD_CALLBACK_WRITE);
}

char *put(char *to, std::string_view text) {
    return static_cast<char *>(mempcpy(to, text.data(), text.size()));
}

char *put_text(char *to, std::string_view text) {
    char *end = put(to, text);
    blank_control_characters(to, text.size());
    return end;
}

}  // namespace

int session_write(ccd_session *session, const void *data, size_t size) {
    if (!session->outbuf) return 0;
    if (session->output_lost) return lose_output(session);
    if (log_protocol_is_open()) log_protocol("S: ", static_cast<const char *>(data), size);
    databuf *out = session->outbuf;
    const int length = static_cast<int>(size);
    make_room(out, length);
    if (databuf_add(out, data, length) != 0) return lose_output(session);
    loop_watch(session->fdcb_out, FD_CALLBACK_WRITE);
    return 0;
}

int session_writef(ccd_session *session, const char *format, ...) {
    reply out;
    va_list args;
    va_start(args, format);
    const bool simple = format_simple(out, format, args);
    va_end(args);
    if (!simple) {
        out.clear();
        va_start(args, format);
        out.printed(format, args);
        va_end(args);
    }
    const std::string_view text = out.finish();
    return session_write(session, text.data(), text.size());
}

int session_write_reply(ccd_session *session, const char *id, const char *literal,
                        const char *text) {
    const std::string_view tag{id};
    const std::string_view fixed{literal};
    const std::string_view value{text};
    char *to = reply_room(session, tag.size() + fixed.size() + value.size() + 1);
    if (!to) return session_writef(session, "%s%s%s\n", id, literal, text);
    to = put_text(put(put(to, tag), fixed), value);
    *to++ = '\n';
    finish_reply(session, to);
    return 0;
}

int session_write_value(ccd_session *session, const char *id, const char *value) {
    constexpr std::string_view k_value = ".1 ";
    constexpr std::string_view k_end = " OK\n";
    const std::string_view tag{id};
    const std::string_view text{value};
    const size_t size = 2 * tag.size() + k_value.size() + text.size() + 1 + k_end.size();
    char *to = reply_room(session, size);
    if (!to) {
        const int result = session_write_reply(session, id, k_value.data(), value);
        return result != 0 ? result : session_write_reply(session, id, " OK", "");
    }
    to = put_text(put(put(to, tag), k_value), text);
    *to++ = '\n';
    finish_reply(session, put(put(to, tag), k_end));
    return 0;
}

int session_write_databuf(ccd_session *session, const char *id, databuf *buffer, int final) {
    char text[k_line_size];
    if (buffer->buf) drop_controls(buffer, 0);
    const auto take = [&](size_t length, int consumed) {
        if (length > 0) memcpy(text, buffer->buf + buffer->start, length);
        text[length] = '\0';
        if (session) session_writef(session, "%s %s\n", id, text);
        databuf_remove(buffer, consumed);
    };
    while (databuf_pending(buffer) > 0) {
        const char *begin = buffer->buf + buffer->start;
        const auto pending = static_cast<size_t>(databuf_pending(buffer));
        const size_t window = std::min<size_t>(pending, k_line_size);
        const auto *newline = static_cast<const char *>(memchr(begin, '\n', window));
        if (!newline && pending <= k_reply_max) break;
        /* Where a line is cut, the byte at the cut goes the way of a newline. */
        const size_t length = newline ? static_cast<size_t>(newline - begin) : k_reply_max;
        take(length, static_cast<int>(length) + 1);
    }
    if (final) {
        const int rest = databuf_pending(buffer);
        take(static_cast<size_t>(rest), rest);
    }
    return 0;
}

int session_flushout(ccd_session *session, int fd) {
    if (!session->outbuf) return 0;
    log_flush(); /* what is answered is logged */
    int result = databuf_sendout(session->outbuf, fd);
    if (result < 0 && errno == ENOTSOCK) result = databuf_flushout(session->outbuf, fd);
    if (result > 0) release_idle_storage(session->outbuf);
    return result;
}

int session_flushout_nb(ccd_session *session, int fd) {
    pollfd writable{fd, POLLOUT, 0};
    const int ready = fd < 0 ? 1 : poll(&writable, 1, 0);
    if (ready <= 0) return ready;
    if (fd >= 0 && (writable.revents & POLLNVAL) == 0) return session_flushout(session, fd);
    errno = EBADF;
    return -1;
}

int session_flushin(ccd_session *session, int fd) {
    if (!session->inbuf) {
        errno = EBADF;
        return -1;
    }
    const int result = databuf_flushin(session->inbuf, fd);
    if (result <= 0) return result;
    session_filter_input(session);
    const bool locked = (session->flags & k_session_locked) != 0;
    if (locked && databuf_pending(session->inbuf) >= k_session_output_limit)
        loop_watch(session->fdcb_in, FD_CALLBACK_PARKED);
    return result;
}

void session_filter_input(ccd_session *session) {
    databuf *in = session->inbuf;
    if (session->filtered >= databuf_pending(in)) return;
    drop_controls(in, session->filtered);
    session->filtered = databuf_pending(in);
}

void session_settle_input(ccd_session *session) {
    databuf *in = session->inbuf;
    if (databuf_pending(in) == 0) {
        in->start = 0;
        in->end = 0;
        release_idle_storage(in);
    } else {
        databuf_remove(in, 0);
    }
}

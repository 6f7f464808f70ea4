/* Framing: from bytes to lines, from lines to requests. */

#include "session/protocol.h"

#include <libdaemon/dlog.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>

#include "backend/command.h"
#include "daemon/log.h"
#include "daemon/trace.h"
#include "session/chars.h"
#include "session/input.h"
#include "session/limits.h"
#include "session/login.h"
#include "session/login_gate.h"
#include "session/turns.h"
#include "ucfgd/guaranteed_memset.h"

namespace {

/* The session whose line is executed, for as long as it is. */
class current_session {
  public:
    explicit current_session(ccd_session *session) : previous_(g_current_session) {
        g_current_session = session;
    }
    current_session(const current_session &) = delete;
    current_session &operator=(const current_session &) = delete;
    ~current_session() { g_current_session = previous_; }

  private:
    ccd_session *previous_;
};

int refuse(ccd_session *session, const char *why) {
    daemon_log(LOG_ERR, "%s", why);
    close_session(session);
    return -1;
}

/* Sets what the loop watches: output as long as some is pending, input unless too much is or lines
 * are left over. */
void set_watching(ccd_session *session) {
    if (!session->fdcb_in || !session->fdcb_out) return;
    const int pending = databuf_pending(session->outbuf);
    loop_watch(session->fdcb_out, pending > 0 ? FD_CALLBACK_WRITE : FD_CALLBACK_PARKED);
    if (pending >= k_session_output_limit) {
        trace(3, "blocking input, osize=%d\n", pending);
        loop_watch(session->fdcb_in, FD_CALLBACK_PARKED);
    } else if (session->stalled || session->login_ticket != 0) {
        loop_watch(session->fdcb_in, FD_CALLBACK_PARKED);
    } else if ((session->flags & k_session_locked) == 0) {
        loop_watch(session->fdcb_in, FD_CALLBACK_READ);
    }
}

/* The first line's newline, or null. What was searched in vain is not searched again. */
char *find_newline(ccd_session *session) {
    const databuf *in = session->inbuf;
    const int pending = databuf_pending(in);
    char *from = in->buf + in->start + session->scanned;
    auto *newline = pending > session->scanned
                        ? static_cast<char *>(
                              memchr(from, '\n', static_cast<size_t>(pending - session->scanned)))
                        : nullptr;
    if (!newline) session->scanned = pending;
    return newline;
}

/* Executes the line in place: its text stays in the buffer's storage until the next read. */
void execute_line(ccd_session *session, char *newline) {
    databuf *in = session->inbuf;
    char *text = in->buf + in->start;
    const int length = static_cast<int>(newline - text);
    *newline = '\0';
    in->start += length + 1;
    session->filtered -= length + 1;
    session->scanned = 0;
    const bool may_hold_password = session->state != k_session_logged;
    session_process_line(session, text);
    if (may_hold_password && session->inbuf) {
        guaranteed_memset(text, 0, static_cast<size_t>(length));
    }
}

/* The line stays where it is when it is a log-in whose time has not come. */
bool login_must_wait(ccd_session *session, char *newline) {
    const databuf *in = session->inbuf;
    *newline = '\0';
    const bool is_login = session_is_login(in->buf + in->start);
    *newline = '\n';
    return is_login && !login_gate_pass(session);
}

/* Stops before a log-in that has to wait, behind a command that locks the session, where its
 * replies have piled up, and when its turn is over; the sweep comes back to all of them. */
int frame_lines(ccd_session *session) {
    const session_turn turn{session};
    while (session->inbuf && (session->flags & k_session_locked) == 0 && !session->output_lost &&
           !session->refused) {
        char *newline = find_newline(session);
        const int length =
            newline ? static_cast<int>(newline - session->inbuf->buf) - session->inbuf->start
                    : session->scanned;
        if (length >= k_line_size - 1) return refuse(session, "line too long, closing session");
        if (!newline) break;
        if (turn.is_over() || turn_awaits_commands(session) ||
            databuf_pending(session->outbuf) >= k_session_output_limit) {
            session_stall(session);
            break;
        }
        if (session->state != k_session_logged && login_must_wait(session, newline)) break;
        const unsigned long before = command_ahead::started();
        execute_line(session, newline);
        if (command_ahead::started() != before) turn_await_commands(session);
    }
    return session->inbuf && !session->refused ? 0 : -1;
}

/* What a line takes as a block of its own, the allocator's share included. */
size_t collected_size(size_t text_size) {
    constexpr size_t k_step = 2 * sizeof(size_t);
    const size_t block = sizeof(line) + text_size + sizeof(size_t);
    return std::max((block + k_step - 1) / k_step * k_step, 2 * k_step);
}

size_t request_limit(const ccd_session *session) {
    const auto limit = static_cast<size_t>(limit_value(k_limit_request_size));
    if (session->state != k_session_logged) return std::min<size_t>(limit, k_request_new);
    return (session->perms & k_perm_write) != 0 ? limit : std::min<size_t>(limit, k_request_read);
}

/* The client has yet to read it, and is still sending. */
int refuse_request(ccd_session *session, const char *id) {
    limit_met(k_limit_request_size, "request too long, closing session of user '%s'",
              session->username ? session->username : "");
    session_free_collected(session);
    session_writef(session, "%s BAD request too long\n", id);
    session->refused = 1;
    return -1;
}

/* Appends a copy of the line to the request, record and text in one block. */
int collect_line(ccd_session *session, const char *id, const char *text) {
    const size_t size = strlen(text) + 1;
    const size_t taken = collected_size(size);
    if (session->curr_cmd_bytes + taken > request_limit(session))
        return refuse_request(session, id);
    void *block = malloc(sizeof(line) + size);
    if (!block) return refuse(session, "no memory for a request, closing session");
    char *copy = static_cast<char *>(block) + sizeof(line);
    memcpy(copy, text, size);
    auto *collected = new (block) line{nullptr, copy};
    *session->curr_cmd_tail = collected;
    session->curr_cmd_tail = &collected->next;
    session->curr_cmd_bytes += taken;
    return 0;
}

int complete_request(ccd_session *session, const char *id, const char *text) {
    session->final_line = line{nullptr, const_cast<char *>(text)};
    *session->curr_cmd_tail = &session->final_line;
    session->curr_cmd_tail = &session->final_line.next;
    const int result = session_process_command(session, id, text);
    session_free_collected(session);
    return result;
}

}  // namespace

int session_process_input(ccd_session *session) {
    if (session->refused) return -1;
    if (!session->inbuf || session->stalled || session->login_ticket != 0) return 0;
    if (!turn_must_wait(session)) return session_take_turn(session);
    session_stall(session);
    set_watching(session);
    return 0;
}

int session_take_turn(ccd_session *session) {
    session->stalled = 0;
    if (!session->inbuf || loop_stopping()) return 0;
    session_filter_input(session);
    const int result = frame_lines(session);
    if (!session->inbuf) return result;
    session_settle_input(session);
    set_watching(session);
    return result;
}

int session_process_line(ccd_session *session, const char *text) {
    if (log_protocol_is_open()) log_protocol("C: ", text, strlen(text));
    char id[k_tag_size];
    const size_t id_length = run_length(text, is_tag_char, k_tag_size - 1);
    memcpy(id, text, id_length);
    id[id_length] = '\0';

    session_timeout_check(session);
    if (session->state == k_session_logout) {
        session_writef_logout_reason(session, id);
        return -1;
    }
    session->last_action = request_time;
    const current_session current{session};
    /* Only the tag's own length is compared: "a" goes on with what "ab" began. */
    if (session->curr_cmd && strncmp(session->curr_cmd->line, id, id_length) != 0) {
        session_writef(session, "%s BAD id unexpected\n", id);
        return 0;
    }
    switch (text[id_length]) {
        case ' ':
            return complete_request(session, id, text);
        case '.':
            return collect_line(session, id, text);
        default:
            session_writef(session, "%s BAD id invalid\n", id);
            return 0;
    }
}

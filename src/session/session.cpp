/* The session record: what it is, and how it comes and goes.
 *
 * A session is two things that usually coincide: a connection (two buffers, two registrations in
 * the event loop) and a login (a user, permission bits, a transaction context). A connection starts
 * without a login. A login outlives its connection: the record is suspended, and a new connection
 * that knows the identifier moves the login into its own record.
 *
 * The way of a request: the read callback (daemon/connection) appends to inbuf; protocol.cpp cuts
 * lines, checks tag and state and collects the lines of a request; commands.cpp finds the row of
 * the command table; the handler (login, query, admin, change, submit, commit) checks permission
 * with checks.cpp, resolves the path, calls one parameter operation and writes its reply with
 * output.cpp; the write callback drains outbuf.
 *
 * A few commands do not end when their handler returns: they run in a child (bgexec.cpp), and until
 * its end the session is locked and its further lines stay in inbuf. A job and its session know
 * each other only loosely, since either may go first.
 *
 * What may never happen: a record freed while a callback or a list walk further up the stack still
 * holds it. So nothing that runs below a callback frees a session. It is closed or discarded, that
 * is marked, and session_sweep frees it between two dispatch passes. The same sweep goes on with
 * sessions whose input had to wait: for a job's end, for a client that reads too slowly, or for
 * others' turns (turns.h).
 */
#include "session/session.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include "daemon/log.h"
#include "daemon/trace.h"
#include "session/bgexec.h"
#include "session/change.h"
#include "ucfgd/guaranteed_memset.h"
#include "ucfgd/owners.h"
#include "ucfgd/uptime.h"

static_assert(offsetof(ccd_session, next) == 0);

ccd_session *g_session_list = nullptr;
long g_session_count = 0;
ccd_session *g_current_session = nullptr;
long request_time = 0;
int g_session_sweep_needed = 0;
int g_session_timeout = k_default_session_timeout;
int g_access_override = 0;

namespace {

/* Where the next session is linked. */
ccd_session **g_list_end = &g_session_list;

/* How many connections have been given up since the start. */
unsigned long g_left = 0;

void finish_registration(fd_callback *&registration) {
    if (!registration) return;
    loop_finish(registration);
    registration->data = nullptr;
    registration = nullptr;
}

/* Input may hold a password. */
void free_input(databuf *&buffer) {
    if (buffer && buffer->buf) {
        guaranteed_memset(buffer->buf, 0, static_cast<size_t>(buffer->size));
    }
    destroy_databuf(buffer);
    buffer = nullptr;
}

void free_buffers(ccd_session *session) {
    free_input(session->inbuf);
    destroy_databuf(session->outbuf);
    session->outbuf = nullptr;
    session->filtered = 0;
    session->scanned = 0;
    session_free_collected(session);
}

const char *state_name(int state) {
    static constexpr const char *k_names[] = {"unknown", "LOGGED", "LOGOUT", "SUSPENDED"};
    return state > 0 && state < static_cast<int>(std::size(k_names)) ? k_names[state] : k_names[0];
}

}  // namespace

ccd_session *create_session(void) {
    owned<ccd_session, destroy_session> session{
        static_cast<ccd_session *>(calloc(1, sizeof(ccd_session)))};
    if (!session) return nullptr;
    session->inbuf = create_databuf();
    session->outbuf = create_databuf();
    if (!session->inbuf || !session->outbuf) return nullptr;
    session->curr_cmd_tail = &session->curr_cmd;
    session->timeout = g_session_timeout;
    session->last_action = get_uptime();
    return session.release();
}

void destroy_session(ccd_session *session) {
    if (!session) return;
    bgexec_move_session(session, nullptr);
    finish_registration(session->fdcb_in);
    finish_registration(session->fdcb_out);
    for (fd_callback *other = g_cb_plain; other; other = other->next_marked) {
        if (other->data != session) continue;
        loop_finish(other);
        other->data = nullptr;
    }
    free_buffers(session);
    free(session->username);
    free(session->sessionid);
    free(session->exec_user);
    free(session->listenname);
    free(session->ucred);
    free(session->auth_method);
    free(session->hlxaaa_sid);
    session_forget_commit_order(session);
    destroy_path_value_item_list(session->sanity_list);
    if (session->backend_ctx_sub) trns_destroy_ctx(session->backend_ctx_sub);
    if (session->backend_ctx != g_trns_ctx) trns_destroy_ctx(session->backend_ctx);
    if (g_current_session == session) g_current_session = nullptr;
    free(session);
}

void close_session(ccd_session *session) {
    bgexec_hang_up(session);
    finish_registration(session->fdcb_in);
    finish_registration(session->fdcb_out);
    free_buffers(session);
    if (session->state == k_session_new) session->discarded = 1;
    if (session->left == 0) session->left = ++g_left;
    g_session_sweep_needed = 1;
    /* A terminated session must not come back through RESUME with the rights it has lost. */
    if (session->state != k_session_logout) session->state = k_session_suspended;
}

void session_discard(ccd_session *session) {
    close_session(session);
    session->state = k_session_logout;
    free(session->sessionid);
    session->sessionid = nullptr;
    session->discarded = 1;
    g_session_sweep_needed = 1;
}

void session_stall(ccd_session *session) {
    static unsigned long last = 0;
    session->stalled = 1;
    session->queue = ++last;
    g_session_sweep_needed = 1;
}

void session_free_collected(ccd_session *session) {
    for (line *collected : removal_safe(session->curr_cmd)) {
        if (collected != &session->final_line) free(collected);
    }
    session->curr_cmd = nullptr;
    session->curr_cmd_tail = &session->curr_cmd;
    session->curr_cmd_bytes = 0;
}

void session_forget_commit_order(ccd_session *session) {
    free(session->commit_comment);
    session->commit_comment = nullptr;
    session->commit_trial = 0;
}

void add_session(ccd_session *session) {
    if (!g_session_list) { /* which may have been taken away as a whole */
        g_list_end = &g_session_list;
        g_session_count = 0;
    }
    session->link = g_list_end;
    *g_list_end = session;
    g_list_end = &session->next;
    g_session_count++;
}

void remove_session(ccd_session *session) {
    if (!session->link) return;
    *session->link = session->next;
    if (session->next)
        session->next->link = session->link;
    else
        g_list_end = session->link;
    session->link = nullptr;
    g_session_count--;
}

void session_dump_all(ccd_session *current) {
    int number = 0;
    for (const ccd_session *session = g_session_list; session; session = session->next) {
        char text[256];
        const char *sid = session->hlxaaa_sid;
        int size =
            snprintf(text, sizeof(text), "%s %3i: sid=[%s], state=[%s], idle %lu sec",
                     session == current ? "==>" : "   ", number++,
                     session->sessionid ? session->sessionid : "", state_name(session->state),
                     static_cast<unsigned long>(request_time - session->last_action));
        size += sid ? snprintf(text + size, sizeof(text) - static_cast<size_t>(size),
                               ", hlxaaa_sid=[%s]\n", sid)
                    : snprintf(text + size, sizeof(text) - static_cast<size_t>(size),
                               " of %i timeout.\n", session->timeout);
        log_text(1, text, static_cast<size_t>(size));
    }
    log_text(1, "\n", 1);
}

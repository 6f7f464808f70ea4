/* LOGIN, LOGINFORCE, LOGOUT, RESUME and NOOP. */

#include "session/login.h"

#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <strings.h>
#include <sys/random.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "auth/grants.h"
#include "auth/hlxaaa.h"
#include "auth/session_auth.h"
#include "daemon/trace.h"
#include "hlxauth/hlxauth.h"
#include "session/bgexec.h"
#include "session/counters.h"
#include "session/login_gate.h"
#include "session/protocol.h"
#include "tavevent/tavevent.h"
#include "tree/param_ops.h"
#include "ucfgd/escape.h"
#include "ucfgd/guaranteed_memset.h"
#include "ucfgd/owners.h"
#include "ucfgd/words.h"

namespace {

constexpr size_t k_user_size = 64;
constexpr size_t k_password_size = 256;
constexpr int k_event_source = 6; /* the event library's number for this daemon */

/* What the collected lines of a login ask for. */
struct wish {
    int perms = k_perm_read | k_perm_write | k_perm_exec;
    int timeout = g_session_timeout;
};

/* The password's buffer, wiped on every way out. */
struct password_buffer {
    password_buffer() { text[0] = '\0'; }
    password_buffer(const password_buffer &) = delete;
    password_buffer &operator=(const password_buffer &) = delete;
    ~password_buffer() { guaranteed_memset(text, 0, sizeof(text)); }
    char text[k_password_size];
};

const char *or_none(const char *text) {
    return text ? text : "";
}

int perms_of_words(const char *words) {
    static constexpr std::pair<const char *, int> k_words[] = {
        {"read", k_perm_read}, {"write", k_perm_write}, {"exec", k_perm_exec}};
    int perms = 0;
    char word[k_user_size];
    while (dup_next_word_b(&words, word, sizeof(word)) > 0) {
        for (const auto &[name, bit] : k_words) {
            if (strcasecmp(word, name) == 0) perms |= bit;
        }
    }
    return perms;
}

int clamped_int(const char *text) {
    const long value = strtol(text, nullptr, 10);
    return static_cast<int>(std::clamp<long>(value, INT_MIN, INT_MAX));
}

wish wish_of(const line *collected) {
    wish wanted;
    char word[k_user_size];
    for (; collected; collected = collected->next) {
        const char *rest = collected->line;
        dup_next_word_b(&rest, word, sizeof(word));
        dup_next_word_b(&rest, word, sizeof(word));
        if (strcasecmp(word, "perms") == 0) {
            wanted.perms = perms_of_words(rest);
        } else if (strcasecmp(word, "timeout") == 0) {
            dup_next_word_b(&rest, word, sizeof(word));
            wanted.timeout = clamped_int(word);
        }
    }
    return wanted;
}

bool emits_events(const ccd_session *session) {
    const char *method = or_none(session->auth_method);
    return strcmp(method, "usercred") != 0 && strcmp(method, "hlxaaa") != 0;
}

/* Logs every other writer out. Returns the user of the last one, or null. */
owned_str force_writers_out(const ccd_session *session) {
    owned_str last;
    for (ccd_session *other = g_session_list; other; other = other->next) {
        const bool alive = other->state == k_session_logged || other->state == k_session_suspended;
        if (other == session || !alive || (other->perms & k_perm_write) == 0) continue;
        session_terminate_with_reason(other, k_reason_forced);
        last = dup_str(or_none(other->username));
    }
    return last;
}

void init_access_lists(const ccd_session *session) {
    if (!session->hlxaaa_sid) return;
    sid_data sid;
    if (hlx_auth_session_sid_data(session->hlxaaa_sid, &sid) != 0) {
        daemon_log(LOG_ERR, "Aborting ACL Initialization; invalid session");
    } else if (hlxaaa_acl_init(&sid) == -1) {
        daemon_log(LOG_ERR, "ACL Inititalization Failed");
    }
}

void write_welcome(ccd_session *session, const char *id) {
    const int perms = session->perms;
    if (perms == 0) {
        session_writef(session, "%s.1 PERMS none\n", id);
    } else {
        session_writef(session, "%s.1 PERMS%s%s%s\n", id, perms & k_perm_read ? " read" : "",
                       perms & k_perm_write ? " write" : "", perms & k_perm_exec ? " exec" : "");
    }
    session_writef(session, "%s.1 SESSION %s\n", id, session->sessionid);
    session_writef(session, "%s OK\n", id);
}

void refuse_login(ccd_session *session, const char *id, const char *user) {
    if (g_auth_message) {
        session_writef(session, "%s NO %s\n", id, g_auth_message);
    } else {
        session_writef(session, "%s NO auth failed\n", id);
    }
    g_counters.refused_logins++;
    login_gate_report(session, user);
    login_gate_refuse(session);
}

void refuse_force(ccd_session *session, const char *id) {
    session_writef(session, "%s NO you do not have write permission\n", id);
    g_counters.refused_logins++;
    login_gate_refuse(session);
}

/* The second half of a login: the password was right. */
void admit(ccd_session *session, const char *id, const char *user, const grant &granted,
           bool force) {
    const wish wanted = wish_of(session->curr_cmd);
    owned_str exec_user;
    if (granted.exec_user) exec_user = dup_str(granted.exec_user);
    if ((granted.exec_user && !exec_user) ||
        session_login(session, id, user, wanted.perms & granted.perms) != 0) {
        session_writef(session, "%s ERR %s\n", id, strerror(errno));
        daemon_log(LOG_ERR, "login of user %s failed: %s", user, strerror(errno));
        return;
    }
    if (exec_user) {
        free(session->exec_user);
        session->exec_user = exec_user.release();
    }
    session->timeout = wanted.timeout;
    const owned_str forced = force ? force_writers_out(session) : nullptr;
    init_access_lists(session);
    write_welcome(session, id);
    daemon_log(LOG_NOTICE, "user %s logged in successfully", user);
    if (forced) {
        writeevt(TAVEVENT_LOGIN_FORCED, "ss", user, forced.get());
    } else if (emits_events(session)) {
        writeevt(TAVEVENT_LOGIN, "si", user, k_event_source);
    }
}

ccd_session *find_by_sessionid(const char *sessionid) {
    for (ccd_session *session = g_session_list; session; session = session->next) {
        if (session->sessionid && strcmp(session->sessionid, sessionid) == 0) return session;
    }
    return nullptr;
}

void move_string(char *&to, char *&from) {
    free(to);
    to = std::exchange(from, nullptr);
}

void take_over(ccd_session *session, ccd_session *found) {
    move_string(session->sessionid, found->sessionid);
    move_string(session->username, found->username);
    move_string(session->hlxaaa_sid, found->hlxaaa_sid);
    move_string(session->exec_user, found->exec_user);
    move_string(session->auth_method, found->auth_method);
    move_string(session->commit_comment, found->commit_comment);
    session->commit_trial = found->commit_trial;
    if (session->backend_ctx != g_trns_ctx) trns_destroy_ctx(session->backend_ctx);
    session->backend_ctx = std::exchange(found->backend_ctx, g_trns_ctx);
    session->perms = found->perms;
    session->timeout = found->timeout;
    session->state = k_session_logged;
    session->flags |= found->flags & k_session_locked;
    bgexec_move_session(found, session);
    session_discard(found);
}

}  // namespace

int session_process_noop(ccd_session *session, const char *id, const char *) {
    session_write_reply(session, id, " OK", "");
    return 0;
}

int session_process_login(ccd_session *session, const char *id, const char *args, int force) {
    if (session->state == k_session_logged) {
        session_writef(session, "%s ERR already logged in\n", id);
        return 0;
    }
    char user[k_user_size];
    password_buffer password;
    dup_next_word_b(&args, user, sizeof(user));
    dup_next_word_b(&args, password.text, sizeof(password.text));
    unescape_b(password.text, password.text);
    if (user[0] == '\0') {
        session_writef(session, "%s ERR no username\n", id);
        return 0;
    }
    g_auth_quiet = login_gate_is_quiet(session);
    grant granted = granted_to(user);
    grant most = granted;
    if (force) grant_to_members(session, user, nullptr, most);
    /* Before the password is looked at: whoever may not write has no use for trying. */
    if (force && (most.perms & k_perm_write) == 0) {
        refuse_force(session, id);
        return 0;
    }
    const bool accepted = session_auth(session, user, password.text) == 0;
    /* A method that runs a helper may have taken the signal of a job's end for that of its own. */
    if (g_bgexec_ctx_list) raise(SIGCHLD);
    if (accepted) grant_to_members(session, user, session->auth_method, granted);
    if (accepted && force && (granted.perms & k_perm_write) == 0) {
        refuse_force(session, id);
    } else if (accepted) {
        admit(session, id, user, granted, force != 0);
    } else {
        refuse_login(session, id, user);
    }
    return 0;
}

int session_process_logout(ccd_session *session, const char *id, const char *) {
    session_writef(session, "%s OK\n", id);
    session_terminate_with_reason(session, k_reason_logout);
    daemon_log(LOG_NOTICE, "user %s logged out", or_none(session->username));
    if (emits_events(session)) {
        writeevt(TAVEVENT_LOGOUT, "si", or_none(session->username), k_event_source);
    }
    return -1;
}

int session_process_resume(ccd_session *session, const char *id, const char *args) {
    if (session->state == k_session_logged) {
        session_writef(session, "%s ERR already logged in\n", id);
        return 0;
    }
    char sessionid[k_sessionid_size];
    dup_next_word_b(&args, sessionid, sizeof(sessionid));
    ccd_session *found = find_by_sessionid(sessionid);
    if (!found) {
        session_writef(session, "%s NO invalid session id\n", id);
        return 0;
    }
    session_timeout_check(found);
    if (found->state == k_session_suspended) {
        take_over(session, found);
        session_writef(session, "%s OK welcome back %s\n", id, or_none(session->username));
        daemon_log(LOG_NOTICE, "user %s resumed session", or_none(session->username));
    } else if (found->state == k_session_logout) {
        session_writef_logout_reason(session, id);
        session_discard(found);
    } else {
        session_writef(session, "%s INUSE not suspended\n", id);
    }
    return 0;
}

int session_login(ccd_session *session, const char *, const char *user, int perms) {
    char identifier[k_sessionid_size];
    if (create_sessionid(identifier) != 0) return -1;
    owned_str username = dup_str(user);
    owned_str sessionid = dup_str(identifier);
    if (!username || !sessionid) return -1;
    if ((perms & (k_perm_read | k_perm_write)) != 0) ccd_revert(session->backend_ctx);
    if ((perms & k_perm_write) != 0) {
        trns_ctx *copy = trns_copy_ctx(g_trns_ctx);
        if (!copy) {
            errno = ENOMEM;
            return -1;
        }
        if (session->backend_ctx != g_trns_ctx) trns_destroy_ctx(session->backend_ctx);
        session->backend_ctx = copy;
    }
    free(session->username);
    free(session->sessionid);
    session->username = username.release();
    session->sessionid = sessionid.release();
    session->perms = perms;
    session->state = k_session_logged;
    return 0;
}

int create_sessionid(char *buffer) {
    std::array<unsigned char, 8> random;
    const unique_fd device{open("/dev/urandom", O_RDONLY | O_CLOEXEC)};
    const ssize_t got = device ? read(device.get(), random.data(), random.size())
                               : getrandom(random.data(), random.size(), 0);
    if (got != static_cast<ssize_t>(random.size())) {
        if (got >= 0) errno = EIO;
        return -1;
    }
    const auto word = [&](size_t at) {
        return uint32_t{random[at]} << 24 | uint32_t{random[at + 1]} << 16 |
               uint32_t{random[at + 2]} << 8 | uint32_t{random[at + 3]};
    };
    snprintf(buffer, k_sessionid_size, "%.8x%.8x", word(0), word(4));
    return 0;
}

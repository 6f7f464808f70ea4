/* Connections end: the daemon is upgraded, a network hiccups, a laptop sleeps. The daemon keeps a
 * session whose connection went away, and this class takes it up again, so that changes that were
 * not yet committed survive. Three rules:
 *
 *   - before a request, a connection that is known to be dead is replaced, and the request then
 * runs as if nothing had happened;
 *   - a query that was under way is asked again; a change is not, since it may have been carried
 *     out;
 *   - when the session is gone for good, a new one begins, and the user is told that the changes
 * are lost. A session that another writer ended by force is not replaced behind the user's back.
 */
#include "ucfgsh/session.h"

#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <thread>

#include "ucfgd/guaranteed_memset.h"
#include "ucfgsh/terminal.h"

namespace ucfgsh {

namespace {

constexpr int k_reconnect_attempts = 12;
constexpr std::chrono::milliseconds k_reconnect_pause{250};
constexpr int k_first_attempts = 40;
constexpr std::chrono::milliseconds k_first_pause{50};
constexpr int k_attempts_at_end = 5;
constexpr int k_patience_at_end = 1000;
constexpr const char *k_no_write = "you do not have write permission";

void wipe(std::string &text) {
    guaranteed_memset(text.data(), 0, text.size());
}

bool session_ended(int code, const std::string &text) {
    return (code == k_ucfg_refused &&
            (text == "timed out" || text == "logged out" || text == "login required")) ||
           (code == k_ucfg_inuse && text == "you have been logged out");
}

}  // namespace

session::session(const options &opts, std::function<void(const std::string &)> tell)
    : opts_(opts),
      tell_(std::move(tell)),
      conn_(ucfg_create()),
      user_(opts.user),
      force_(opts.force) {
    if (!conn_) throw std::bad_alloc{};
    ucfg_set_timeout(conn_.get(), patience());
    ucfg_set_interrupt(conn_.get(), &g_interrupted);
}

int session::connect() {
    if (opts_.host || opts_.port)
        return ucfg_connect_tcp(conn_.get(), opts_.host ? opts_.host->c_str() : nullptr,
                                opts_.port ? opts_.port->c_str() : nullptr);
    return ucfg_connect_local(conn_.get(),
                              opts_.socket_path ? opts_.socket_path->c_str() : nullptr);
}

/* A daemon that is being started or upgraded has no socket, or one that refuses, for a moment. */
int session::connect_with_patience() {
    for (int i = 0;; i++) {
        int code = connect();
        if (code != k_ucfg_unreachable || (errno != ENOENT && errno != ECONNREFUSED)) return code;
        bool local = !opts_.host && !opts_.port;
        if (!local || opts_.complete_line || g_interrupted || i == k_first_attempts) return code;
        std::this_thread::sleep_for(k_first_pause);
    }
}

std::string session::explain() const {
    int code = ucfg_last(conn_.get());
    std::string text = ucfg_text(conn_.get());
    if (text.empty()) text = ucfg_code_name(code);
    std::string hint = advice(code, text);
    return hint.empty() ? text : text + "\n  " + hint;
}

int session::open(int perms) {
    perms_ = perms;
    if (connect_with_patience() != k_ucfg_ok) {
        tell_(explain());
        return k_exit_unreachable;
    }
    if (!opts_.session_id) return log_in();
    if (ucfg_resume(conn_.get(), opts_.session_id->c_str()) != k_ucfg_ok) {
        tell_("session " + *opts_.session_id + " cannot be taken up: " + explain());
        return k_exit_login;
    }
    logged_in_ = resumed_foreign_ = true;
    return k_exit_done;
}

/* A terminal, and nothing that says where the password comes from. */
bool session::may_ask() const {
    return !opts_.password_file && isatty(STDERR_FILENO) != 0;
}

int session::try_login(const std::string &password) {
    ucfg_credentials with{};
    with.user = user_.c_str();
    with.password = password.c_str();
    with.perms = perms_;
    with.force = force_;
    return ucfg_login(conn_.get(), &with);
}

int session::log_in() {
    std::string password;
    if (opts_.password_file) {
        std::string reason;
        auto line = read_password_file(*opts_.password_file, reason);
        if (!line) {
            tell_(*opts_.password_file + ": " + reason);
            return k_exit_usage;
        }
        password = std::move(*line);
    }
    /* The daemon knows who calls over a local socket, so the first attempt needs no password. */
    int code = k_ucfg_refused;
    bool local = !opts_.host && !opts_.port;
    if (!may_ask() || (local && !opts_.user_given)) code = try_login(password);
    if (code == k_ucfg_refused && may_ask() &&
        std::string_view{ucfg_text(conn_.get())} != k_no_write) {
        auto answer = ask_password("Password of " + user_ + ": ");
        if (answer) {
            password = std::move(*answer);
            code = try_login(password);
        } else if (!*ucfg_text(conn_.get())) {
            code = try_login(password);
        }
    }
    wipe(password);
    logged_in_ = code == k_ucfg_ok;
    if (logged_in_) return k_exit_done;
    tell_("log-in of " + user_ + " at " + ucfg_peer(conn_.get()) + " failed: " + explain());
    return code == k_ucfg_refused || code == k_ucfg_failed ? k_exit_login : status_of(code, "");
}

void session::close() {
    if (!logged_in_) return;
    /* A session that was taken up by its id is one whose user knows the id. */
    if (opts_.keep && !opts_.session_id)
        tell_(std::string{"session kept, take it up with --session "} +
              ucfg_session_id(conn_.get()));
    if (!opts_.keep) end();
    ucfg_close(conn_.get());
    logged_in_ = false;
}

/* The rest of an answer that was interrupted may be under way: a log-out goes through a new
 * connection then. Without one the session would wait to be resumed. Whoever leaves does not wait
 * long for that. */
void session::end() {
    const sig_atomic_t interrupted = g_interrupted;
    g_interrupted = 0;
    if (interrupted) ucfg_close(conn_.get());
    ucfg_set_timeout(conn_.get(), k_patience_at_end);
    if (ucfg_alive(conn_.get()) ||
        (*ucfg_session_id(conn_.get()) && resume_with_patience(k_attempts_at_end)))
        ucfg_logout(conn_.get());
    ucfg_set_timeout(conn_.get(), patience());
    if (interrupted) g_interrupted = interrupted;
}

/* The daemon may still be starting, or may not have noticed yet that the old connection is gone. */
bool session::resume_with_patience(int attempts) {
    for (int i = 0; i < attempts && !g_interrupted; i++) {
        if (i > 0) std::this_thread::sleep_for(k_reconnect_pause);
        if (!ucfg_alive(conn_.get()) && ucfg_reconnect(conn_.get()) != k_ucfg_ok) continue;
        int code = ucfg_resume(conn_.get(), nullptr);
        if (code == k_ucfg_ok) return true;
        if (code != k_ucfg_inuse && code != k_ucfg_lost) return false;
    }
    return false;
}

/* What became of the changes of a session that is gone. */
std::string session::loss() const {
    return can_rebase_ && can_rebase_() ? "\"rebase\" makes your changes again"
                                        : "uncommitted changes are lost";
}

bool session::recover() {
    tell_("the connection was lost, trying to take the session up again");
    if (resume_with_patience(k_reconnect_attempts)) {
        tell_("the session is back, with its changes");
        return true;
    }
    logged_in_ = false;
    if (!ucfg_alive(conn_.get())) {
        tell_("no connection: " + explain());
        return false;
    }
    if (!may_replace_) {
        tell_("the session is gone: " + explain() + "\n  " + loss());
        return false;
    }
    if (log_in() != k_exit_done) return false;
    generation_++;
    resumed_foreign_ = false;
    tell_("the old session is gone, this is a new one: " + loss());
    return true;
}

/* The session was ended by the daemon. True in the end only when a new one has begun. */
int session::after_end(int code) {
    std::string text = ucfg_text(conn_.get());
    ucfg_close(conn_.get());
    logged_in_ = false;
    generation_++;
    resumed_foreign_ = false;
    if (code == k_ucfg_inuse) {
        tell_("another writer has logged you out: " + loss() + " (\"login\" begins a new session)");
        return code;
    }
    tell_("the session has ended (" + text + "): " + loss());
    if (!may_replace_ || ucfg_reconnect(conn_.get()) != k_ucfg_ok || log_in() != k_exit_done)
        return code;
    tell_("logged in again");
    return k_ucfg_ok;
}

int session::call(after_loss policy, const request &work) {
    asked_ = false;
    if (!logged_in_) {
        tell_("not logged in: \"login\" begins a session");
        return k_ucfg_lost;
    }
    unsigned before = generation_;
    auto useless = [&] { return policy == after_loss::same_only && generation_ != before; };
    if (!ucfg_alive(conn_.get()) && (!recover() || useless())) return k_ucfg_lost;
    asked_ = true;
    int code = work(conn_.get());
    if (code == k_ucfg_lost && !g_interrupted) {
        if (!recover() || useless()) return k_ucfg_lost;
        if (policy == after_loss::repeat) return work(conn_.get());
        tell_("the request may or may not have been carried out: look before you repeat it");
        return k_ucfg_lost;
    }
    if (session_ended(code, ucfg_text(conn_.get()))) {
        if (after_end(code) != k_ucfg_ok || useless()) return k_ucfg_lost;
        return work(conn_.get());
    }
    return code;
}

int session::quietly(const request &work) {
    if (!logged_in_ || !ucfg_alive(conn_.get())) return k_ucfg_lost;
    return work(conn_.get());
}

int session::log_in_again(const std::string &user, bool force) {
    close();
    user_ = user;
    force_ = force;
    generation_++;
    resumed_foreign_ = false;
    if (connect() != k_ucfg_ok) {
        tell_(explain());
        return k_exit_unreachable;
    }
    return log_in();
}

int status_of(int code, const std::string &text) {
    switch (code) {
        case k_ucfg_ok:
            return k_exit_done;
        case k_ucfg_too_long:
        case k_ucfg_usage:
            return k_exit_usage;
        case k_ucfg_unreachable:
        case k_ucfg_lost:
        case k_ucfg_timeout:
        case k_ucfg_protocol:
            return k_exit_unreachable;
        case k_ucfg_interrupted:
            return k_exit_interrupted;
        default:
            return text == "commit conflict" ? k_exit_conflict : k_exit_failed;
    }
}

std::string advice(int code, const std::string &text) {
    struct row {
        int code;
        std::string_view text; /* what the daemon's or the system's text must contain */
        const char *advice;
    };
    static constexpr row k_rows[] = {
        {k_ucfg_unreachable, "No such file", "is ucfgd running? (--socket names another socket)"},
        {k_ucfg_unreachable, "refused", "is ucfgd running, and does it listen there?"},
        {k_ucfg_unreachable, "Permission denied",
         "only some accounts may open this socket: try as root, or ask the administrator"},
        {k_ucfg_refused, "auth failed",
         "the listener's log-in methods did not accept this user (--user, --password-file)"},
        {k_ucfg_refused, "permission denied",
         "your rights do not reach that far (whoami shows them), or there is no such node"},
        {k_ucfg_refused, "invalid session id", "it has timed out, or the daemon was restarted"},
        {k_ucfg_failed, "parameter not found", "list shows what there is"},
        {k_ucfg_failed, "commit conflict",
         "others have committed since, or a trial was undone: \"rebase\" makes your changes again "
         "on "
         "top of that"},
        {k_ucfg_failed, "session is dirty and not current",
         "others have committed since, or a trial was undone: \"rebase\" makes your changes again "
         "on "
         "top of that, \"revert\" drops them"},
    };
    for (const row &r : k_rows)
        if (r.code == code && text.find(r.text) != std::string::npos) return r.advice;
    return "";
}

}  // namespace ucfgsh

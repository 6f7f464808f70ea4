/* Commands about the session itself. */
#include <poll.h>
#include <unistd.h>

#include "ucfgsh/commands.h"
#include "ucfgsh/script.h"
#include "ucfgsh/terminal.h"

namespace ucfgsh {

namespace {

struct perm_name {
    int bit;
    const char *name;
};

constexpr perm_name k_perm_names[] = {
    {k_ucfg_perm_read, "read"},
    {k_ucfg_perm_write, "write"},
    {k_ucfg_perm_exec, "exec"},
};

}  // namespace

int run_whoami(shell &sh, const arguments &) {
    ucfg_conn *conn = sh.link.conn();
    int code = sh.link.call(after_loss::repeat, ucfg_noop);
    if (code != k_ucfg_ok) return report_failure(sh, "whoami", code);
    std::vector<std::string> perms;
    for (const perm_name &row : k_perm_names)
        if ((ucfg_perms(conn) & row.bit) != 0) perms.emplace_back(row.name);
    if (sh.out.json()) {
        owned_json object = json_object_of({{"user", ucfg_user(conn)},
                                            {"session", ucfg_session_id(conn)},
                                            {"server", ucfg_peer(conn)}});
        json_put(object, "rights", json_list(perms));
        sh.out.document(std::move(object));
        return k_exit_done;
    }
    std::string rights;
    for (const std::string &name : perms)
        rights += (rights.empty() ? "" : " ") + name;
    auto line = [&](const char *name, std::string_view text) {
        sh.out.line(sh.out.paint(style::name, name) + ": " + sh.out.paint(style::value, text));
    };
    line("user", ucfg_user(conn));
    line("rights", rights.empty() ? "none" : rights);
    line("session", ucfg_session_id(conn));
    line("server", ucfg_peer(conn));
    return k_exit_done;
}

namespace {

/* Somebody who types is asked first. */
bool may_drop_changes(shell &sh) {
    if (!sh.interactive || !sh.link.logged_in() || !is_dirty(sh)) return true;
    sh.out.complain("There are uncommitted changes (\"changes\" shows them).");
    std::string answer;
    if (!sh.lines->next(answer, "Drop them? [y/N] ") || (answer != "y" && answer != "yes"))
        return false;
    sh.orders.steps.clear();
    return true;
}

}  // namespace

int run_login(shell &sh, const arguments &args) {
    if (!may_drop_changes(sh)) return k_exit_failed;
    std::string user = args.words.empty() ? sh.opts.user : args.text(0);
    int status = sh.link.log_in_again(user, args.has('f'));
    sh.changes.follow(sh.link);
    if (status != k_exit_done) return status;
    return report_done(sh, "logged in as " + std::string{ucfg_user(sh.link.conn())},
                       json_object_of({{"user", ucfg_user(sh.link.conn())}}));
}

int run_source(shell &sh, const arguments &args) {
    int status = run_script_file(sh, args.text(0));
    if (!sh.out.json() || sh.out.has_errors()) return status;
    /* The commands of the file have had their answers. */
    sh.out.begin_answer("source");
    if (status != k_exit_done) complain_failed(sh, "source", args.text(0) + " was left unfinished");
    return status;
}

int run_quit(shell &sh, const arguments &) {
    sh.quit = true;
    return k_exit_done;
}

namespace {

/* Standard input to the daemon, the daemon's lines to standard output, until both are done. The
 * end is known by a request of our own: its answer comes behind all others. */
class pass_through {
  public:
    explicit pass_through(shell &sh) : sh_(sh), conn_(sh.link.conn()) {}

    int run() {
        int code = k_ucfg_ok;
        while (code == k_ucfg_ok && !finished_ && !g_interrupted) {
            if (ucfg_raw_pending(conn_)) {
                code = print_line();
                continue;
            }
            pollfd watch[2] = {{ucfg_fd(conn_), POLLIN, 0},
                               {input_open_ ? STDIN_FILENO : -1, POLLIN, 0}};
            if (poll(watch, 2, -1) < 0) continue;
            if (watch[1].revents != 0) code = send_input();
            if (code == k_ucfg_ok && watch[0].revents != 0) code = print_line();
        }
        return code;
    }

  private:
    static constexpr const char *k_last_request = "ucfgshlast NOOP\n";
    static constexpr std::string_view k_last_answer = "ucfgshlast ";

    int send_input() {
        char chunk[4096];
        ssize_t got = read(STDIN_FILENO, chunk, sizeof chunk);
        if (got < 0 && errno == EINTR) return k_ucfg_ok;
        if (got > 0) {
            at_line_start_ = chunk[got - 1] == '\n';
            return ucfg_raw_write(conn_, chunk, static_cast<size_t>(got));
        }
        input_open_ = false;
        std::string end = std::string{at_line_start_ ? "" : "\n"} + k_last_request;
        return ucfg_raw_write(conn_, end.data(), end.size());
    }

    int print_line() {
        char *text = nullptr;
        int code = ucfg_raw_read(conn_, &text);
        owned_str line{text};
        if (code != k_ucfg_ok) return code;
        if (!input_open_ && std::string_view{line.get()}.starts_with(k_last_answer))
            finished_ = true;
        else
            sh_.out.now(sh_.out.paint(style::plain, line.get()));
        return k_ucfg_ok;
    }

    shell &sh_;
    ucfg_conn *conn_;
    bool input_open_ = true;
    bool at_line_start_ = true;
    bool finished_ = false;
};

}  // namespace

int run_raw(shell &sh, const arguments &) {
    if (sh.lines) return complain_usage(sh, "raw is for the command line: ucfgsh raw <FILE");
    int code = pass_through{sh}.run();
    /* Whoever sends LOGOUT knows that the daemon hangs up. */
    if (code == k_ucfg_ok || code == k_ucfg_lost) return k_exit_done;
    return report_failure(sh, "raw", code);
}

}  // namespace ucfgsh

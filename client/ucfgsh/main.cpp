/* The ways in: one command, a script, a terminal, and completion for the shell. */
#include <unistd.h>

#include <clocale>
#include <csignal>
#include <cstdio>

#include "ucfgsh/commands.h"
#include "ucfgsh/completion.h"
#include "ucfgsh/interactive.h"
#include "ucfgsh/script.h"
#include "ucfgsh/terminal.h"

namespace {

using namespace ucfgsh;

bool wants_color(const options &opts) {
    if (opts.color != when::automatic) return opts.color == when::always;
    const char *term = getenv("TERM");
    const char *refused = getenv("NO_COLOR");
    return isatty(STDOUT_FILENO) && !(refused && *refused) && term &&
           std::string_view{term} != "dumb";
}

int open_session(shell &sh, int perms) {
    int status = sh.link.open(perms);
    if (status != k_exit_done && sh.out.json()) {
        sh.out.begin_answer(sh.opts.command.empty() ? "login"
                                                    : find_command(sh.opts.command[0])->name);
        report_failure(sh, "login", ucfg_last(sh.link.conn()));
    }
    return status;
}

/* On standard error, so that what a command prints stays as it is. */
void tell_done(shell &sh, bool commits, bool changes) {
    if (sh.done.empty()) return;
    std::string what = sh.done;
    if (sh.opts.check)
        what += ": possible; it was only tried";
    else if (commits)
        what += sh.number.empty() ? "" : " (commit " + sh.number + ")";
    else if (changes)
        what += " (not committed)";
    sh.out.complain(what);
}

/* One command from the command line. Whoever types "ucfgsh set PATH VALUE" means the file, so a
 * change is committed; the words come from another shell, which has taken its quotes off already.
 */
int run_once(shell &sh) {
    std::vector<word> line;
    for (const std::string &text : sh.opts.command)
        line.push_back({text, text, 0});
    const command *row = find_command(line[0].text);
    if (!row) return run_command(sh, line);
    bool about_commands =
        row->name == "help" && (line.size() == 1 || find_command(line[1].text) != nullptr);
    if (about_commands || (row->name == "quit" && !sh.opts.session_id))
        return run_command(sh, line);
    bool commits = row->changes && !sh.opts.check && (sh.opts.commit || !sh.opts.keep);
    /* What a commit's services have answered is for who may execute. */
    int wanted = sh.opts.keep ? 0 : row->perms | (commits ? k_ucfg_perm_exec : 0);
    int status = open_session(sh, sh.opts.perms != 0 ? sh.opts.perms : wanted);
    if (status != k_exit_done) return status;
    status = run_command(sh, line);
    if (commits) status = commit_once(sh, status);
    if (status == k_exit_done) tell_done(sh, commits, row->changes);
    return status;
}

int run_whole_script(shell &sh, const std::string &name) {
    int status = open_session(sh, sh.opts.perms);
    if (status != k_exit_done) return status;
    status = run_script_file(sh, name);
    if (!is_dirty(sh)) return status;
    if (sh.opts.commit && status == k_exit_done) return commit_script(sh);
    if (sh.opts.keep) return status;
    sh.out.complain(sh.prefix +
                    "the script has ended without a commit: its changes are lost (--commit)");
    return status == k_exit_done ? k_exit_uncommitted : status;
}

int run_terminal(shell &sh) {
    sh.prefix = "";
    int status = open_session(sh, sh.opts.perms);
    if (status != k_exit_done) return status;
    sh.link.allow_new_session(true);
    printf("Connected to %s as %s. \"help\" lists the commands, \"?\" and Tab help while typing.\n",
           ucfg_peer(sh.link.conn()), ucfg_user(sh.link.conn()));
    return run_interactive(sh);
}

int run_completion(shell &sh) {
    const std::string &line = *sh.opts.complete_line;
    size_t blank = line.find(' ');
    const command *row = blank == std::string::npos ? nullptr : find_command(line.substr(0, blank));
    if (row && sh.link.open(k_ucfg_perm_read) != k_exit_done) return k_exit_done;
    candidates found = complete(sh, line);
    for (const std::string &item : found.items)
        sh.out.line(item);
    return k_exit_done;
}

int run(shell &sh) {
    if (sh.opts.complete_line) return run_completion(sh);
    if (!sh.opts.command.empty()) return run_once(sh);
    if (sh.opts.script) return run_whole_script(sh, *sh.opts.script);
    if (!isatty(STDIN_FILENO)) return run_whole_script(sh, "-");
    return run_terminal(sh);
}

int start(int argc, char **argv) {
    options opts;
    if (auto status = parse_options(argc, argv, opts)) return *status;
    bool quiet = opts.complete_line.has_value();
    bool tty = isatty(STDOUT_FILENO) != 0;
    output out{opts.json, wants_color(opts) && !opts.json, tty, tty && isatty(STDIN_FILENO)};
    change_log changes;
    shell *here = nullptr;
    session link{opts, [&](const std::string &text) {
                     if (!quiet) out.complain((here ? here->prefix : "") + text);
                 }};
    shell sh{opts, link, out, changes, nullptr, "ucfgsh: ", false, false, 0};
    here = &sh;
    link.ask_about_loss([&] { return !sh.orders.steps.empty(); });
    int status = run(sh);
    sh.out.end_answer(status == k_exit_done);
    link.close();
    if (!out.flush() && status == k_exit_done) status = k_exit_failed;
    return g_interrupted ? k_exit_interrupted : status;
}

}  // namespace

int main(int argc, char **argv) {
    setlocale(LC_ALL, "");
    signal(SIGPIPE, SIG_IGN);
    ucfgsh::catch_interrupts();
    try {
        return start(argc, argv);
    } catch (const std::exception &problem) {
        fprintf(stderr, "ucfgsh: %s\n", problem.what());
        return k_exit_failed;
    }
}

/* ucfgsh is a table of commands with three ways in: one command from the command line (main.cpp),
 * lines of a script (script.cpp), and lines typed at a terminal (interactive.cpp). All three end in
 * run_command(), so that a command behaves alike wherever it comes from.
 *
 * A command gets a `shell`, the bundle of what it may use: the session, which takes care of log-in
 * and lost connections; the output, which decides between text and JSON, colours and a pager; the
 * change log, which remembers values from before they were changed; and a source of further lines.
 * It does one thing with libucfg, prints through the output, and returns an exit status.
 *
 * People type paths and values as they think of them. What travels is escaped, by libucfg alone;
 * resolve_path() is the one place where typed text becomes a path, print_path() the one where a
 * path becomes text again, and what is printed can always be typed.
 *
 * To add a command: declare its function in commands.h, write it in the file of its kind, and add a
 * row here. Help and completion follow from the row.
 */
#include "ucfgsh/commands.h"

#include <algorithm>
#include <array>
#include <limits>

#include "ucfgsh/teach.h"

namespace ucfgsh {

namespace {

constexpr size_t k_many = std::numeric_limits<size_t>::max();
constexpr int k_r = k_ucfg_perm_read;
constexpr int k_w = k_ucfg_perm_read | k_ucfg_perm_write;
constexpr int k_x = k_ucfg_perm_read | k_ucfg_perm_exec;
constexpr int k_all = k_ucfg_perm_all;

constexpr std::array k_commands{
    command{"get", run_get, "", "p", 1, k_many, k_r, false, "PATH...", "print values"},
    command{"set", run_set, "f:", "pv", 1, 2, k_w, true, "PATH VALUE | -f FILE PATH",
            "change a value (VALUE may be <<WORD: the lines up to WORD)"},
    command{"add", run_add, "", "le", 1, 2, k_w, true, "LIST NAME",
            "add an entry to a list (also LIST.NAME)"},
    command{"del", run_del, "", "le", 1, 2, k_w, true, "LIST NAME",
            "delete an entry of a list (also LIST.NAME)"},
    command{"move", run_move, "", "le", 3, 3, k_w, true, "LIST NAME PLACE",
            "move or rename an entry, as the list defines it"},
    command{"list", run_list, "rm", "p", 0, 1, k_r, false, "[-r] [-m] [PATH]",
            "names below a node (-r: all levels, -m: management tree)"},
    command{"show", run_show, "mc", "p", 0, 1, k_x, false, "[-m] [--commands] [PATH]",
            "a tree with its values (-m: management tree), or the commands that make it"},
    command{"cd", run_cd, "", "p", 0, 1, k_r, false, "[PATH]",
            "begin paths at a section; .PATH begins at the root, \"..\" is one level up"},
    command{"up", run_up, "", "", 0, 0, k_r, false, "", "begin paths one level higher"},
    command{"attr", run_attr, "m", "p", 1, 1, k_r, false, "[-m] PATH",
            "operations, type, length, choices and flags of a node"},
    command{"help", run_help, "m", "c", 0, 1, k_x, false, "[-m] [COMMAND | PATH]",
            "explain a command, a parameter or a management node (-m: that one)"},
    command{"access", run_access, "m", "pr.", 2, k_many, k_r, false, "[-m] PATH rwx [ARGUMENT...]",
            "ask whether access would be granted"},
    command{"info", run_info, "", "m.", 1, k_many, k_x, false, "PATH [ARGUMENT...]",
            "print a management node's text"},
    command{"admin", run_admin, "", "m.", 1, k_many, k_all, false, "PATH [ARGUMENT...]",
            "run a management action"},
    command{"eval", run_eval, "", "..", 1, 2, k_all, false, "EXPRESSION [VALUE]",
            "try an expression on what the session sees ($_ is VALUE); nothing is changed"},
    command{"tree", run_tree, "", "..", 0, 2, k_all, false, "[MODULE [PATH]]",
            "the tree that a parser makes of a module; without one, the names of the modules"},
    command{"submit", run_submit, "f:", ".", 0, k_many, k_w, true, "[-f FILE] [ITEM...]",
            "make several changes or none; without items: the lines up to \"end\""},
    command{"changes", run_changes, "f", "", 0, 0, k_all, false, "[-f]",
            "what is not committed yet (-f: as a diff of the files)"},
    command{"diff", run_diff, "", "", 0, 0, k_all, false, "",
            "the lines of the files that a commit would change"},
    command{"commit", run_commit, "m:t:", "..", 0, 0, k_all, false, "[-m TEXT] [--trial MINUTES]",
            "write the changes to the files (--trial: undone by itself unless confirmed)"},
    command{"confirm", run_confirm, "", "", 0, 0, k_all, false, "",
            "keep the commit that is on trial"},
    command{"cancel", run_cancel, "", "", 0, 0, k_all, false, "",
            "undo the commit that is on trial at once"},
    command{"rebase", run_rebase, "", "", 0, 0, k_all, false, "",
            "make the changes again on what others have committed, or in a new session"},
    command{"history", run_history, "a", "n", 0, 1, k_all, false, "[-a] [N]",
            "the latest commits (-a: all), or everything about commit N"},
    command{"load", run_load, "", "n", 1, 1, k_all, true, "N | FILE",
            "bring the files back to what they were after commit N, or give FILE's commands"},
    command{"save", run_save, "f", ".p", 1, 2, k_r, false, "[-f] FILE [PATH]",
            "write the commands that make a tree to a file (-f: also one that exists)"},
    command{"edit", run_edit, "", "p", 0, 1, k_w, true, "[PATH]",
            "the commands that make a tree in an editor; what differs then is applied"},
    command{"undo", run_undo, "", "n", 1, 1, k_all, true, "N",
            "take what commit N alone has changed back, as changes"},
    command{"watch", run_watch, "", "n", 0, 1, k_x, false, "[N]",
            "a line for each commit, from number N on, as they come; Ctrl-C ends it"},
    command{"revert", run_revert, "", "", 0, 0, k_w, false, "", "drop the changes"},
    command{"update", run_update, "", "", 0, 0, k_w, false, "", "read what others have committed"},
    command{"current", run_current, "", "", 0, 0, k_w, false, "",
            "ask whether others have committed"},
    command{"dirty", run_dirty, "", "", 0, 0, k_w, false, "", "ask whether there are changes"},
    command{"whoami", run_whoami, "", "", 0, 0, k_all, false, "", "user, rights and session"},
    command{"login", run_login, "f", ".", 0, 1, k_all, false, "[-f] [USER]",
            "begin a new session (-f: log every other writer out)"},
    command{"source", run_source, "", ".", 1, 1, k_all, false, "FILE",
            "run the commands of a file"},
    command{"raw", run_raw, "", "", 0, 0, k_all, false, "",
            "pass standard input to the daemon as it is"},
    command{"quit", run_quit, "", "", 0, 0, k_r, false, "", "leave; what is not committed is lost"},
};

constexpr const char *k_trial_advice =
    "\"confirm\" or \"cancel\" ends that; its user may join it by \"commit --trial\"";
/* Without an archive the daemon answers with the system's words alone. */
constexpr const char *k_commit_advice = "the daemon's log names the file or the command";
constexpr const char *k_lost = "not answered, the connection or the session was lost";

constexpr std::array k_results{
    "",
    "no answer from the node's method",
    "refused by the node's method",
    "no such parameter",
    "no such parameter",
    "this node does not support that",
};

constexpr size_t k_no_parameter = 3;

struct long_flag {
    std::string_view name;
    char letter;
};

constexpr std::array k_long_flags{long_flag{"--commands", 'c'}, long_flag{"--message", 'm'},
                                  long_flag{"--trial", 't'}};

const long_flag *find_long_flag(const command &row, const std::string &text) {
    for (const long_flag &flag : k_long_flags)
        if (flag.name == text && row.flags.find(flag.letter) != std::string_view::npos)
            return &flag;
    return nullptr;
}

std::string usage_of(const command &row) {
    std::string text{row.name};
    if (!row.synopsis.empty()) text += " " + std::string{row.synopsis};
    return text;
}

int take_flags(shell &sh, const command &row, const std::vector<word> &line, size_t &at,
               arguments &args) {
    for (at = 1; at < line.size(); at++) {
        std::string text = line[at].text;
        if (line[at].raw.size() < 2 || line[at].raw.front() != '-') return k_exit_done;
        if (text == "--") {
            at++;
            return k_exit_done;
        }
        if (const long_flag *known = find_long_flag(row, text)) text = {'-', known->letter};
        for (size_t i = 1; i < text.size(); i++) {
            size_t found = row.flags.find(text[i]);
            if (text[i] == ':' || found == std::string_view::npos)
                return complain_usage(
                    sh, "unknown flag " + line[at].text + "; usage: " + usage_of(row));
            args.flags[text[i]] = "";
            if (found + 1 >= row.flags.size() || row.flags[found + 1] != ':') continue;
            if (++at >= line.size())
                return complain_usage(sh,
                                      line.back().text + " needs a value; usage: " + usage_of(row));
            args.flags[text[i]] = line[at].text;
            break;
        }
    }
    return k_exit_done;
}

}  // namespace

std::span<const command> all_commands() {
    return k_commands;
}

const command *find_command(std::string_view name) {
    const command *found = nullptr;
    if (name == "exit") name = "quit";
    if (name == "?") name = "help";
    for (const command &row : k_commands) {
        if (row.name == name) return &row;
        if (name.empty() || !row.name.starts_with(name)) continue;
        if (found) return nullptr;
        found = &row;
    }
    return found;
}

namespace {

std::string unknown_command(const std::string &name) {
    std::string fitting;
    for (const command &row : k_commands)
        if (!name.empty() && row.name.starts_with(name))
            fitting += (fitting.empty() ? "" : ", ") + std::string{row.name};
    if (!fitting.empty()) return "\"" + name + "\" could be " + fitting;
    std::vector<std::string> names;
    names.reserve(k_commands.size());
    for (const command &row : k_commands)
        names.emplace_back(row.name);
    std::vector<std::string> near = similar_names(names, name);
    return "unknown command \"" + name + "\"" +
           (near.empty() ? "; \"help\" lists the commands" : did_you_mean(near));
}

}  // namespace

std::vector<std::string> flags_of(const command &row) {
    std::vector<std::string> flags;
    for (char letter : row.flags)
        if (letter != ':') flags.push_back({'-', letter});
    for (const long_flag &flag : k_long_flags)
        if (find_long_flag(row, std::string{flag.name})) flags.emplace_back(flag.name);
    return flags;
}

int run_command(shell &sh, const std::vector<word> &line) {
    if (line.empty()) return k_exit_done;
    const command *row = find_command(line.front().text);
    sh.out.begin_answer(row ? row->name : line.front().text);
    if (!row) {
        std::string use = path_for_command(sh, line.front());
        return complain_usage(
            sh, use.empty() ? unknown_command(line.front().text) : line.front().raw + ": " + use);
    }
    arguments args;
    size_t at = 0;
    int status = take_flags(sh, *row, line, at, args);
    if (status != k_exit_done) return status;
    args.words.assign(line.begin() + static_cast<std::ptrdiff_t>(std::min(at, line.size())),
                      line.end());
    if (args.words.size() < row->least || args.words.size() > row->most)
        return complain_usage(sh, "usage: " + usage_of(*row));
    sh.changes.follow(sh.link);
    /* Single changes tell what they have done to a list: a script may make thousands of them. */
    bool single = row->run == run_set || row->run == run_add || row->run == run_del;
    if (row->perms != k_r && !single) sh.names.forget();
    status = row->run(sh, args);
    if (status != k_exit_done && sh.out.json() && !sh.out.has_errors())
        report_failure(sh, std::string{row->name}, ucfg_last(sh.link.conn()));
    return status;
}

std::string command_help(const command &row) {
    return usage_of(row) + "\n    " + std::string{row.summary};
}

int complain_usage(shell &sh, const std::string &text) {
    if (sh.out.json())
        add_error(sh, {.status = "usage", .message = text});
    else
        sh.out.complain(sh.prefix + text);
    return k_exit_usage;
}

bool is_reason(const std::string &text) {
    return text != "Success" && !text.empty();
}

std::string readable(const std::string &text) {
    constexpr std::string_view k_result = "result=";
    if (!is_reason(text)) return "refused without a reason";
    if (!text.starts_with(k_result) || text.size() < 9) return text;
    auto number = static_cast<size_t>(text[k_result.size()] - '0');
    if (number == 0 || number >= k_results.size() || text[k_result.size() + 1] != ' ') return text;
    std::string reason = text.substr(k_result.size() + 2);
    /* EINVAL is what the daemon says when a method says nothing. */
    bool empty = reason == "Success" || reason == "Invalid argument" ||
                 (number == k_no_parameter && reason == "No such file or directory");
    return empty ? k_results[number] : std::string{k_results[number]} + ": " + reason;
}

void add_error(shell &sh, const problem &what) {
    bool own = what.line != 0;
    const std::string &file = own ? what.file : sh.place.file;
    auto line = static_cast<json_int_t>(own ? what.line : sh.place.line);
    owned_json object = json_object_of({{"status", what.status}, {"message", what.message}});
    auto put = [&](const char *key, const std::string &text) {
        json_put(object, key, json_maybe(text.empty() ? nullptr : text.c_str()));
    };
    put("path", what.path);
    put("id", what.id);
    json_put(object, "args", json_list(what.args));
    put("hint", what.hint);
    put("file", file);
    json_put(object, "line", owned_json{line > 0 ? json_integer(line) : json_null()});
    sh.out.add_error(std::move(object));
}

/* Whether the daemon understood the request and said no. */
static bool answered(int code) {
    return code == k_ucfg_failed || code == k_ucfg_refused;
}

/* Whether a word about the node says all that such a text can say. */
static bool says_little(int code, const std::string &text) {
    return code == k_ucfg_failed &&
           (!is_reason(text) || text == "parameter not found" ||
            text == "No such file or directory" || text.starts_with("result=5 "));
}

bool on_trial(ucfg_conn *conn) {
    const char *id = ucfg_error_id(conn);
    return id && std::string_view{id} == "error.trial" && ucfg_error_arg(conn, 2);
}

static std::string first_word(const std::string &text) {
    return text.substr(0, text.find(' '));
}

/* Other subjects than a path begin with a command. */
static std::string path_in(const std::string &subject) {
    bool names_command = std::any_of(
        k_commands.begin(), k_commands.end(),
        [first = first_word(subject)](const command &row) { return row.name == first; });
    return names_command ? "" : subject;
}

/* Advice asks the daemon, so that what the last call has said is read first. */
static problem about_failure(shell &sh, const std::string &subject, int code, const attempt &what) {
    ucfg_conn *conn = sh.link.conn();
    std::string text = ucfg_text(conn);
    bool trial = on_trial(conn);
    bool conflict = status_of(code, text) == k_exit_conflict;
    problem found{.status = conflict ? "conflict" : ucfg_code_name(code),
                  .message = code <= k_ucfg_inuse ? readable(text) : text};
    /* What the connection said last belongs to the attempts to bring it back. */
    if (code == k_ucfg_lost) found.message = k_lost;
    if (trial)
        found.message = std::string{"a commit of "} + ucfg_error_arg(conn, 0) +
                        " is on trial until " + ucfg_error_arg(conn, 2);
    if (const char *id = ucfg_error_id(conn)) found.id = id;
    for (size_t i = 0; ucfg_error_arg(conn, i); i++)
        found.args.emplace_back(ucfg_error_arg(conn, i));
    std::string first = first_word(subject);
    found.path = path_in(subject);
    if (trial) found.hint = k_trial_advice;
    if (found.hint.empty() && answered(code)) found.hint = next_step(sh, what);
    constexpr std::string_view k_choices = "choices: ";
    if (found.hint.starts_with(k_choices) &&
        found.message.find(found.hint.substr(k_choices.size())) != std::string::npos)
        found.hint.clear();
    if (first == "commit" && code == k_ucfg_failed && !conflict && found.id.empty())
        found.hint = k_commit_advice;
    if (found.hint.empty())
        found.hint = advice(code, text);
    else if (!trial && says_little(code, text))
        found.message = std::exchange(found.hint, "");
    return found;
}

int report_failure(shell &sh, const std::string &subject, int code, const attempt &what) {
    int status = status_of(code, ucfg_text(sh.link.conn()));
    bool trial = on_trial(sh.link.conn());
    problem found = about_failure(sh, subject, code, what);
    if (sh.out.json()) {
        add_error(sh, found);
        return status;
    }
    std::string said = found.message;
    if (!found.id.empty() && !trial) {
        said += " (" + found.id;
        for (size_t i = 0; i < found.args.size(); i++)
            said += (i == 0 ? ": " : ", ") + found.args[i];
        said += ")";
    }
    if (!found.hint.empty()) said += "\n  " + found.hint;
    sh.out.complain(sh.prefix + subject + ": " + said);
    return status;
}

int complain_failed(shell &sh, const std::string &subject, const std::string &text) {
    if (sh.out.json())
        add_error(sh, {.status = "failed", .message = text, .path = path_in(subject)});
    else
        sh.out.complain(sh.prefix + subject + ": " + text);
    return k_exit_failed;
}

bool tells(const shell &sh) {
    return !sh.out.json() && !sh.opts.quiet && (sh.interactive || !sh.lines);
}

int report_done(shell &sh, const std::string &text, owned_json members) {
    if (sh.out.json() && members) sh.out.document(std::move(members));
    if (!tells(sh) || text.empty()) return k_exit_done;
    if (sh.interactive)
        sh.out.line(sh.out.paint(style::faint, text));
    else
        sh.done = text;
    return k_exit_done;
}

std::optional<std::string> take_path(shell &sh, const word &typed, ucfg_tree tree) {
    const char *problem = nullptr;
    auto path = resolve_path(sh, typed.raw, tree, &problem);
    if (path) return path;
    complain_usage(sh, typed.raw + ": " + (problem ? problem : "not a path"));
    return std::nullopt;
}

bool is_dirty(shell &sh) {
    int dirty = 0;
    int code = sh.link.quietly([&](ucfg_conn *conn) { return ucfg_dirty(conn, &dirty); });
    return code == k_ucfg_ok && dirty != 0;
}

}  // namespace ucfgsh

/* The commands: one table, from which come dispatch, usage, help and completion. */
#ifndef UCFGSH_COMMANDS_H
#define UCFGSH_COMMANDS_H

#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "ucfgsh/changes.h"
#include "ucfgsh/lookup.h"
#include "ucfgsh/orders.h"
#include "ucfgsh/output.h"
#include "ucfgsh/session.h"
#include "ucfgsh/words.h"

namespace ucfgsh {

/* Where further lines come from: a script, standard input or the terminal. */
class line_source {
  public:
    line_source() = default;
    line_source(const line_source &) = delete;
    line_source &operator=(const line_source &) = delete;
    virtual ~line_source() = default;

    /* The next line without its newline; false at the end. */
    virtual bool next(std::string &line, const std::string &prompt) = 0;
};

/* The line of a script that is being run; none: line 0. */
struct script_place {
    std::string file;
    unsigned long line = 0;
};

/* Everything that a command works with. */
struct shell {
    const options &opts;
    session &link;
    output &out;
    change_log &changes;
    line_source *lines = nullptr; /* null: there are no further lines */
    std::string prefix;           /* opens every complaint: "ucfgsh: ", "FILE:LINE: " */
    bool interactive = false;
    bool quit = false;
    int depth = 0; /* scripts that read scripts */
    order_book orders = {};
    script_place place = {};
    std::string done = {};   /* what the command has done, for people */
    std::string number = {}; /* of the commit that has made it real */
    std::string here = {};   /* wire path of the section that parameters' paths begin at */
    known_names names = {};
};

struct arguments {
    std::map<char, std::string> flags; /* the value is "" for a flag that takes none */
    std::vector<word> words;

    bool has(char flag) const { return flags.contains(flag); }
    const std::string &text(size_t i) const { return words[i].text; }
};

/* The letters of `kinds`, one an argument (the last one also for all that follow):
 *   p  a parameter's path          m  a management node's path   l  the path of a list
 *   e  an entry of the list        v  a value of the parameter   r  permission letters
 *   c  a command or a path         n  the number of a commit     .  any text */
struct command {
    std::string_view name;
    int (*run)(shell &sh, const arguments &args);
    std::string_view flags; /* as getopt has them */
    std::string_view kinds;
    size_t least, most;
    int perms;    /* what the daemon will want to see */
    bool changes; /* a change: committed when given on the command line */
    std::string_view synopsis;
    std::string_view summary;
};

std::span<const command> all_commands();

/* The command of that name, or the only one that begins with it; null for none. */
const command *find_command(std::string_view name);

/* The flags of a command as one types them: "-m", "--trial". */
std::vector<std::string> flags_of(const command &row);

/* Runs one line, already split; returns an exit_status. */
int run_command(shell &sh, const std::vector<word> &line);

/* "usage: ..." and the summary of one command. */
std::string command_help(const command &row);

/* ---- for the commands themselves ---- */

/* A complaint, with the current prefix; as JSON when JSON is asked for. */
int complain_usage(shell &sh, const std::string &text);

/* A request that failed, for advice about it: the letter of what was wanted (those of ucfg_attr's
 * ops, 'l' for a listing), and on which node. Without a path there is no more to say. */
struct attempt {
    char op = 0;
    ucfg_tree tree = k_ucfg_parameters;
    std::string path = {};
    std::string value = {};
    bool one_word = false;     /* the list and its entry were typed as one path */
    bool knows_entries = true; /* false: those that are missing were to be made */
};

/* Reports a request that ended with `code`: the subject, the daemon's text, its error record and
 * advice. Returns the exit status. */
int report_failure(shell &sh, const std::string &subject, int code, const attempt &what = {});

/* The same for what the daemon did not refuse, or was not asked. Returns k_exit_failed. */
int complain_failed(shell &sh, const std::string &subject, const std::string &text);

/* The end of a request that went well: `text` says what was done, where somebody types at once and
 * on the command line when it is committed, but not in scripts and not when they want it quiet;
 * `members` are for JSON. */
int report_done(shell &sh, const std::string &text, owned_json members = nullptr);

/* Whether report_done() has anybody to tell. */
bool tells(const shell &sh);

/* One line about a node that an older daemon, or one without the feature, does not have. */
int complain_missing(shell &sh, const std::string &what, const char *node);

/* What an action puts out. */
struct action_lines {
    std::vector<std::string> lines, errors;
    bool goes_on = false; /* the last of the lines does, with the next */
};

/* Runs one that only looks; an ucfg_code. */
int collect_action(shell &sh, const std::string &node, action_lines &list);

/* What it said, then how it ended. Returns the exit status. */
int report_action(shell &sh, const char *name, int code, const action_lines &list);

/* Shows the lines of a node that tells changes parameter by parameter. */
void print_changes(shell &sh, const std::vector<std::string> &lines);

/* Whether the last call was refused because of a commit on trial. */
bool on_trial(ucfg_conn *conn);

/* How a line of a difference is shown. */
style diff_style(const std::string &line);

/* Lines in the style of a difference, or as {"lines": [...]}. */
int show_lines(shell &sh, const std::vector<std::string> &lines);

/* Commits what the one command of the command line has changed, which ended with `status`. What was
 * refused because others were quicker, or lost with the session, is tried a few times. */
int commit_once(shell &sh, int status);

/* Commits at the end of a script. */
int commit_script(shell &sh);

/* What went wrong, as all commands tell it in JSON; `line` 0 is that of the script. */
struct problem {
    std::string status, message;
    std::string path = {};
    std::string id = {};
    std::vector<std::string> args = {};
    std::string hint = {};
    std::string file = {};
    unsigned long line = 0;
};
void add_error(shell &sh, const problem &what);

/* Whether the daemon's text says why. An action without one may have said it on its error output.
 */
bool is_reason(const std::string &text);

/* The daemon's text in words that people understand. */
std::string readable(const std::string &text);

/* A wire path of what was typed. A parameter's path begins at `here`, or at the root when a dot
 * leads it; "." is the root, ".." the section above. A management node's always begins at the root.
 * Nothing, with an explanation in `*problem`, when it is no path. */
std::optional<std::string> resolve_path(const shell &sh, std::string_view typed,
                                        ucfg_tree tree = k_ucfg_parameters,
                                        const char **problem = nullptr);

/* The same, with a complaint. */
std::optional<std::string> take_path(shell &sh, const word &typed,
                                     ucfg_tree tree = k_ucfg_parameters);

/* Whether the session holds changes; false too when that cannot be learnt. */
bool is_dirty(shell &sh);

/* The commands that make a part of the tree. */
int show_tree_commands(shell &sh, const std::string &path);

/* Gives the commands of a file, all or none, as far as they change anything. */
int load_file(shell &sh, const std::string &file);

int run_cd(shell &sh, const arguments &args);
int run_up(shell &sh, const arguments &args);
int run_get(shell &sh, const arguments &args);
int run_list(shell &sh, const arguments &args);
int run_show(shell &sh, const arguments &args);
int run_attr(shell &sh, const arguments &args);
int run_help(shell &sh, const arguments &args);
int run_access(shell &sh, const arguments &args);
int run_info(shell &sh, const arguments &args);
int run_admin(shell &sh, const arguments &args);
int run_eval(shell &sh, const arguments &args);
int run_tree(shell &sh, const arguments &args);
int run_set(shell &sh, const arguments &args);
int run_add(shell &sh, const arguments &args);
int run_del(shell &sh, const arguments &args);
int run_move(shell &sh, const arguments &args);
int run_save(shell &sh, const arguments &args);
int run_edit(shell &sh, const arguments &args);
int run_submit(shell &sh, const arguments &args);
int run_changes(shell &sh, const arguments &args);
int run_diff(shell &sh, const arguments &args);
int run_commit(shell &sh, const arguments &args);
int run_confirm(shell &sh, const arguments &args);
int run_cancel(shell &sh, const arguments &args);
int run_rebase(shell &sh, const arguments &args);
int run_history(shell &sh, const arguments &args);
int run_load(shell &sh, const arguments &args);
int run_undo(shell &sh, const arguments &args);
int run_watch(shell &sh, const arguments &args);
int run_revert(shell &sh, const arguments &args);
int run_update(shell &sh, const arguments &args);
int run_current(shell &sh, const arguments &args);
int run_dirty(shell &sh, const arguments &args);
int run_whoami(shell &sh, const arguments &args);
int run_login(shell &sh, const arguments &args);
int run_raw(shell &sh, const arguments &args);
int run_source(shell &sh, const arguments &args);
int run_quit(shell &sh, const arguments &args);

}  // namespace ucfgsh

#endif

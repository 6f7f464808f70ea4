/* What has been committed and by whom, taking it back, and watching. */
#include <algorithm>
#include <array>

#include "ucfgsh/commands.h"
#include "ucfgsh/commits.h"

namespace ucfgsh {

namespace {

constexpr size_t k_shown_commits = 20;
constexpr std::array k_parts{"time", "user", "from", "state", "comment"};

bool is_number(const std::string &text) {
    return !text.empty() && text.size() < 10 &&
           std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

int complain_number(shell &sh, const std::string &text) {
    return complain_usage(sh, "\"" + text + "\" is not the number of a commit");
}

void take_line(int stream, const char *text, void *data) {
    auto *list = static_cast<action_lines *>(data);
    if (stream != 1) {
        list->errors.emplace_back(text);
        return;
    }
    if (list->goes_on)
        list->lines.back() += plain_output(text);
    else
        list->lines.push_back(plain_output(text));
    list->goes_on = output_goes_on(text);
}

/* Runs an action of this daemon and shows what it put out. */
int run_node(shell &sh, const char *name, const char *node, const char *nothing) {
    if (!has_node(sh.link, k_ucfg_management, node)) return complain_missing(sh, name, node);
    action_lines list;
    int code = collect_action(sh, node, list);
    if (code != k_ucfg_ok) return report_action(sh, name, code, list);
    for (const std::string &line : list.errors)
        sh.out.complain(sh.prefix + line);
    if (list.lines.empty() && !sh.out.json()) sh.out.line(nothing);
    return show_lines(sh, list.lines);
}

owned_json commit_json(shell &sh, const std::string &number) {
    owned_json object{json_object()};
    json_put(object, "commit", json_number(number));
    for (const char *part : k_parts)
        json_put(object, part, json_text(commit_part(sh.link, number, part)));
    for (const char *part : {"files", "notes"})
        json_put(object, part, json_list(split_lines(commit_part(sh.link, number, part))));
    return object;
}

int answer_commits(shell &sh, owned_json list) {
    owned_json object{json_object()};
    json_put(object, "commits", std::move(list));
    sh.out.document(std::move(object));
    return k_exit_done;
}

style state_style(const std::string &state) {
    if (state == "done") return style::good;
    return state == "trial" ? style::title : style::bad;
}

void print_row(shell &sh, const std::string &number) {
    auto part = [&](const char *name) { return commit_part(sh.link, number, name); };
    std::string state = part("state");
    if (state.empty()) state = "no record";
    std::string line = sh.out.paint(style::name, number) + "  " + part("time") + "  " +
                       sh.out.paint(style::value, part("user")) + "  " +
                       sh.out.paint(state_style(state), state);
    std::string comment = part("comment");
    if (!comment.empty()) line += "  " + sh.out.paint(style::value, quote_word(comment));
    sh.out.line(line);
    for (const std::string &file : split_lines(part("files")))
        sh.out.line("    " + sh.out.paint(style::faint, file));
}

/* The changes and the differences may be for other users than this one. */
std::vector<std::string> long_part(shell &sh, const std::string &number, const char *part) {
    action_lines list;
    int code = collect_action(sh, std::string{k_history_node} + "." + number + "." + part, list);
    if (code == k_ucfg_ok) return list.lines;
    if (sh.out.json()) return {};
    return {std::string{"("} + part + ": " + readable(ucfg_text(sh.link.conn())) + ")"};
}

/* Who may list the commits may not always ask about them; one may be damaged. */
int ask_first(shell &sh, const std::string &number) {
    char *text = nullptr;
    int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
        std::string node = std::string{k_history_node} + "." + number + ".time";
        return ucfg_info(conn, node.c_str(), nullptr, 0, &text);
    });
    owned_str owner{text};
    if (code == k_ucfg_ok || code == k_ucfg_failed) return k_exit_done;
    return report_failure(sh, "history", code);
}

int show_commit(shell &sh, const std::string &number) {
    std::vector<std::string> numbers = commit_numbers(sh.link);
    if (std::find(numbers.begin(), numbers.end(), number) == numbers.end()) {
        std::string text = "there is no commit " + number;
        if (sh.out.json())
            add_error(sh, {.status = "failed", .message = text});
        else
            sh.out.complain(sh.prefix + "history: " + text);
        return k_exit_failed;
    }
    int status = ask_first(sh, number);
    if (status != k_exit_done) return status;
    std::vector<std::string> changes = long_part(sh, number, "changes");
    std::vector<std::string> diff = long_part(sh, number, "diff");
    if (sh.out.json()) {
        owned_json object = commit_json(sh, number);
        json_put(object, "changes", json_list(changes));
        json_put(object, "diff", json_list(diff));
        owned_json one{json_array()};
        json_array_append_new(one.get(), object.release());
        return answer_commits(sh, std::move(one));
    }
    sh.out.line(sh.out.paint(style::title, "commit " + number));
    for (const char *part : k_parts) {
        std::string text = commit_part(sh.link, number, part);
        if (!text.empty())
            sh.out.line(sh.out.paint(style::name, part) + ": " + sh.out.paint(style::value, text));
    }
    for (const char *part : {"files", "notes"})
        for (const std::string &text : split_lines(commit_part(sh.link, number, part)))
            sh.out.line("  " + sh.out.paint(style::value, text));
    print_changes(sh, changes);
    show_lines(sh, diff);
    return k_exit_done;
}

/* `load` and `undo` are orders like any other: rebase repeats them. */
int take_back(shell &sh, const char *name, const char *parameter, const std::string &number,
              const std::string &done) {
    if (!is_number(number)) return complain_number(sh, number);
    if (!has_node(sh.link, k_ucfg_parameters, parameter))
        return complain_missing(sh, name, parameter);
    int code = run_step(sh, after_loss::report, {{k_ucfg_set, parameter, number}});
    std::string subject = std::string{name} + " " + number;
    if (code != k_ucfg_ok) return report_failure(sh, subject, code);
    if (sh.interactive)
        sh.out.line("\"changes\" and \"diff\" show what \"commit\" would make of it");
    owned_json members{json_object()};
    json_put(members, "number", json_number(number));
    return report_done(sh, sh.interactive ? "" : done + number, std::move(members));
}

void show_at_once(int stream, const char *text, void *data) {
    shell &sh = *static_cast<shell *>(data);
    if (stream != 1) {
        if (*text && sh.out.json())
            sh.out.stream("err", text);
        else if (*text)
            sh.out.complain(sh.prefix + "watch: " + text);
    } else if (sh.out.json()) {
        sh.out.stream("out", text);
    } else {
        sh.out.now(sh.out.paint(style::value, text));
    }
}

int watch_with(shell &sh, session &link, const char *from) {
    const char *args[] = {from};
    int code = link.quietly([&](ucfg_conn *conn) {
        return ucfg_admin(conn, k_watch_node, args, from ? 1 : 0, show_at_once, &sh);
    });
    if (code == k_ucfg_interrupted && sh.interactive) sh.out.line(""); /* behind the "^C" */
    if (code == k_ucfg_ok || code == k_ucfg_interrupted) return k_exit_done;
    std::string text = ucfg_text(link.conn());
    /* An action that failed has said why. */
    if (code == k_ucfg_failed && text.empty()) return k_exit_failed;
    if (sh.out.json())
        add_error(sh, {.status = ucfg_code_name(code), .message = readable(text)});
    else
        sh.out.complain(sh.prefix + "watch: " + readable(text));
    return status_of(code, text);
}

}  // namespace

style diff_style(const std::string &line) {
    if (line.starts_with("+++ ") || line.starts_with("--- ")) return style::title;
    if (line.starts_with("@@") || line.starts_with('#')) return style::name;
    if (line.starts_with('+')) return style::good;
    return line.starts_with('-') ? style::bad : style::plain;
}

int show_lines(shell &sh, const std::vector<std::string> &lines) {
    if (sh.out.json()) {
        owned_json members{json_object()};
        json_put(members, "lines", json_list(lines));
        sh.out.document(std::move(members));
        return k_exit_done;
    }
    for (const std::string &line : lines)
        sh.out.line(sh.out.paint(diff_style(line), line));
    return k_exit_done;
}

int complain_missing(shell &sh, const std::string &what, const char *node) {
    std::string text = what + ": this daemon has no " + node +
                       " (it is older, or its feature \"commits\" is not in use)";
    if (sh.out.json())
        add_error(sh, {.status = "failed", .message = text});
    else
        sh.out.complain(sh.prefix + text);
    return k_exit_failed;
}

int collect_action(shell &sh, const std::string &node, action_lines &list) {
    return sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
        list = {};
        return ucfg_admin(conn, node.c_str(), nullptr, 0, take_line, &list);
    });
}

int report_action(shell &sh, const char *name, int code, const action_lines &list) {
    for (const auto *lines : {&list.lines, &list.errors})
        for (const std::string &line : *lines)
            if (sh.out.json())
                add_error(sh, {.status = ucfg_code_name(code), .message = line});
            else
                sh.out.complain(sh.prefix + std::string{name} + ": " + line);
    if (code == k_ucfg_failed && list.lines.size() + list.errors.size() > 0) return k_exit_failed;
    return report_failure(sh, name, code);
}

int run_diff(shell &sh, const arguments &) {
    return run_node(sh, "diff", k_diff_node, "no changes");
}

int run_confirm(shell &sh, const arguments &) {
    return run_node(sh, "confirm", k_confirm_node, "the commit stays");
}

int run_cancel(shell &sh, const arguments &) {
    int status = run_node(sh, "cancel", k_cancel_node, "the commit is undone");
    /* What it undid itself is no news to this session. */
    if (status == k_exit_done && !is_dirty(sh)) sh.link.quietly(ucfg_update);
    return status;
}

int run_history(shell &sh, const arguments &args) {
    if (!args.words.empty() && !is_number(args.text(0))) return complain_number(sh, args.text(0));
    if (!has_node(sh.link, k_ucfg_management, k_history_node))
        return complain_missing(sh, "history", k_history_node);
    if (!args.words.empty()) return show_commit(sh, args.text(0));
    std::vector<std::string> numbers = commit_numbers(sh.link);
    size_t count = args.has('a') ? numbers.size() : std::min(numbers.size(), k_shown_commits);
    int status = count > 0 ? ask_first(sh, numbers[0]) : k_exit_done;
    if (status != k_exit_done) return status;
    if (sh.out.json()) {
        owned_json all{json_array()};
        for (size_t i = 0; i < count; i++)
            json_array_append_new(all.get(), commit_json(sh, numbers[i]).release());
        return answer_commits(sh, std::move(all));
    }
    for (size_t i = 0; i < count; i++)
        print_row(sh, numbers[i]);
    if (count < numbers.size())
        sh.out.line(std::to_string(numbers.size() - count) + " older ones: history -a");
    if (count == 0) sh.out.line("no commits are kept (yet, or the daemon has no \"commits:\")");
    return k_exit_done;
}

int run_load(shell &sh, const arguments &args) {
    if (!is_number(args.text(0))) return load_file(sh, args.text(0));
    return take_back(sh, "load", k_load_parameter, args.text(0), "the files are as after commit ");
}

int run_undo(shell &sh, const arguments &args) {
    return take_back(sh, "undo", k_undo_parameter, args.text(0), "taken back: commit ");
}

/* The daemon answers a session's further lines behind the end of an action, and this one has none:
 * who goes on typing afterwards watches through a session of its own. */
int run_watch(shell &sh, const arguments &args) {
    if (!args.words.empty() && !is_number(args.text(0))) return complain_number(sh, args.text(0));
    if (!has_node(sh.link, k_ucfg_management, k_watch_node))
        return complain_missing(sh, "watch", k_watch_node);
    const char *from = args.words.empty() ? nullptr : args.text(0).c_str();
    sh.out.flush();
    if (!sh.lines) return watch_with(sh, sh.link, from);
    options own = sh.opts;
    own.user = ucfg_user(sh.link.conn());
    own.session_id.reset();
    own.keep = own.force = false;
    session link{own, [&](const std::string &text) { sh.out.complain(sh.prefix + text); }};
    int status = link.open(k_ucfg_perm_read | k_ucfg_perm_exec);
    if (status == k_exit_done) status = watch_with(sh, link, from);
    link.close();
    return status;
}

}  // namespace ucfgsh

/* Single changes, and what a session may ask about its changes. */
#include "ucfgsh/change_input.h"
#include "ucfgsh/secrets.h"
#include "ucfgsh/teach.h"

namespace ucfgsh {

namespace {

/* The value of a set: from a file, from the lines that follow, or as it was typed. */
std::optional<std::string> take_value(shell &sh, const arguments &args) {
    auto flag = args.flags.find('f');
    if (flag != args.flags.end()) {
        auto text = read_all(sh, flag->second);
        if (text && text->ends_with('\n')) text->pop_back();
        return text;
    }
    if (args.words.size() < 2) {
        complain_usage(sh, "a value is missing");
        return std::nullopt;
    }
    const word &typed = args.words[1];
    if (sh.lines && typed.raw.starts_with("<<") && typed.raw.size() > 2)
        return read_lines(sh, typed.text.substr(2));
    return typed.text;
}

constexpr size_t k_shown_value = 60;

std::string told_value(shell &sh, const order &what) {
    if (what.value.size() > k_shown_value || what.value.find('\n') != std::string::npos ||
        is_secret(sh.link, what.path))
        return "";
    return " to " + show_value(what.value);
}

std::string told_change(shell &sh, const order &what, const std::string &subject) {
    switch (what.op) {
        case k_ucfg_set:
            return "set " + subject + told_value(sh, what);
        case k_ucfg_add:
            return "added " + subject;
        case k_ucfg_del:
            return "deleted " + subject;
        case k_ucfg_move:
            return "moved " + subject + " to " + show_value(what.second);
    }
    return "";
}

/* A single change: of a set, asking twice does no harm. */
int make_change(shell &sh, const order &what, bool one_word = false) {
    attempt tried{*word_of(what.op), k_ucfg_parameters, what.path, what.value, one_word};
    std::string subject = subject_of(what);
    after_loss policy = what.op == k_ucfg_set ? after_loss::repeat : after_loss::report;
    int code = run_step(sh, policy, {what});
    if (code != k_ucfg_ok) return report_failure(sh, subject, code, tried);
    if (what.op == k_ucfg_add) sh.names.added(what.path, what.value);
    if (what.op == k_ucfg_del) sh.names.deleted(what.path, what.value);
    return report_done(sh, tells(sh) ? told_change(sh, what, subject) : "",
                       json_object_of({{"path", subject}}));
}

}  // namespace

int run_set(shell &sh, const arguments &args) {
    auto path = take_path(sh, args.words[0]);
    if (!path) return k_exit_usage;
    auto value = take_value(sh, args);
    if (!value) return k_exit_usage;
    int status = refuse_stray(sh, k_ucfg_parameters, *path);
    if (status != k_exit_done) return status;
    return make_change(sh, {k_ucfg_set, *path, *value});
}

int run_add(shell &sh, const arguments &args) {
    auto what = take_entry(sh, args.words);
    if (!what) return k_exit_usage;
    return make_change(sh, {k_ucfg_add, what->list, what->name}, args.words.size() == 1);
}

int run_del(shell &sh, const arguments &args) {
    auto what = take_entry(sh, args.words);
    if (!what) return k_exit_usage;
    return make_change(sh, {k_ucfg_del, what->list, what->name}, args.words.size() == 1);
}

int run_move(shell &sh, const arguments &args) {
    auto path = take_path(sh, args.words[0]);
    if (!path) return k_exit_usage;
    return make_change(sh, {k_ucfg_move, *path, args.text(1), args.text(2)});
}

namespace {

int simple(shell &sh, const char *name, int (*request)(ucfg_conn *), const char *done) {
    int code = sh.link.call(after_loss::repeat, request);
    return code == k_ucfg_ok ? report_done(sh, done) : report_failure(sh, name, code);
}

}  // namespace

int run_revert(shell &sh, const arguments &) {
    int status = simple(sh, "revert", ucfg_revert, "the changes are dropped");
    if (status != k_exit_done) return status;
    sh.changes.clear();
    sh.orders.steps.clear();
    return status;
}

int run_update(shell &sh, const arguments &) {
    return simple(sh, "update", ucfg_update, "the session is up to date");
}

int run_current(shell &sh, const arguments &) {
    return simple(sh, "current", ucfg_current, "nobody else has committed");
}

int run_dirty(shell &sh, const arguments &) {
    int dirty = 0;
    int code =
        sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) { return ucfg_dirty(conn, &dirty); });
    if (code != k_ucfg_ok) return report_failure(sh, "dirty", code);
    if (sh.out.json()) {
        owned_json object{json_object()};
        json_put(object, "dirty", owned_json{json_boolean(dirty)});
        sh.out.document(std::move(object));
    } else {
        sh.out.line(dirty ? "1" : "0");
    }
    return k_exit_done;
}

}  // namespace ucfgsh

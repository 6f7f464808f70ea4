/* Single changes, and what a session may ask about its changes. */
#include "ucfgsh/change_input.h"
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

/* A single change: of a set, asking twice does no harm. */
int make_change(shell &sh, order what, const std::string &subject, bool one_word = false) {
    const char *word = word_of(what.op);
    attempt tried{*word, k_ucfg_parameters, what.path, what.value, one_word};
    after_loss policy = what.op == k_ucfg_set ? after_loss::repeat : after_loss::report;
    int code = run_step(sh, policy, {std::move(what)});
    return code == k_ucfg_ok ? report_done(sh, word, subject)
                             : report_failure(sh, subject, code, tried);
}

}  // namespace

int run_set(shell &sh, const arguments &args) {
    auto path = take_path(sh, args.words[0]);
    if (!path) return k_exit_usage;
    auto value = take_value(sh, args);
    if (!value) return k_exit_usage;
    int status = refuse_stray(sh, k_ucfg_parameters, *path);
    if (status != k_exit_done) return status;
    return make_change(sh, {k_ucfg_set, *path, *value}, print_path(*path));
}

int run_add(shell &sh, const arguments &args) {
    auto what = take_entry(sh, args.words);
    if (!what) return k_exit_usage;
    return make_change(sh, {k_ucfg_add, what->list, what->name},
                       print_path(what->list) + " " + quote_word(what->name),
                       args.words.size() == 1);
}

int run_del(shell &sh, const arguments &args) {
    auto what = take_entry(sh, args.words);
    if (!what) return k_exit_usage;
    return make_change(sh, {k_ucfg_del, what->list, what->name},
                       print_path(what->list) + " " + quote_word(what->name),
                       args.words.size() == 1);
}

int run_move(shell &sh, const arguments &args) {
    auto path = take_path(sh, args.words[0]);
    if (!path) return k_exit_usage;
    return make_change(sh, {k_ucfg_move, *path, args.text(1), args.text(2)},
                       print_path(*path) + " " + quote_word(args.text(1)));
}

namespace {

int simple(shell &sh, const char *name, int (*request)(ucfg_conn *)) {
    int code = sh.link.call(after_loss::repeat, request);
    return code == k_ucfg_ok ? report_done(sh, name, name) : report_failure(sh, name, code);
}

}  // namespace

int run_revert(shell &sh, const arguments &) {
    int status = simple(sh, "revert", ucfg_revert);
    if (status != k_exit_done) return status;
    sh.changes.clear();
    sh.orders.steps.clear();
    return status;
}

int run_update(shell &sh, const arguments &) {
    return simple(sh, "update", ucfg_update);
}

int run_current(shell &sh, const arguments &) {
    return simple(sh, "current", ucfg_current);
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

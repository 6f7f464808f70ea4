/* Single changes, and the commands that end a transaction. */
#include "ucfgsh/change_input.h"

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

/* The end of every change: the reply as text or JSON. */
int finish(shell &sh, const char *what, const std::string &subject, int code) {
    if (code != k_ucfg_ok) return report_failure(sh, subject, code);
    if (sh.out.json()) {
        owned_json object = json_object_of({{"done", what}, {"subject", subject}});
        json_put(object, "ok", owned_json{json_true()});
        sh.out.document(std::move(object));
    }
    return k_exit_done;
}

}  // namespace

int run_set(shell &sh, const arguments &args) {
    auto path = take_path(sh, args.words[0]);
    if (!path) return k_exit_usage;
    auto value = take_value(sh, args);
    if (!value) return k_exit_usage;
    if (remembers(sh)) sh.changes.note_set(sh.link, *path);
    int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
        return ucfg_set(conn, path->c_str(), value->c_str());
    });
    return finish(sh, "set", print_path(*path), code);
}

int run_add(shell &sh, const arguments &args) {
    auto what = take_entry(sh, args.words);
    if (!what) return k_exit_usage;
    if (remembers(sh)) sh.changes.note_list(sh.link, what->list);
    int code = sh.link.call(after_loss::report, [&](ucfg_conn *conn) {
        return ucfg_add(conn, what->list.c_str(), what->name.c_str());
    });
    return finish(sh, "add", print_path(what->list) + " " + quote_word(what->name), code);
}

int run_del(shell &sh, const arguments &args) {
    auto what = take_entry(sh, args.words);
    if (!what) return k_exit_usage;
    if (remembers(sh)) sh.changes.note_entry(sh.link, what->list, what->name);
    int code = sh.link.call(after_loss::report, [&](ucfg_conn *conn) {
        return ucfg_del(conn, what->list.c_str(), what->name.c_str());
    });
    return finish(sh, "del", print_path(what->list) + " " + quote_word(what->name), code);
}

int run_move(shell &sh, const arguments &args) {
    auto path = take_path(sh, args.words[0]);
    if (!path) return k_exit_usage;
    if (remembers(sh)) sh.changes.note_entry(sh.link, *path, args.text(1));
    int code = sh.link.call(after_loss::report, [&](ucfg_conn *conn) {
        return ucfg_move(conn, path->c_str(), args.text(1).c_str(), args.text(2).c_str());
    });
    return finish(sh, "move", print_path(*path) + " " + quote_word(args.text(1)), code);
}

namespace {

int simple(shell &sh, const char *name, after_loss policy, int (*request)(ucfg_conn *)) {
    int code = sh.link.call(policy, request);
    return finish(sh, name, name, code);
}

}  // namespace

int run_commit(shell &sh, const arguments &) {
    int status = simple(sh, "commit", after_loss::same_only, ucfg_commit);
    if (status == k_exit_done) sh.changes.clear();
    return status;
}

int run_revert(shell &sh, const arguments &) {
    int status = simple(sh, "revert", after_loss::repeat, ucfg_revert);
    if (status == k_exit_done) sh.changes.clear();
    return status;
}

int run_update(shell &sh, const arguments &) {
    return simple(sh, "update", after_loss::repeat, ucfg_update);
}

int run_current(shell &sh, const arguments &) {
    return simple(sh, "current", after_loss::repeat, ucfg_current);
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

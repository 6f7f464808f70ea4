/* Commands that only look. */
#include <algorithm>

#include "ucfgsh/commands.h"
#include "ucfgsh/teach.h"
#include "ucfgsh/terminal.h"
#include "ucfgsh/tree_view.h"

namespace ucfgsh {

namespace {

ucfg_tree tree_of(const arguments &args) {
    return args.has('m') ? k_ucfg_management : k_ucfg_parameters;
}

std::vector<const char *> rest_of(const arguments &args, size_t from) {
    std::vector<const char *> rest;
    for (size_t i = from; i < args.words.size(); i++)
        rest.push_back(args.text(i).c_str());
    return rest;
}

std::string join(const std::vector<std::string> &items, const char *between) {
    std::string text;
    for (const std::string &item : items)
        text += (text.empty() ? "" : between) + item;
    return text;
}

/* A text as it is, with its lines; one newline at its end is enough. */
void print_text(shell &sh, std::string text) {
    if (!text.empty() && text.back() == '\n') text.pop_back();
    sh.out.line(sh.out.paint(style::value, text));
}

/* The path of an optional first argument. */
std::optional<std::string> optional_path(shell &sh, const arguments &args) {
    if (args.words.empty()) return args.has('m') ? std::string{} : sh.here;
    return take_path(sh, args.words[0], tree_of(args));
}

/* One text of the daemon, printed as text or as {"path": ..., KEY: ...}. */
int print_answer(shell &sh, const attempt &what, const char *key, int code, char *text) {
    owned_str answer{text};
    const std::string &path = what.path;
    if (code != k_ucfg_ok) return report_failure(sh, print_path(path), code, what);
    if (!sh.out.json())
        print_text(sh, answer.get());
    else
        sh.out.document(json_object_of({{"path", print_path(path)}, {key, answer.get()}}));
    return k_exit_done;
}

}  // namespace

int run_get(shell &sh, const arguments &args) {
    int worst = k_exit_done;
    owned_json all{args.words.size() > 1 && sh.out.json() ? json_array() : nullptr};
    for (const word &typed : args.words) {
        auto path = take_path(sh, typed);
        if (!path) return k_exit_usage;
        char *text = nullptr;
        int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
            return ucfg_get(conn, path->c_str(), &text);
        });
        owned_str value{text};
        if (code == k_ucfg_ok) {
            int missing = refuse_stray(sh, k_ucfg_parameters, *path, all.get());
            worst = std::max(worst, missing);
            if (missing != k_exit_done) continue;
        }
        if (!all) {
            int status =
                print_answer(sh, {'g', k_ucfg_parameters, *path}, "value", code, value.release());
            worst = std::max(worst, status);
            continue;
        }
        if (code != k_ucfg_ok) worst = std::max(worst, status_of(code, ucfg_text(sh.link.conn())));
        owned_json item =
            code == k_ucfg_ok
                ? json_object_of({{"path", print_path(*path)}, {"value", value.get()}})
                : failure_json(sh, print_path(*path), code);
        json_array_append_new(all.get(), item.release());
    }
    sh.out.document(std::move(all));
    return worst;
}

int run_list(shell &sh, const arguments &args) {
    auto path = optional_path(sh, args);
    if (!path) return k_exit_usage;
    bool all = args.has('r');
    ucfg_strings *found = nullptr;
    int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
        return (all ? ucfg_list_all : ucfg_list)(conn, tree_of(args), path->c_str(), &found);
    });
    owned_strings names{found};
    if (code != k_ucfg_ok)
        return report_failure(sh, path->empty() ? "list" : print_path(*path), code,
                              {'l', tree_of(args), *path});
    int status = refuse_stray(sh, tree_of(args), *path);
    if (status != k_exit_done) return status;
    std::vector<std::string> items = to_vector(names.get());
    for (std::string &item : items)
        if (all) item = print_path(join_path(*path, item));
    if (sh.out.json()) {
        sh.out.document(json_list(items));
        return k_exit_done;
    }
    for (const std::string &item : items)
        sh.out.line(
            sh.out.paint(style::name, all ? item : take_text(ucfg_path_quote(item.c_str()))));
    return k_exit_done;
}

int run_show(shell &sh, const arguments &args) {
    auto path = optional_path(sh, args);
    if (!path) return k_exit_usage;
    ucfg_strings *found = nullptr;
    int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
        return ucfg_list_all(conn, tree_of(args), path->c_str(), &found);
    });
    owned_strings names{found};
    if (code != k_ucfg_ok)
        return report_failure(sh, path->empty() ? "show" : print_path(*path), code,
                              {'l', tree_of(args), *path});
    int status = refuse_stray(sh, tree_of(args), *path);
    if (status != k_exit_done) return status;
    std::vector<std::string> below = to_vector(names.get());
    std::vector<std::string> paths;
    paths.reserve(below.size() + 1);
    for (const std::string &item : below)
        paths.push_back(join_path(*path, item));
    if (!path->empty()) paths.push_back(*path);
    std::vector<std::optional<std::string>> values(paths.size());
    if (!args.has('m')) values = read_values(sh.link, paths);
    std::optional<std::string> own;
    if (!path->empty()) own = values.back();
    values.resize(below.size());
    tree_node top = build_tree(below, values);
    top.value = own;
    if (sh.out.json()) {
        sh.out.document(tree_json(top));
        return k_exit_done;
    }
    if (!path->empty()) {
        std::string title = sh.out.paint(style::name, print_path(*path));
        if (own) title += ": " + sh.out.paint(style::value, show_value(*own));
        sh.out.line(title);
    }
    print_tree(sh.out, top, path->empty() ? 0 : 2);
    return k_exit_done;
}

namespace {

struct op_name {
    char letter;
    const char *name;
};

constexpr op_name k_op_names[] = {
    {'g', "get"},  {'s', "set"},   {'a', "add"},  {'d', "del"},      {'m', "move"},
    {'h', "help"}, {'A', "admin"}, {'I', "info"}, {'l', "children"},
};

std::vector<std::string> op_names(const char *letters) {
    std::vector<std::string> names;
    for (const op_name &row : k_op_names)
        if (strchr(letters, row.letter)) names.emplace_back(row.name);
    return names;
}

void print_attr(shell &sh, const ucfg_attr &attr) {
    auto line = [&](const char *name, const std::string &text) {
        if (!text.empty())
            sh.out.line(sh.out.paint(style::name, name) + ": " + sh.out.paint(style::value, text));
    };
    line("operations", join(op_names(attr.ops), " "));
    line("type", attr.type ? attr.type : "");
    line("length", attr.length > 0 ? std::to_string(attr.length) : "");
    std::vector<std::string> choices = to_vector(attr.choices);
    for (std::string &choice : choices)
        choice = quote_word(choice);
    line("choices", join(choices, " "));
    line("flags", join(to_vector(attr.flags), " "));
}

owned_json attr_json(const ucfg_attr &attr) {
    owned_json object{json_object()};
    json_put(object, "operations", json_list(op_names(attr.ops)));
    if (attr.type) json_put(object, "type", json_text(attr.type));
    if (attr.length > 0) json_put(object, "length", owned_json{json_integer(attr.length)});
    json_put(object, "choices", json_list(to_vector(attr.choices)));
    json_put(object, "flags", json_list(to_vector(attr.flags)));
    return object;
}

int list_commands(shell &sh) {
    if (sh.out.json()) {
        owned_json all{json_array()};
        for (const command &row : all_commands())
            json_array_append_new(all.get(),
                                  json_object_of({{"command", std::string{row.name}},
                                                  {"arguments", std::string{row.synopsis}},
                                                  {"help", std::string{row.summary}}})
                                      .release());
        sh.out.document(std::move(all));
        return k_exit_done;
    }
    for (const command &row : all_commands()) {
        std::string name{row.name};
        name.resize(9, ' ');
        sh.out.line(sh.out.paint(style::title, name) + std::string{row.summary});
    }
    sh.out.line("");
    sh.out.line(
        "\"help COMMAND\" shows its arguments, \"help PATH\" explains a parameter. Components");
    sh.out.line("with dots or blanks are written in quotes: hosts.\"my.host\".address");
    return k_exit_done;
}

}  // namespace

int run_attr(shell &sh, const arguments &args) {
    auto path = take_path(sh, args.words[0], tree_of(args));
    if (!path) return k_exit_usage;
    ucfg_attr *found = nullptr;
    int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
        return ucfg_attr_of(conn, tree_of(args), path->c_str(), &found);
    });
    owned_attr attr{found};
    attempt what{'l', tree_of(args), *path};
    if (code != k_ucfg_ok) return report_failure(sh, print_path(*path), code, what);
    int status = refuse_stray(sh, what.tree, *path);
    if (status != k_exit_done) return status;
    if (sh.out.json())
        sh.out.document(attr_json(*attr));
    else
        print_attr(sh, *attr);
    return k_exit_done;
}

int run_help(shell &sh, const arguments &args) {
    if (args.words.empty()) return list_commands(sh);
    const command *row = nullptr;
    for (const command &candidate : all_commands())
        if (candidate.name == args.text(0)) row = &candidate;
    if (row && !sh.out.json()) sh.out.line(command_help(*row));
    if (!sh.link.logged_in() && row) return k_exit_done;
    auto path = take_path(sh, args.words[0]);
    if (!path) return k_exit_usage;
    char *text = nullptr;
    auto ask = [&](ucfg_conn *conn) { return ucfg_help(conn, path->c_str(), &text); };
    int code = row ? sh.link.quietly(ask) : sh.link.call(after_loss::repeat, ask);
    owned_str help{text};
    if (row && (code != k_ucfg_ok || !*help)) return k_exit_done;
    if (code == k_ucfg_ok) {
        int status = refuse_stray(sh, k_ucfg_parameters, *path);
        if (status != k_exit_done) return status;
        if (!*help && !sh.out.json()) help = dup_str("there is no help on " + print_path(*path));
    }
    return print_answer(sh, {'h', k_ucfg_parameters, *path}, "help", code, help.release());
}

int run_access(shell &sh, const arguments &args) {
    auto path = take_path(sh, args.words[0], tree_of(args));
    if (!path) return k_exit_usage;
    std::vector<const char *> rest = rest_of(args, 2);
    char *text = nullptr;
    int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
        return ucfg_access(conn, tree_of(args), path->c_str(), args.text(1).c_str(), rest.data(),
                           rest.size(), &text);
    });
    return print_answer(sh, {'l', tree_of(args), *path}, "access", code, text);
}

int run_info(shell &sh, const arguments &args) {
    auto path = take_path(sh, args.words[0], k_ucfg_management);
    if (!path) return k_exit_usage;
    std::vector<const char *> rest = rest_of(args, 1);
    char *text = nullptr;
    int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
        return ucfg_info(conn, path->c_str(), rest.data(), rest.size(), &text);
    });
    return print_answer(sh, {'I', k_ucfg_management, *path}, "text", code, text);
}

namespace {

/* Where an action's output goes. */
struct admin_sink {
    shell &sh;
    std::vector<std::string> lines, errors;
    bool complained = false;
};

void take_admin_line(int stream, const char *text, void *data) {
    auto *sink = static_cast<admin_sink *>(data);
    sink->complained |= stream != 1;
    if (sink->sh.out.json())
        (stream == 1 ? sink->lines : sink->errors).emplace_back(text);
    else if (stream == 1)
        sink->sh.out.now(sink->sh.out.paint(style::value, text));
    else
        sink->sh.out.complain(text);
}

}  // namespace

int run_admin(shell &sh, const arguments &args) {
    auto path = take_path(sh, args.words[0], k_ucfg_management);
    if (!path) return k_exit_usage;
    std::vector<const char *> rest = rest_of(args, 1);
    admin_sink sink{sh, {}, {}};
    int code = sh.link.call(after_loss::report, [&](ucfg_conn *conn) {
        return ucfg_admin(conn, path->c_str(), rest.data(), rest.size(), take_admin_line, &sink);
    });
    if (sh.out.json()) {
        owned_json object = code == k_ucfg_ok ? json_object_of({{"path", print_path(*path)}})
                                              : failure_json(sh, print_path(*path), code);
        json_put(object, "output", json_list(sink.lines));
        json_put(object, "errors", json_list(sink.errors));
        sh.out.document(std::move(object));
        return status_of(code, ucfg_text(sh.link.conn()));
    }
    if (code == k_ucfg_ok) return k_exit_done;
    if (code == k_ucfg_failed && sink.complained && !is_reason(ucfg_text(sh.link.conn())))
        return k_exit_failed;
    return report_failure(sh, print_path(*path), code, {'A', k_ucfg_management, *path});
}

}  // namespace ucfgsh

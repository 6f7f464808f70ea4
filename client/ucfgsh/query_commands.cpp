/* Commands that only look. */
#include <algorithm>
#include <cstring>

#include "ucfgsh/about.h"
#include "ucfgsh/commands.h"
#include "ucfgsh/teach.h"
#include "ucfgsh/terminal.h"
#include "ucfgsh/tree_view.h"
#include "ucfgsh/usable.h"

namespace ucfgsh {

namespace {

constexpr size_t k_longest_section = 100;

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

void put_list(shell &sh, const char *key, owned_json list) {
    owned_json members{json_object()};
    json_put(members, key, std::move(list));
    sh.out.document(std::move(members));
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
    owned_json values{json_array()};
    for (const word &typed : args.words) {
        auto path = take_path(sh, typed);
        if (!path) return k_exit_usage;
        char *text = nullptr;
        int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
            return ucfg_get(conn, path->c_str(), &text);
        });
        owned_str value{text};
        attempt what{'g', k_ucfg_parameters, *path};
        int status = code == k_ucfg_ok ? refuse_stray(sh, what.tree, *path)
                                       : report_failure(sh, print_path(*path), code, what);
        worst = std::max(worst, status);
        if (status != k_exit_done) continue;
        if (sh.out.json())
            json_array_append_new(
                values.get(),
                json_object_of({{"path", print_path(*path)}, {"value", value.get()}}).release());
        else
            print_text(sh, value.get());
    }
    if (sh.out.json()) put_list(sh, "values", std::move(values));
    return worst;
}

namespace {

/* A note beside an empty listing: an area that is not installed says so in its help. */
void say_why_empty(shell &sh, ucfg_tree tree, const std::string &path) {
    owned_attr attr = tells(sh) && !path.empty() ? look_at(sh.link, tree, path) : nullptr;
    if (!attr) return;
    std::string help = help_of(sh.link, tree, path);
    if (!has_letter(*attr, "ladm") && has_letter(*attr, "gs"))
        help = "nothing is below it: \"get " + print_path(path) + "\" prints its value";
    if (!help.empty()) sh.out.complain(sh.prefix + print_path(path) + ": " + help);
}

bool has_flag(const ucfg_attr &attr, std::string_view flag) {
    const std::vector<std::string> flags = to_vector(attr.flags);
    return std::find(flags.begin(), flags.end(), flag) != flags.end();
}

/* Takes out what is there for those who know it; an area that is not installed stays, and says so.
 * The entries of a list are never hidden, and long listings are lists. */
void leave_hidden_out(shell &sh, ucfg_tree tree, const std::string &path,
                      std::vector<std::string> &names) {
    if (names.size() > k_longest_section) return;
    std::erase_if(names, [&](const std::string &name) {
        owned_attr attr =
            look_at(sh.link, tree, take_text(ucfg_path_append(path.c_str(), name.c_str())));
        return attr && has_flag(*attr, "hidden") && !has_flag(*attr, "absent");
    });
}

}  // namespace

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
    if (!all) leave_hidden_out(sh, tree_of(args), *path, items);
    for (std::string &item : items)
        if (all) item = print_path(join_path(*path, item));
    if (sh.out.json()) {
        sh.out.document(json_object_of({{"path", print_path(*path)}}));
        put_list(sh, "names", json_list(items));
        return k_exit_done;
    }
    if (items.empty()) say_why_empty(sh, tree_of(args), *path);
    for (const std::string &item : items)
        sh.out.line(
            sh.out.paint(style::name, all ? item : take_text(ucfg_path_quote(item.c_str()))));
    return k_exit_done;
}

namespace {

/* The texts of management nodes that tell something without being given arguments. */
std::vector<std::optional<std::string>> read_texts(session &link,
                                                   const std::vector<std::string> &paths) {
    std::vector<std::optional<std::string>> texts(paths.size());
    for (size_t i = 0; i < paths.size(); i++) {
        ucfg_attr *found = nullptr;
        link.quietly([&](ucfg_conn *conn) {
            return ucfg_attr_of(conn, k_ucfg_management, paths[i].c_str(), &found);
        });
        owned_attr attr{found};
        if (!attr || !strchr(attr->ops, 'I')) continue;
        char *text = nullptr;
        link.quietly(
            [&](ucfg_conn *conn) { return ucfg_info(conn, paths[i].c_str(), nullptr, 0, &text); });
        owned_str owner{text};
        if (text) texts[i] = text;
    }
    return texts;
}

owned_json values_json(const std::vector<std::string> &paths,
                       const std::vector<std::optional<std::string>> &values) {
    owned_json list{json_array()};
    for (size_t i = 0; i < paths.size(); i++) {
        owned_json item = json_object_of({{"path", print_path(paths[i])}});
        json_put(item, "value", json_maybe(values[i] ? values[i]->c_str() : nullptr));
        json_array_append_new(list.get(), item.release());
    }
    return list;
}

/* The help of sections and lists that show nothing, and why a value cannot be told; of the first
 * ones when there are many. */
std::vector<std::string> notes_on_empty(shell &sh, ucfg_tree tree,
                                        const std::vector<std::string> &paths,
                                        const std::vector<std::optional<std::string>> &values) {
    allowance left{200, std::chrono::milliseconds{400}};
    std::vector<std::string> notes(paths.size());
    for (size_t i = 0; i < paths.size(); i++) {
        bool leads_on = i + 1 < paths.size() && paths[i + 1].starts_with(paths[i] + ".");
        if (values[i] || leads_on || !left.take()) continue;
        owned_attr attr = look_at(sh.link, tree, paths[i]);
        if (!attr || !left.take()) continue;
        if (tree == k_ucfg_parameters && has_letter(*attr, "g"))
            notes[i] = why_unreadable(sh.link, paths[i]);
        if (has_letter(*attr, "gsIA")) continue;
        std::string help = help_of(sh.link, tree, paths[i]);
        notes[i] = help.substr(0, help.find('\n'));
    }
    return notes;
}

}  // namespace

int run_show(shell &sh, const arguments &args) {
    auto path = optional_path(sh, args);
    if (!path) return k_exit_usage;
    if (args.has('c')) {
        if (!args.has('m')) return show_tree_commands(sh, *path);
        return complain_usage(sh, "no commands make the management tree");
    }
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
    auto values = (args.has('m') ? read_texts : read_values)(sh.link, paths);
    if (sh.out.json()) {
        sh.out.document(json_object_of({{"path", print_path(*path)}}));
        put_list(sh, "values", values_json(paths, values));
        return k_exit_done;
    }
    std::optional<std::string> own;
    auto notes = notes_on_empty(sh, tree_of(args), paths, values);
    if (!path->empty()) own = values.back();
    values.resize(below.size());
    tree_node top = build_tree(below, values, notes);
    if (!path->empty()) {
        std::string title = sh.out.paint(style::name, print_path(*path));
        if (own) title += ": " + sh.out.paint(style::value, show_value(*own));
        if (below.empty() && !notes.back().empty())
            title += "  " + sh.out.paint(style::faint, "# " + notes.back());
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

owned_json attr_json(const std::string &path, const ucfg_attr &attr) {
    owned_json object = json_object_of({{"path", print_path(path)}});
    json_put(object, "operations", json_list(op_names(attr.ops)));
    json_put(object, "type", json_maybe(attr.type));
    json_put(object, "length",
             owned_json{attr.length > 0 ? json_integer(attr.length) : json_null()});
    json_put(object, "choices", json_list(to_vector(attr.choices)));
    json_put(object, "flags", json_list(to_vector(attr.flags)));
    return object;
}

owned_json command_json(const command &row) {
    return json_object_of({{"name", std::string{row.name}},
                           {"arguments", std::string{row.synopsis}},
                           {"help", std::string{row.summary}}});
}

int list_commands(shell &sh) {
    if (sh.out.json()) {
        owned_json all{json_array()};
        for (const command &row : all_commands())
            json_array_append_new(all.get(), command_json(row).release());
        put_list(sh, "commands", std::move(all));
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
        sh.out.document(attr_json(*path, *attr));
    else
        print_attr(sh, *attr);
    return k_exit_done;
}

namespace {

/* How a management node is used, and what for. */
int explain_management(shell &sh, const std::string &path) {
    int status = refuse_stray(sh, k_ucfg_management, path);
    if (status != k_exit_done) return status;
    owned_attr attr = look_at(sh.link, k_ucfg_management, path);
    std::string help = help_of(sh.link, k_ucfg_management, path);
    if (sh.out.json()) {
        sh.out.document(json_object_of({{"path", print_path(path)},
                                        {"help", help},
                                        {"arguments", arguments_of(sh.link, path)}}));
        return k_exit_done;
    }
    if (help.empty()) help = "there is no help on " + print_path(path);
    print_text(sh, (attr ? usage_of(sh.link, *attr, path) : "") + help);
    return k_exit_done;
}

int explain_parameter(shell &sh, const std::string &path) {
    char *text = nullptr;
    int code = sh.link.call(after_loss::repeat,
                            [&](ucfg_conn *conn) { return ucfg_help(conn, path.c_str(), &text); });
    owned_str help{text};
    if (code == k_ucfg_ok) {
        int status = refuse_stray(sh, k_ucfg_parameters, path);
        if (status != k_exit_done) return status;
        if (!*help && !sh.out.json()) help = dup_str("there is no help on " + print_path(path));
    } else if (look_at(sh.link, k_ucfg_management, path)) {
        return explain_management(sh, path);
    }
    return print_answer(sh, {'h', k_ucfg_parameters, path}, "help", code, help.release());
}

}  // namespace

/* A name that a command and a node share is explained as both. */
int run_help(shell &sh, const arguments &args) {
    if (args.words.empty()) return list_commands(sh);
    const command *row = nullptr;
    for (const command &candidate : all_commands())
        if (candidate.name == args.text(0)) row = &candidate;
    if (row && !sh.out.json()) sh.out.line(command_help(*row));
    if (row && sh.out.json()) {
        owned_json one{json_array()};
        json_array_append_new(one.get(), command_json(*row).release());
        put_list(sh, "commands", std::move(one));
    }
    if (!sh.link.logged_in() && row) return k_exit_done;
    auto path = take_path(sh, args.words[0], tree_of(args));
    if (!path) return k_exit_usage;
    if (row && help_of(sh.link, tree_of(args), *path).empty()) return k_exit_done;
    return args.has('m') ? explain_management(sh, *path) : explain_parameter(sh, *path);
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
    owned_str said{text};
    int status = code == k_ucfg_ok ? refuse_stray(sh, k_ucfg_management, *path) : k_exit_done;
    if (status != k_exit_done) return status;
    return print_answer(sh, {'I', k_ucfg_management, *path}, "text", code, said.release());
}

namespace {

/* Where an action's output goes. */
struct admin_sink {
    shell &sh;
    bool complained = false;
    std::string last = {};
};

void take_admin_line(int stream, const char *text, void *data) {
    auto *sink = static_cast<admin_sink *>(data);
    sink->complained |= stream != 1;
    sink->last = text;
    if (sink->sh.out.json())
        sink->sh.out.stream(stream == 1 ? "out" : "err", text);
    else if (stream == 1)
        sink->sh.out.now(sink->sh.out.paint(style::value, text));
    else
        sink->sh.out.complain(text);
}

int run_action(shell &sh, const std::string &path, const std::vector<const char *> &rest) {
    admin_sink sink{sh};
    int code = sh.link.call(after_loss::report, [&](ucfg_conn *conn) {
        return ucfg_admin(conn, path.c_str(), rest.data(), rest.size(), take_admin_line, &sink);
    });
    if (sh.out.json()) sh.out.document(json_object_of({{"path", print_path(path)}}));
    if (code == k_ucfg_ok) return k_exit_done;
    if (code == k_ucfg_failed && !sink.last.empty() && !is_reason(ucfg_text(sh.link.conn()))) {
        if (sh.out.json()) return complain_failed(sh, print_path(path), sink.last);
        if (sink.complained) return k_exit_failed;
        return complain_failed(sh, print_path(path), "failed; what it printed may say why");
    }
    return report_failure(sh, print_path(path), code, {'A', k_ucfg_management, path});
}

}  // namespace

int run_admin(shell &sh, const arguments &args) {
    auto path = take_path(sh, args.words[0], k_ucfg_management);
    return path ? run_action(sh, *path, rest_of(args, 1)) : k_exit_usage;
}

int run_eval(shell &sh, const arguments &args) {
    return run_action(sh, "daemon.eval", rest_of(args, 0));
}

int run_tree(shell &sh, const arguments &args) {
    return run_action(sh, "daemon.tree", rest_of(args, 0));
}

}  // namespace ucfgsh

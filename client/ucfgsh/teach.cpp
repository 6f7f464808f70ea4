/* The daemon says no; this says why, as far as its listings and attributes tell: a name that is not
 * there and what comes close, a node that is for another command, a value that is none of the
 * choices. */
#include "ucfgsh/teach.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "ucfgsh/about.h"

namespace ucfgsh {

namespace {

constexpr int k_most_dots = 20;

/* How that path is typed here. */
std::string typed_path(const shell &sh, ucfg_tree tree, const std::string &path) {
    bool leads = !sh.here.empty() && tree == k_ucfg_parameters;
    return (leads ? "." : "") + print_path(path);
}

bool can(const owned_attr &attr, char op) {
    return attr && strchr(attr->ops, op);
}

/* The path as it should have been typed, where dots of one name parted it. */
std::string with_quotes(const stray &missing, const std::vector<std::string> &names) {
    std::string name = missing.name;
    std::string rest = missing.rest;
    while (!rest.empty()) {
        size_t dot = std::min(rest.find('.'), rest.size());
        name += "." + take_text(ucfg_unescape(rest.substr(0, dot).c_str()));
        rest.erase(0, std::min(dot + 1, rest.size()));
        if (std::find(names.begin(), names.end(), name) == names.end()) continue;
        std::string path = take_text(ucfg_path_append(missing.above.c_str(), name.c_str()));
        return join_path(path, rest);
    }
    return "";
}

/* The same for a name that is not there yet: as many of its dots are quoted as it takes until the
 * rest leads somewhere. */
std::string with_new_quotes(shell &sh, ucfg_tree tree, const stray &missing) {
    std::string name = missing.name;
    std::string rest = missing.rest;
    for (int dots = 0; missing.entry && !rest.empty() && dots < k_most_dots; dots++) {
        std::string path = take_text(ucfg_path_append(missing.above.c_str(), name.c_str()));
        if (look_at(sh.link, tree, join_path(path, rest))) break;
        size_t dot = std::min(rest.find('.'), rest.size());
        name += "." + take_text(ucfg_unescape(rest.substr(0, dot).c_str()));
        rest.erase(0, dot + 1);
    }
    if (name == missing.name) return "";
    std::string path = take_text(ucfg_path_append(missing.above.c_str(), name.c_str()));
    return join_path(path, rest);
}

struct command_of {
    char op;
    ucfg_tree tree;
    const char *what;
    const char *line; /* what to type in front of the path */
};

/* What a node is, by what it can do. The first that fits counts. */
constexpr std::array k_uses{
    command_of{'A', k_ucfg_management, "an action", "admin "},
    command_of{'I', k_ucfg_management, "a management node", "info "},
    command_of{'l', k_ucfg_management, "a section", "list -m "},
    command_of{'g', k_ucfg_parameters, "a parameter", "get "},
    command_of{'l', k_ucfg_parameters, "a section", "show "},
};

std::string use_of(const shell &sh, ucfg_tree tree, const owned_attr &attr,
                   const std::string &path) {
    for (const command_of &use : k_uses)
        if (use.tree == tree && can(attr, use.op))
            return std::string{use.what} + ": use \"" + use.line + typed_path(sh, tree, path) +
                   "\"";
    return "";
}

std::string quote_names(const std::vector<std::string> &names) {
    std::vector<std::string> quoted;
    quoted.reserve(names.size());
    for (const std::string &name : names)
        quoted.push_back(take_text(ucfg_path_quote(name.c_str())));
    return did_you_mean(quoted);
}

/* About an entry that was to be deleted or moved. */
std::string about_entry(shell &sh, const attempt &what) {
    std::vector<std::string> names = sh.names.below(sh.link, what.tree, what.path);
    if (std::find(names.begin(), names.end(), what.value) != names.end()) return "";
    return describe({what.path, what.value, "", true}) +
           quote_names(similar_names(names, what.value));
}

std::string about_stray(shell &sh, ucfg_tree tree, const stray &missing, const std::string &path) {
    ucfg_tree other = tree == k_ucfg_parameters ? k_ucfg_management : k_ucfg_parameters;
    owned_attr there = missing.entry ? nullptr : look_at(sh.link, other, path);
    if (std::string use = use_of(sh, other, there, path); !use.empty()) return use;
    std::string below_here = sh.here + ".";
    if (tree == k_ucfg_parameters && !sh.here.empty() && path.starts_with(below_here))
        if (std::string rest = path.substr(below_here.size()); look_at(sh.link, tree, rest))
            return describe(missing) + "; from the root it is " + typed_path(sh, tree, rest);
    std::vector<std::string> names = sh.names.below(sh.link, tree, missing.above);
    std::string quoted = with_quotes(missing, names);
    if (quoted.empty() && !look_at(sh.link, tree, path))
        quoted = with_new_quotes(sh, tree, missing);
    if (!quoted.empty())
        return "a name with dots stands in quotes: " + typed_path(sh, tree, quoted);
    if (missing.name.find('.') != std::string::npos) {
        owned_str parts{ucfg_path_parse(missing.name.c_str(), nullptr)};
        std::string whole = parts ? join_path(missing.above, parts.get()) : "";
        whole = join_path(whole, missing.rest);
        if (parts && look_at(sh.link, tree, whole))
            return "these dots stand outside of quotes: " + typed_path(sh, tree, whole);
    }
    std::string text = describe(missing);
    if (names.empty() && !missing.entry && !missing.above.empty())
        return text + ": nothing is below it";
    if (names.empty() && missing.entry) {
        std::string help = help_of(sh.link, tree, missing.above);
        return text + (help.empty() ? "" : ": " + help);
    }
    std::vector<std::string> near = similar_names(names, missing.name);
    for (std::string &name : near)
        name =
            typed_path(sh, tree,
                       join_path(take_text(ucfg_path_append(missing.above.c_str(), name.c_str())),
                                 missing.rest));
    if (!near.empty()) return text + did_you_mean(near);
    const char *list = tree == k_ucfg_management ? "list -m" : "list";
    std::string line = missing.above.empty() ? "" : " " + typed_path(sh, tree, missing.above);
    return text + "; \"" + list + line + "\" shows what there is";
}

std::string about_arguments(shell &sh, const attempt &what) {
    std::string arguments = arguments_of(sh.link, what.path);
    if (arguments.empty()) return "";
    const char *command = what.op == 'I' ? "info " : "admin ";
    return std::string{"usage: "} + command + print_path(what.path) + " " + arguments;
}

/* The words of a value that would do. */
std::string about_value(const ucfg_attr &attr, const std::string &value) {
    std::vector<std::string> choices = to_vector(attr.choices);
    if (std::find(choices.begin(), choices.end(), value) != choices.end()) return "";
    bool is_long = attr.length > 0 && value.size() > static_cast<size_t>(attr.length);
    if (choices.empty())
        return is_long ? "at most " + std::to_string(attr.length) + " characters" : "";
    std::vector<std::string> near = similar_names(choices, value);
    if (choices.size() <= k_many_choices || near.empty()) return list_choices(choices);
    return did_you_mean(near).substr(strlen(": "));
}

}  // namespace

std::string did_you_mean(const std::vector<std::string> &names) {
    std::string text;
    for (size_t i = 0; i < names.size(); i++)
        text += (i == 0 ? ": did you mean " : i + 1 == names.size() ? " or " : ", ") + names[i];
    return names.empty() ? "" : text + "?";
}

std::string next_step(shell &sh, const attempt &what) {
    if (what.path.empty() || !sh.link.logged_in()) return "";
    if (what.op == 'a' || what.op == 'd') {
        std::string whole = take_text(ucfg_path_append(what.path.c_str(), what.value.c_str()));
        owned_attr list = what.one_word ? look_at(sh.link, what.tree, whole) : nullptr;
        if (can(list, what.op))
            return "a name is missing: " + std::string{what.op == 'a' ? "add " : "del "} +
                   typed_path(sh, what.tree, whole) + " NAME";
    }
    auto missing = find_stray(sh.link, sh.names, what.tree, what.path);
    if (missing && what.one_word) {
        std::string name = take_text(ucfg_path_append("", what.value.c_str()));
        missing->rest = join_path(missing->rest, name);
        return about_stray(sh, what.tree, *missing, join_path(what.path, name));
    }
    if (missing && missing->entry && !what.knows_entries) return "";
    if (missing) return about_stray(sh, what.tree, *missing, what.path);
    owned_attr attr = look_at(sh.link, what.tree, what.path);
    if (!attr) return "";
    if (can(attr, what.op)) {
        if (what.op == 's') return about_value(*attr, what.value);
        if (what.op == 'I' || what.op == 'A') return about_arguments(sh, what);
        return what.op == 'd' || what.op == 'm' ? about_entry(sh, what) : "";
    }
    if (what.op == 's' && can(attr, 'g')) return "it can only be read";
    if (what.op == 'm' && (can(attr, 'a') || can(attr, 'd'))) return "its entries are not moved";
    if (strchr("adm", what.op) && can(attr, 'l'))
        return "a section, and no list that can be changed like that";
    return use_of(sh, what.tree, attr, what.path);
}

std::string path_for_command(shell &sh, const word &typed) {
    if (!sh.interactive || !sh.link.logged_in()) return "";
    for (ucfg_tree tree : {k_ucfg_parameters, k_ucfg_management}) {
        auto path = resolve_path(sh, typed.raw, tree);
        if (!path || path->empty() || find_stray(sh.link, sh.names, tree, *path)) continue;
        return use_of(sh, tree, look_at(sh.link, tree, *path), *path);
    }
    return "";
}

int refuse_stray(shell &sh, ucfg_tree tree, const std::string &path) {
    auto missing = find_stray(sh.link, sh.names, tree, path);
    if (!missing) return k_exit_done;
    return complain_failed(sh, print_path(path), about_stray(sh, tree, *missing, path));
}

}  // namespace ucfgsh

#include "ucfgsh/completion.h"

#include <algorithm>

#include "ucfgsh/commits.h"

namespace ucfgsh {

namespace {

/* More than anybody reads. */
constexpr size_t k_candidate_limit = 2000;

/* The line as far as it is typed: the command, the arguments before the last one, and the last one,
 * which may be empty. */
struct typed_line {
    const command *row = nullptr;
    arguments args;
    word last;
    size_t position = 0; /* which argument the last one is, 0 the command itself */
};

typed_line read_line(std::string_view line) {
    typed_line typed;
    words split = split_words(line);
    if (split.fresh)
        typed.last.start = line.size();
    else {
        typed.last = split.list.back();
        split.list.pop_back();
    }
    if (split.list.empty()) return typed;
    typed.row = find_command(split.list[0].text);
    typed.position = 1;
    bool flags = true;
    for (size_t i = 1; i < split.list.size(); i++) {
        const word &w = split.list[i];
        flags = flags && w.raw.size() > 1 && w.raw[0] == '-';
        if (flags)
            typed.args.flags[w.text[1]] = "";
        else
            typed.args.words.push_back(w);
    }
    typed.position += typed.args.words.size();
    return typed;
}

char kind_of(const typed_line &typed) {
    if (typed.position == 0) return 'C';
    if (typed.row && typed.last.raw.starts_with('-')) return '-';
    if (!typed.row || typed.row->kinds.empty()) return 0;
    size_t at = std::min(typed.position, typed.row->kinds.size()) - 1;
    if (typed.position > typed.row->most) return 0;
    char kind = typed.row->kinds[at];
    return kind == 'p' && typed.args.has('m') ? 'm' : kind;
}

/* Where the last component of a typed path begins: behind the last dot outside of quotes. */
size_t last_component(std::string_view raw) {
    size_t start = 0;
    char quote = 0;
    for (size_t i = 0; i < raw.size(); i++) {
        char c = raw[i];
        if (c == '\\' && quote != '\'')
            i++;
        else if (quote != 0)
            quote = c == quote ? 0 : quote;
        else if (c == '"' || c == '\'')
            quote = c;
        else if (c == '.')
            start = i + 1;
    }
    return start;
}

std::vector<std::string> names_below(shell &sh, ucfg_tree tree, const std::string &path) {
    ucfg_strings *names = nullptr;
    sh.link.quietly([&](ucfg_conn *conn) { return ucfg_list(conn, tree, path.c_str(), &names); });
    owned_strings owner{names};
    return to_vector(names);
}

owned_attr attr_of(shell &sh, ucfg_tree tree, const std::string &path) {
    ucfg_attr *attr = nullptr;
    sh.link.quietly([&](ucfg_conn *conn) { return ucfg_attr_of(conn, tree, path.c_str(), &attr); });
    return owned_attr{attr};
}

/* What was typed of a word so far, without its quotes. */
std::string unquoted(std::string_view raw) {
    words split = split_words(raw);
    return split.list.empty() ? "" : split.list[0].text;
}

/* Keeps the names that begin as typed, each as `quote` writes it behind `before`. */
template <class quoting>
void keep(candidates &found, const std::vector<std::string> &names, const std::string &typed,
          const std::string &before, quoting quote) {
    for (const std::string &name : names)
        if (name.starts_with(typed) && found.items.size() < k_candidate_limit)
            found.items.push_back(before + quote(name));
}

std::string quote_component(const std::string &name) {
    return take_text(ucfg_path_quote(name.c_str()));
}

void complete_path(shell &sh, ucfg_tree tree, const typed_line &typed, candidates &found) {
    std::string_view raw = typed.last.raw;
    size_t cut = last_component(raw);
    auto parent =
        resolve_path(sh, cut == 1 ? raw.substr(0, 1) : raw.substr(0, cut - (cut > 0)), tree);
    if (!parent) return;
    keep(found, names_below(sh, tree, *parent), unquoted(raw.substr(cut)),
         std::string{raw.substr(0, cut)}, quote_component);
    if (found.items.size() != 1) return;
    auto path = resolve_path(sh, found.items[0], tree);
    owned_attr attr = path ? attr_of(sh, tree, *path) : nullptr;
    bool children = attr && strchr(attr->ops, 'l');
    if (children)
        found.items[0] += '.';
    else
        found.final = true;
}

void complete_value(shell &sh, const typed_line &typed, candidates &found) {
    auto path = resolve_path(sh, typed.args.words[0].raw);
    if (!path) return;
    owned_attr attr = attr_of(sh, k_ucfg_parameters, *path);
    if (!attr) return;
    std::vector<std::string> values = to_vector(attr->choices);
    char *current = nullptr;
    if (values.empty() && typed.last.raw.empty() && strchr(attr->ops, 'g')) {
        sh.link.quietly([&](ucfg_conn *conn) { return ucfg_get(conn, path->c_str(), &current); });
        if (current && *current) values.emplace_back(current);
    }
    owned_str owner{current};
    keep(found, values, unquoted(typed.last.raw), "", quote_word);
    found.final = true;
}

void complete_entry(shell &sh, const typed_line &typed, candidates &found) {
    auto path = resolve_path(sh, typed.args.words[0].raw);
    if (!path || typed.row->name == "add") return;
    keep(found, names_below(sh, k_ucfg_parameters, *path), unquoted(typed.last.raw), "",
         quote_word);
    found.final = true;
}

void complete_command(const std::string &typed, candidates &found) {
    std::vector<std::string> names;
    for (const command &row : all_commands())
        names.emplace_back(row.name);
    keep(found, names, typed, "", quote_word);
    found.final = true;
}

std::string attr_lines(const ucfg_attr &attr) {
    std::string text;
    if (attr.type) text += std::string{"type: "} + attr.type + "\n";
    if (attr.length > 0) text += "at most " + std::to_string(attr.length) + " characters\n";
    if (attr.choices->count > 0) {
        text += "choices:";
        for (const std::string &choice : to_vector(attr.choices))
            text += " " + quote_word(choice);
        text += "\n";
    }
    return text;
}

std::string explain_value(shell &sh, const typed_line &typed) {
    auto path = resolve_path(sh, typed.args.words[0].raw);
    if (!path) return "";
    std::string text;
    char *help = nullptr;
    char *value = nullptr;
    sh.link.quietly([&](ucfg_conn *conn) { return ucfg_help(conn, path->c_str(), &help); });
    sh.link.quietly([&](ucfg_conn *conn) { return ucfg_get(conn, path->c_str(), &value); });
    owned_str help_owner{help};
    owned_str value_owner{value};
    if (help && *help) text += std::string{help} + "\n";
    if (owned_attr attr = attr_of(sh, k_ucfg_parameters, *path)) text += attr_lines(*attr);
    if (value) text += "now: " + show_value(value) + "\n";
    return text;
}

}  // namespace

candidates complete(shell &sh, std::string_view line) {
    typed_line typed = read_line(line);
    candidates found;
    found.start = typed.last.start;
    switch (kind_of(typed)) {
        case 'C':
            complete_command(typed.last.text, found);
            break;
        case 'p':
        case 'l':
            complete_path(sh, k_ucfg_parameters, typed, found);
            break;
        case 'm':
            complete_path(sh, k_ucfg_management, typed, found);
            break;
        case 'e':
            complete_entry(sh, typed, found);
            break;
        case 'v':
            complete_value(sh, typed, found);
            break;
        case 'n':
            keep(found, commit_numbers(sh.link), typed.last.text, "", quote_word);
            found.final = true;
            break;
        case '-':
            keep(found, flags_of(*typed.row), typed.last.text, "",
                 [](const std::string &flag) { return flag; });
            found.final = true;
            break;
        case 'r':
            keep(found, {"r", "w", "x", "rw"}, typed.last.text, "", quote_word);
            break;
        case 'c':
            complete_command(typed.last.text, found);
            complete_path(sh, k_ucfg_parameters, typed, found);
            break;
        default:
            break;
    }
    return found;
}

std::string explain(shell &sh, std::string_view line) {
    typed_line typed = read_line(line);
    std::string text;
    if (typed.position == 0) {
        for (const command &row : all_commands())
            if (row.name.starts_with(typed.last.text)) text += command_help(row) + "\n";
        return text;
    }
    if (!typed.row) return "unknown command\n";
    text = std::string{typed.row->name} + " " + std::string{typed.row->synopsis} + "\n";
    if (kind_of(typed) == 'v') return text + explain_value(sh, typed);
    for (const std::string &item : complete(sh, line).items)
        text += "  " + item + "\n";
    return text;
}

bool asks_for_help(std::string_view line) {
    words split = split_words(line);
    if (split.open) return false;
    constexpr std::string_view k_names = "Cplmc";
    char kind = kind_of(read_line(line));
    return split.fresh || (kind != 0 && k_names.find(kind) != std::string_view::npos);
}

std::string common_prefix(const std::vector<std::string> &items) {
    if (items.empty()) return "";
    std::string prefix = items[0];
    for (const std::string &item : items) {
        auto end = std::mismatch(prefix.begin(), prefix.end(), item.begin(), item.end()).first;
        /* Not in the middle of a character. */
        while (end != prefix.begin() && end != prefix.end() && (*end & '\xc0') == '\x80')
            end--;
        prefix.erase(end, prefix.end());
    }
    return prefix;
}

}  // namespace ucfgsh

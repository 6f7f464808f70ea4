#include "ucfgsh/explain.h"

#include <algorithm>
#include <cstring>

#include "ucfgsh/about.h"
#include "ucfgsh/columns.h"
#include "ucfgsh/lookup.h"
#include "ucfgsh/secrets.h"
#include "ucfgsh/terminal.h"
#include "ucfgsh/usable.h"

namespace ucfgsh {

namespace {

constexpr size_t k_requests = 400;
constexpr std::chrono::milliseconds k_time{500};

std::string value_of(session &link, const std::string &path) {
    char *text = nullptr;
    int code = link.quietly([&](ucfg_conn *conn) { return ucfg_get(conn, path.c_str(), &text); });
    owned_str value{text};
    return code == k_ucfg_ok ? show_value(value.get()) : "";
}

std::string say_more(size_t shown, size_t count) {
    if (shown >= count) return "";
    return "... " + std::to_string(count - shown) + " more of " + std::to_string(count) + "\n";
}

std::string first_line(const std::string &text) {
    return printable(text.substr(0, text.find('\n')));
}

/* What is known of a node as long as it may be asked for. */
void describe(session &link, ucfg_tree tree, const std::string &path, allowance &left,
              described &row) {
    if (!left.take()) return;
    owned_attr attr = look_at(link, tree, path);
    if (!attr) return;
    if (left.take()) row.help = first_line(help_of(link, tree, path));
    if (tree == k_ucfg_management) {
        if (has_letter(*attr, "IA") && left.take()) row.value = arguments_of(link, path);
    } else if (has_letter(*attr, "g") && left.take()) {
        row.value = says_secret(*attr) ? "(secret)" : printable(value_of(link, path));
    }
}

std::string describe_commands(const std::vector<std::string> &names, size_t width) {
    std::vector<described> rows;
    for (const std::string &name : names)
        if (const command *row = find_command(name))
            rows.push_back({name, "", std::string{row->summary}});
    return as_table(rows, width);
}

std::string attr_lines(session &link, const ucfg_attr &attr) {
    std::string text;
    if (attr.type) {
        std::string meaning = describe_type(link, attr.type);
        text += std::string{"type: "} + attr.type + (meaning.empty() ? "" : " (" + meaning + ")") +
                "\n";
    }
    if (attr.length > 0) text += "at most " + std::to_string(attr.length) + " characters\n";
    size_t choices = attr.choices->count;
    if (choices > k_many_choices) text += "one of these " + std::to_string(choices) + ":\n";
    if (choices > 0 && choices <= k_many_choices)
        text += list_choices(to_vector(attr.choices)) + "\n";
    return text;
}

/* The node that a line is about, in front of a value, an entry or an argument. */
std::string explain_node(shell &sh, const typed_line &typed, char kind) {
    ucfg_tree tree = typed.row->kinds.starts_with('m') ? k_ucfg_management : k_ucfg_parameters;
    auto path = resolve_path(sh, typed.args.words[0].raw, tree);
    owned_attr attr = path ? look_at(sh.link, tree, *path) : nullptr;
    if (!attr) return "";
    std::string text = help_of(sh.link, tree, *path);
    if (!text.empty()) text += "\n";
    if (tree == k_ucfg_management) return usage_of(sh.link, *attr, *path) + text;
    if (kind != 'v' || !has_letter(*attr, "g")) return text + attr_lines(sh.link, *attr);
    std::string value = says_secret(*attr) ? "(secret)" : value_of(sh.link, *path);
    if (!value.empty()) text += "now: " + value + "\n";
    return text + attr_lines(sh.link, *attr);
}

}  // namespace

std::string show_candidates(shell &sh, const candidates &found, const page &size) {
    std::vector<std::string> labels;
    for (const std::string &item : found.items)
        labels.push_back(item.substr(std::min(found.shown, item.size())));
    /* A single one leads on. */
    if (found.tree && labels.size() == 1 && labels[0].ends_with('.')) labels[0].pop_back();
    size_t fits = std::max<size_t>(size.rows, 5) - 4;
    allowance left{k_requests, k_time};
    std::vector<described> rows;
    bool plain = true;
    for (size_t i = 0; found.tree && i < std::min(labels.size(), fits); i++) {
        rows.push_back({printable(labels[i]), "", ""});
        if (i < found.commands)
            rows.back().help = find_command(found.items[i])->summary;
        else if (auto path = resolve_path(sh, found.items[i], *found.tree))
            describe(sh.link, *found.tree, *path, left, rows.back());
        plain = plain && rows.back().value.empty() && rows.back().help.empty();
    }
    size_t shown = rows.size();
    std::string text =
        plain ? in_columns(labels, size.width, fits, shown) : as_table(rows, size.width);
    return text + say_more(shown, found.count);
}

std::string explain(shell &sh, std::string_view line, const page &size) {
    typed_line typed = read_line(line);
    candidates found = complete(sh, line);
    if (typed.position == 0) return describe_commands(found.items, size.width);
    if (!typed.row) return "unknown command\n";
    std::string text = std::string{typed.row->name} + " " + std::string{typed.row->synopsis} + "\n";
    char kind = kind_of(typed);
    if (kind != 0 && strchr("ve.", kind) && !typed.args.words.empty())
        text += explain_node(sh, typed, kind);
    if (kind == 'v' && found.count <= k_many_choices) return text;
    if (found.tree && found.items.empty()) {
        /* Where an area is not installed, its help says so. */
        std::string help = help_of(sh.link, *found.tree, found.above);
        return text + (help.empty() ? "" : help + "\n") + "there is nothing here that \"" +
               std::string{typed.row->name} + "\" could use\n";
    }
    return text + show_candidates(sh, found, size);
}

}  // namespace ucfgsh

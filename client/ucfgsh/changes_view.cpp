/* What is not committed yet, for people and as JSON. */
#include <algorithm>

#include "ucfgsh/commands.h"
#include "ucfgsh/commits.h"
#include "ucfgsh/lookup.h"
#include "ucfgsh/usable.h"

namespace ucfgsh {

namespace {

std::vector<std::string> lines_of(const std::string &text) {
    std::vector<std::string> lines;
    for (size_t at = 0; at <= text.size();) {
        size_t end = std::min(text.find('\n', at), text.size());
        lines.push_back(text.substr(at, end - at));
        at = end + 1;
    }
    return lines;
}

/* A value of several lines: the lines that both have at the ends are not repeated. */
void print_long_change(shell &sh, const value_change &change) {
    std::vector<std::string> before = lines_of(*change.before);
    std::vector<std::string> after = lines_of(*change.after);
    size_t head = 0;
    while (head < before.size() && head < after.size() && before[head] == after[head])
        head++;
    size_t tail = 0;
    while (tail < before.size() - head && tail < after.size() - head &&
           before[before.size() - 1 - tail] == after[after.size() - 1 - tail])
        tail++;
    sh.out.line("  " + sh.out.paint(style::name, change.path) + ": line " +
                std::to_string(head + 1));
    for (size_t i = head; i < before.size() - tail; i++)
        sh.out.line(sh.out.paint(style::bad, "-   " + before[i]));
    for (size_t i = head; i < after.size() - tail; i++)
        sh.out.line(sh.out.paint(style::good, "+   " + after[i]));
}

void print_change(shell &sh, const value_change &change) {
    auto long_value = [](const std::optional<std::string> &text) {
        return text && text->find('\n') != std::string::npos;
    };
    if (change.before && change.after && (long_value(change.before) || long_value(change.after))) {
        print_long_change(sh, change);
        return;
    }
    auto side = [&](style look, const char *sign, const std::string &value) {
        std::string told = change.only_name ? "" : ": " + show_value(value);
        sh.out.line(sh.out.paint(look, sign + change.path + told));
    };
    if (change.before) side(style::bad, "- ", *change.before);
    if (change.after) side(style::good, "+ ", *change.after);
}

void print_order(shell &sh, const order_change &change) {
    sh.out.line("  " + sh.out.paint(style::name, change.path) + ": order");
    for (size_t i = 0; i < change.before.size(); i++) {
        if (change.before[i] == change.after[i]) continue;
        sh.out.line(sh.out.paint(style::bad, "- " + change.before[i]) + "\n" +
                    sh.out.paint(style::good, "+ " + change.after[i]));
    }
}

owned_json changes_json(const change_set &set, bool dirty) {
    owned_json values{json_array()};
    for (const value_change &change : set.values) {
        owned_json item = json_object_of({{"path", change.path}});
        json_put(item, "before",
                 change.before ? json_text(*change.before) : owned_json{json_null()});
        json_put(item, "after", change.after ? json_text(*change.after) : owned_json{json_null()});
        json_array_append_new(values.get(), item.release());
    }
    owned_json orders{json_array()};
    for (const order_change &change : set.orders) {
        owned_json item = json_object_of({{"path", change.path}});
        json_put(item, "before", json_list(change.before));
        json_put(item, "after", json_list(change.after));
        json_array_append_new(orders.get(), item.release());
    }
    owned_json object{json_object()};
    json_put(object, "dirty", owned_json{json_boolean(dirty)});
    json_put(object, "changes", std::move(values));
    json_put(object, "orders", std::move(orders));
    return object;
}

int show_file_diff(shell &sh) {
    if (!sh.opts.diff_node) return run_diff(sh, {});
    char *text = nullptr;
    int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
        return ucfg_info(conn, sh.opts.diff_node->c_str(), nullptr, 0, &text);
    });
    owned_str diff{text};
    if (code != k_ucfg_ok) return report_failure(sh, *sh.opts.diff_node, code);
    return show_lines(sh, split_lines(diff.get()));
}

/* A value on one line, with a backslash and an n where it had newlines, and two backslashes for
 * one. */
std::string with_newlines(std::string text) {
    for (size_t at = 0; (at = text.find('\\', at)) != std::string::npos; at++)
        if (at + 1 < text.size()) text.replace(at, 2, text[at + 1] == 'n' ? "\n" : "\\");
    return text;
}

bool is_change_line(const std::string &line) {
    return line.starts_with("+ ") || line.starts_with("- ");
}

/* A daemon that compares tells of each parameter by "- PATH: VALUE" and "+ PATH: VALUE". */
change_set read_changes(const std::vector<std::string> &lines) {
    change_set set;
    for (const std::string &line : lines) {
        if (!is_change_line(line)) continue;
        size_t colon = line.find(": ");
        value_change change{
            print_path(line.substr(2, colon - 2)), {}, {}, colon == std::string::npos};
        std::string value = change.only_name ? "" : with_newlines(line.substr(colon + 2));
        bool goes_on = line[0] == '+' && !set.values.empty() &&
                       set.values.back().path == change.path && !set.values.back().after;
        if (goes_on) {
            set.values.back().after = value;
            continue;
        }
        (line[0] == '+' ? change.after : change.before) = value;
        set.values.push_back(std::move(change));
    }
    return set;
}

std::vector<std::string> plain_names(const std::string &list) {
    std::vector<std::string> names;
    for (const word &name : split_words(list).list)
        names.push_back(take_text(ucfg_unescape(name.raw.c_str())));
    return names;
}

/* Of a list whose entries were moved the daemon tells the names as they stand in paths, parted by
 * blanks, as if they were its value. */
bool is_order(shell &sh, const value_change &change, order_change &order) {
    if (!change.before || !change.after) return false;
    order = {change.path, plain_names(*change.before), plain_names(*change.after)};
    if (!std::is_permutation(order.before.begin(), order.before.end(), order.after.begin(),
                             order.after.end()))
        return false;
    owned_str path{ucfg_path_parse(change.path.c_str(), nullptr)};
    owned_attr attr = path ? look_at(sh.link, k_ucfg_parameters, path.get()) : nullptr;
    return attr && has_letter(*attr, "lm") && !has_letter(*attr, "g");
}

change_set with_orders(shell &sh, change_set set) {
    order_change order;
    std::erase_if(set.values, [&](const value_change &change) {
        if (!is_order(sh, change, order)) return false;
        set.orders.push_back(order);
        return true;
    });
    return set;
}

void print_set(shell &sh, const change_set &set) {
    for (const value_change &change : set.values)
        print_change(sh, change);
    for (const order_change &change : set.orders)
        print_order(sh, change);
}

/* For an older daemon, or a user who may not ask: only what was changed from here is looked at. */
int compare_here(shell &sh, bool dirty) {
    sh.changes.follow(sh.link);
    change_set set = sh.changes.compare(sh.link);
    if (sh.out.json()) {
        sh.out.document(changes_json(set, dirty));
        return k_exit_done;
    }
    print_set(sh, set);
    if (sh.link.resumed_foreign())
        sh.out.line("changes from before this program took the session up are not shown");
    else if (set.empty() && dirty)
        sh.out.line(
            "no parameter that was changed here differs, but the session counts as changed");
    else if (set.empty())
        sh.out.line("no changes");
    if (dirty && sh.interactive)
        sh.out.line(sh.out.paint(style::faint,
                                 "(the daemon has not compared: what else a change has changed "
                                 "is not shown)"));
    return k_exit_done;
}

int compare_there(shell &sh, bool dirty) {
    action_lines found;
    int code = collect_action(sh, k_changes_node, found);
    if (code == k_ucfg_refused) return compare_here(sh, dirty);
    if (code != k_ucfg_ok) return report_action(sh, "changes", code, found);
    if (sh.out.json())
        sh.out.document(changes_json(with_orders(sh, read_changes(found.lines)), dirty));
    else if (found.lines.empty())
        sh.out.line("no changes");
    else
        print_changes(sh, found.lines);
    return k_exit_done;
}

}  // namespace

void print_changes(shell &sh, const std::vector<std::string> &lines) {
    for (const std::string &line : lines)
        if (!line.empty() && !is_change_line(line)) sh.out.line(sh.out.paint(style::faint, line));
    print_set(sh, with_orders(sh, read_changes(lines)));
}

int run_changes(shell &sh, const arguments &args) {
    if (args.has('f')) return show_file_diff(sh);
    int dirty = 0;
    int code =
        sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) { return ucfg_dirty(conn, &dirty); });
    if (code != k_ucfg_ok) return report_failure(sh, "changes", code);
    bool compares = has_node(sh.link, k_ucfg_management, k_changes_node);
    return compares ? compare_there(sh, dirty != 0) : compare_here(sh, dirty != 0);
}

}  // namespace ucfgsh

#include "ucfgsh/saved_tree.h"

#include <cstring>
#include <map>

#include "ucfgsh/commits.h"
#include "ucfgsh/teach.h"

namespace ucfgsh {

namespace {

/* The operations of nodes, each asked for once. */
class node_operations {
  public:
    explicit node_operations(session &link) : link_(link) {}

    bool has(const std::string &path, char letter) {
        auto known = known_.find(path);
        if (known == known_.end()) known = known_.emplace(path, ask(path)).first;
        return known->second.find(letter) != std::string::npos;
    }

  private:
    std::string ask(const std::string &path) {
        ucfg_attr *found = nullptr;
        link_.quietly([&](ucfg_conn *conn) {
            return ucfg_attr_of(conn, k_ucfg_parameters, path.c_str(), &found);
        });
        owned_attr attr{found};
        return attr ? attr->ops : "";
    }

    session &link_;
    std::map<std::string, std::string> known_;
};

/* The order that adds the entry at the end of `path`; nothing where that is none. */
void add_entry(node_operations &nodes, const std::string &path, std::vector<saved_line> &lines) {
    size_t dot = path.rfind('.');
    if (dot == std::string::npos || !nodes.has(path.substr(0, dot), 'a')) return;
    lines.push_back(
        {{k_ucfg_add, path.substr(0, dot), take_text(ucfg_unescape(path.c_str() + dot + 1))}});
}

void add_value(shell &sh, node_operations &nodes, const std::string &path,
               const std::optional<std::string> &value, std::vector<saved_line> &lines) {
    if (is_commit_order(path) || !nodes.has(path, 's')) return;
    if (!value && !nodes.has(path, 'g')) return;
    lines.push_back({{k_ucfg_set, path, value.value_or("")}});
    if (value) return;
    lines.back().unreadable = path;
    lines.back().reason = why_unreadable(sh.link, path);
}

}  // namespace

int read_tree(shell &sh, const char *command, const std::string &path,
              std::vector<saved_line> &lines) {
    ucfg_strings *found = nullptr;
    int code = sh.link.call(after_loss::repeat, [&](ucfg_conn *conn) {
        return ucfg_list_all(conn, k_ucfg_parameters, path.c_str(), &found);
    });
    owned_strings below{found};
    if (code != k_ucfg_ok)
        return report_failure(sh, path.empty() ? command : print_path(path), code,
                              {'l', k_ucfg_parameters, path});
    int status = refuse_stray(sh, k_ucfg_parameters, path);
    if (status != k_exit_done) return status;
    std::vector<std::string> paths;
    if (!path.empty()) paths.push_back(path);
    for (const std::string &relative : to_vector(below.get()))
        paths.push_back(join_path(path, relative));
    std::vector<std::optional<std::string>> values = read_values(sh.link, paths);
    node_operations nodes{sh.link};
    for (size_t dot = path.find('.'); dot != std::string::npos; dot = path.find('.', dot + 1))
        add_entry(nodes, path.substr(0, dot), lines);
    for (size_t i = 0; i < paths.size(); i++) {
        add_entry(nodes, paths[i], lines);
        add_value(sh, nodes, paths[i], values[i], lines);
    }
    return k_exit_done;
}

std::vector<std::string> print_saved(const std::vector<saved_line> &lines) {
    std::vector<std::string> text;
    text.reserve(lines.size());
    for (const saved_line &line : lines)
        text.push_back(line.unreadable.empty()
                           ? typed_order(line.what)
                           : "# " + print_path(line.unreadable) + " cannot be read" +
                                 (line.reason.empty() ? "" : ": " + line.reason));
    return text;
}

}  // namespace ucfgsh

#include "ucfgsh/changes.h"

#include "ucfgsh/commands.h"
#include "ucfgsh/terminal.h"

namespace ucfgsh {

namespace {

/* How much of a deleted entry is remembered. */
constexpr size_t k_subtree_limit = 1000;

std::optional<std::vector<std::string>> read_names(session &link, const std::string &path) {
    ucfg_strings *names = nullptr;
    int code = link.quietly(
        [&](ucfg_conn *conn) { return ucfg_list(conn, k_ucfg_parameters, path.c_str(), &names); });
    owned_strings owner{names};
    if (code != k_ucfg_ok) return std::nullopt;
    return to_vector(names);
}

int take_value(size_t index, const char *text, int, void *data) {
    auto *values = static_cast<std::vector<std::optional<std::string>> *>(data);
    if (text) (*values)[index] = text;
    return 0;
}

}  // namespace

std::vector<std::optional<std::string>> read_values(session &link,
                                                    const std::vector<std::string> &paths) {
    std::vector<std::optional<std::string>> values(paths.size());
    std::vector<const char *> pointers;
    pointers.reserve(paths.size());
    for (const std::string &path : paths)
        pointers.push_back(path.c_str());
    link.quietly([&](ucfg_conn *conn) {
        return ucfg_get_many(conn, pointers.data(), pointers.size(), take_value, &values);
    });
    return values;
}

std::string why_unreadable(session &link, const std::string &path) {
    char *text = nullptr;
    int code = link.quietly([&](ucfg_conn *conn) { return ucfg_get(conn, path.c_str(), &text); });
    owned_str owner{text};
    if (code == k_ucfg_ok || !link.logged_in()) return "";
    std::string said = readable(ucfg_text(link.conn()));
    return printable(said.substr(0, said.find('\n')));
}

std::vector<std::string> subtree(session &link, const std::string &path) {
    std::vector<std::string> paths{path};
    ucfg_strings *below = nullptr;
    link.quietly([&](ucfg_conn *conn) {
        return ucfg_list_all(conn, k_ucfg_parameters, path.c_str(), &below);
    });
    owned_strings owner{below};
    for (const std::string &relative : to_vector(below))
        paths.push_back(join_path(path, relative));
    return paths;
}

void change_log::note_all(session &link, const std::vector<std::string> &paths) {
    std::vector<std::string> unknown;
    for (const std::string &path : paths) {
        if (values_.contains(path)) continue;
        if (is_new(path))
            values_[path] = std::nullopt;
        else
            unknown.push_back(path);
    }
    std::vector<value> found = read_values(link, unknown);
    for (size_t i = 0; i < unknown.size(); i++)
        values_[unknown[i]] = std::move(found[i]);
}

/* Whether the path lies in an entry that was not there before the changes. */
bool change_log::is_new(const std::string &path) const {
    for (size_t dot = path.find('.'); dot != std::string::npos; dot = path.find('.', dot + 1)) {
        auto list = lists_.find(path.substr(0, dot));
        if (list == lists_.end()) continue;
        std::string name = path.substr(dot + 1, path.find('.', dot + 1) - dot - 1);
        if (!list->second.known.contains(take_text(ucfg_unescape(name.c_str())))) return true;
    }
    return false;
}

void change_log::note_set(session &link, const std::string &path) {
    note_all(link, {path});
}

void change_log::note_list(session &link, const std::string &path) {
    if (lists_.contains(path)) return;
    auto names = read_names(link, path);
    if (!names) return;
    std::set<std::string> known(names->begin(), names->end());
    lists_[path] = {std::move(*names), std::move(known)};
}

void change_log::note_entry(session &link, const std::string &list, const std::string &name) {
    note_list(link, list);
    std::string path = take_text(ucfg_path_append(list.c_str(), name.c_str()));
    std::vector<std::string> paths = subtree(link, path);
    if (paths.size() > k_subtree_limit) paths.resize(k_subtree_limit);
    note_all(link, paths);
}

void change_log::clear() {
    values_.clear();
    lists_.clear();
}

void change_log::follow(const session &link) {
    if (link.generation() != generation_) clear();
    generation_ = link.generation();
}

namespace {

/* Builds a change_set from what is remembered. */
class comparison {
  public:
    using value = std::optional<std::string>;

    comparison(session &link, std::map<std::string, value> before)
        : link_(link), before_(std::move(before)) {}

    void look_at_list(const std::string &path, const std::vector<std::string> &old_names) {
        std::vector<std::string> names =
            read_names(link_, path).value_or(std::vector<std::string>{});
        if (names == old_names) return;
        std::set<std::string> old_set(old_names.begin(), old_names.end());
        std::set<std::string> new_set(names.begin(), names.end());
        if (old_set == new_set) set_.orders.push_back({print_path(path), old_names, names});
        for (const std::string &name : new_set) {
            if (old_set.contains(name)) continue;
            appeared_.push_back(entry_path(path, name));
            for (const std::string &below : subtree(link_, appeared_.back()))
                before_.try_emplace(below);
        }
        for (const std::string &name : old_set)
            if (!new_set.contains(name)) vanished_.push_back(entry_path(path, name));
    }

    change_set finish() {
        std::vector<std::string> paths;
        for (const auto &[path, old_value] : before_)
            paths.push_back(path);
        std::vector<value> after = read_values(link_, paths);
        for (size_t i = 0; i < paths.size(); i++) {
            const value &old_value = before_[paths[i]];
            if (old_value == after[i]) continue;
            set_.values.push_back({print_path(paths[i]), old_value, after[i]});
            shown_.insert(paths[i]);
        }
        /* An entry without values of its own still came or went. */
        for (const std::string &entry : appeared_)
            if (!is_shown(entry)) set_.values.push_back({print_path(entry), std::nullopt, ""});
        for (const std::string &entry : vanished_)
            if (!is_shown(entry)) set_.values.push_back({print_path(entry), "", std::nullopt});
        return std::move(set_);
    }

  private:
    static std::string entry_path(const std::string &list, const std::string &name) {
        return take_text(ucfg_path_append(list.c_str(), name.c_str()));
    }

    bool is_shown(const std::string &entry) const {
        auto at = shown_.lower_bound(entry + ".");
        return shown_.contains(entry) || (at != shown_.end() && at->starts_with(entry + "."));
    }

    session &link_;
    std::map<std::string, value> before_;
    change_set set_;
    std::set<std::string> shown_;
    std::vector<std::string> appeared_, vanished_;
};

}  // namespace

change_set change_log::compare(session &link) const {
    comparison work{link, values_};
    for (const auto &[path, names] : lists_)
        work.look_at_list(path, names.in_order);
    return work.finish();
}

}  // namespace ucfgsh

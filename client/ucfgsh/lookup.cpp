/* A path is followed from the top, and each name looked for in the listing of the node above. One
 * that is listed is there. One that is not may still be a node of its own that a list does not
 * show; so the daemon is asked about a made-up name beside it: where both are answered alike, the
 * name is as made-up as the other one. */
#include "ucfgsh/lookup.h"

#include <algorithm>
#include <cstring>

#include "ucfgd/nearest.h"
#include "ucfgsh/about.h"

namespace ucfgsh {

namespace {

constexpr std::chrono::seconds k_fresh{2};
constexpr size_t k_listings = 1000;
constexpr size_t k_similar = 3;
constexpr const char *k_made_up = "no-such-name";

std::string lower(std::string text) {
    for (char &c : text)
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    return text;
}

/* The help without the name, which may be part of it. */
std::string help_besides(session &link, const std::string &path, const std::string &name) {
    std::string help = help_of(link, k_ucfg_parameters, path);
    size_t at = help.find(name);
    return at == std::string::npos ? help : help.erase(at, name.size());
}

bool same_node(const ucfg_attr &a, const ucfg_attr &b) {
    return strcmp(a.ops, b.ops) == 0 && a.length == b.length &&
           std::string_view{a.type ? a.type : ""} == (b.type ? b.type : "");
}

bool is_made_up(session &link, ucfg_tree tree, const std::string &above, const std::string &name,
                const ucfg_attr &attr) {
    std::string beside = take_text(ucfg_path_append(above.c_str(), k_made_up));
    owned_attr other = look_at(link, tree, beside);
    if (!other || !same_node(attr, *other)) return false;
    if (tree == k_ucfg_management) return true;
    std::string path = take_text(ucfg_path_append(above.c_str(), name.c_str()));
    return help_besides(link, path, name) == help_besides(link, beside, k_made_up);
}

}  // namespace

owned_attr look_at(session &link, ucfg_tree tree, const std::string &path) {
    ucfg_attr *attr = nullptr;
    link.quietly([&](ucfg_conn *conn) { return ucfg_attr_of(conn, tree, path.c_str(), &attr); });
    return owned_attr{attr};
}

std::optional<bool> known_names::has(session &link, ucfg_tree tree, const std::string &path,
                                     const std::string &name) {
    auto at = lists_.find({tree, path});
    bool fresh = at != lists_.end() && clock::now() - at->second.asked < k_fresh;
    if (fresh && (at->second.any || at->second.names.contains(name))) return true;
    ucfg_strings *found = nullptr;
    link.quietly([&](ucfg_conn *conn) { return ucfg_list(conn, tree, path.c_str(), &found); });
    owned_strings names{found};
    if (!names) return std::nullopt;
    if (lists_.size() >= k_listings) lists_.clear();
    listing &now = lists_[{tree, path}];
    now.asked = clock::now();
    now.names = {names->items, names->items + names->count};
    now.any = std::any_of(names->items, names->items + names->count,
                          [](const char *each) { return *each == '*'; });
    return now.any || now.names.contains(name);
}

void known_names::added(const std::string &path, const std::string &name) {
    auto at = lists_.find({k_ucfg_parameters, path});
    if (at != lists_.end()) at->second.names.insert(name);
}

void known_names::deleted(const std::string &path, const std::string &name) {
    auto at = lists_.find({k_ucfg_parameters, path});
    if (at != lists_.end()) at->second.names.erase(name);
}

std::vector<std::string> known_names::below(session &link, ucfg_tree tree,
                                            const std::string &path) {
    ucfg_strings *found = nullptr;
    link.quietly([&](ucfg_conn *conn) { return ucfg_list(conn, tree, path.c_str(), &found); });
    owned_strings names{found};
    return to_vector(names.get());
}

std::optional<stray> find_stray(session &link, known_names &known, ucfg_tree tree,
                                const std::string &path) {
    std::string above;
    for (size_t at = 0; at < path.size();) {
        size_t end = std::min(path.find('.', at), path.size());
        std::string here = path.substr(0, end);
        std::string name = take_text(ucfg_unescape(path.substr(at, end - at).c_str()));
        auto listed = known.has(link, tree, above, name);
        if (!listed) return std::nullopt;
        if (!*listed) {
            std::string rest = path.substr(std::min(end + 1, path.size()));
            owned_attr attr = look_at(link, tree, here);
            if (!link.logged_in()) return std::nullopt;
            if (!attr) return stray{above, name, rest, false};
            if (is_made_up(link, tree, above, name, *attr)) return stray{above, name, rest, true};
        }
        above = here;
        at = end + 1;
    }
    return std::nullopt;
}

std::string describe(const stray &missing) {
    std::string name = take_text(ucfg_path_quote(missing.name.c_str()));
    if (missing.entry) return "no entry " + name + " in " + print_path(missing.above);
    return "there is no " + name +
           (missing.above.empty() ? "" : " in " + print_path(missing.above));
}

std::vector<std::string> similar_names(const std::vector<std::string> &names,
                                       const std::string &typed) {
    std::vector<std::pair<size_t, std::string>> found;
    std::string wanted = lower(typed);
    size_t most = std::clamp<size_t>(wanted.size() / 3, 1, 3);
    for (const std::string &name : names) {
        std::string known = lower(name);
        bool begins = known.starts_with(wanted);
        size_t far = known.size() > wanted.size() ? known.size() - wanted.size()
                                                  : wanted.size() - known.size();
        if (!begins && far > most) continue;
        size_t steps = begins ? 1 : count_slips(wanted, known);
        if (steps <= most) found.emplace_back(steps, name);
    }
    std::stable_sort(found.begin(), found.end(),
                     [](const auto &a, const auto &b) { return a.first < b.first; });
    std::vector<std::string> best;
    for (size_t i = 0; i < std::min(found.size(), k_similar); i++)
        best.push_back(found[i].second);
    return best;
}

}  // namespace ucfgsh

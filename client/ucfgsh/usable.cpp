#include "ucfgsh/usable.h"

#include <algorithm>
#include <array>
#include <set>

#include "ucfgsh/lookup.h"

namespace ucfgsh {

namespace {

constexpr size_t k_requests = 600;
constexpr std::chrono::milliseconds k_time{400};
constexpr size_t k_depth = 5;
constexpr size_t k_most_names = 100;
/* The entries of a list have the same names below them, and the first ones tell of all. */
constexpr size_t k_samples = 12;

struct need {
    std::string_view command, letters;
};

constexpr std::array k_needs{
    need{"get", "g"},   need{"set", "s"},     need{"add", "a"},
    need{"del", "d"},   need{"move", "m"},    need{"info", "I"},
    need{"admin", "A"}, need{"list", "ladm"}, need{"cd", "ladm"},
};

class search {
  public:
    search(session &link, ucfg_tree tree, std::string_view letters)
        : link_(link), tree_(tree), letters_(letters) {}

    bool leads_on(const std::string &path, size_t depth) {
        if (!left_.take()) return true;
        owned_attr attr = look_at(link_, tree_, path);
        if (!attr || has_letter(*attr, letters_)) return true;
        /* A list without operations has nothing but its names. */
        if (letters_.find('l') != std::string_view::npos) return *attr->ops == '\0';
        if (!has_letter(*attr, "l")) return false;
        if (depth == 0 || !left_.take()) return true;
        ucfg_strings *found = nullptr;
        link_.quietly(
            [&](ucfg_conn *conn) { return ucfg_list(conn, tree_, path.c_str(), &found); });
        owned_strings names{found};
        if (!names) return true;
        std::set<std::vector<std::string>> kinds;
        for (size_t i = 0; i < std::min(names->count, k_samples); i++) {
            below_.clear();
            if (leads_on(take_text(ucfg_path_append(path.c_str(), names->items[i])), depth - 1))
                return true;
            kinds.insert(below_);
        }
        below_ = to_vector(names.get());
        return names->count > k_samples && kinds.size() > 1;
    }

  private:
    session &link_;
    ucfg_tree tree_;
    std::string_view letters_;
    allowance left_{k_requests, k_time};
    std::vector<std::string> below_; /* what the node that was looked at last has below it */
};

}  // namespace

std::string_view letters_for(std::string_view command) {
    for (const need &row : k_needs)
        if (row.command == command) return row.letters;
    return "";
}

bool has_letter(const ucfg_attr &attr, std::string_view letters) {
    return std::string_view{attr.ops}.find_first_of(letters) != std::string_view::npos;
}

std::vector<std::string> usable_names(session &link, ucfg_tree tree, const std::string &above,
                                      const std::vector<std::string> &names,
                                      std::string_view letters) {
    if (letters.empty() || names.size() > k_most_names) return names;
    search way{link, tree, letters};
    std::vector<std::string> usable;
    for (const std::string &name : names)
        if (way.leads_on(take_text(ucfg_path_append(above.c_str(), name.c_str())), k_depth))
            usable.push_back(name);
    return usable;
}

}  // namespace ucfgsh

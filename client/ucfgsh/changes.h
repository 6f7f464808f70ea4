/* What this program has changed and not committed yet. */
#ifndef UCFGSH_CHANGES_H
#define UCFGSH_CHANGES_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "ucfgsh/session.h"

namespace ucfgsh {

/* One parameter whose value differs; no value: it did not or does not exist. Of an entry, and of a
 * parameter that the user may not read, only the name is told: the value is "". */
struct value_change {
    std::string path;
    std::optional<std::string> before, after;
    bool only_name = false;
};

/* One list whose entries are the same ones in another order. */
struct order_change {
    std::string path;
    std::vector<std::string> before, after;
};

struct change_set {
    std::vector<value_change> values;
    std::vector<order_change> orders;
    bool empty() const { return values.empty() && orders.empty(); }
};

/* Remembers what things were before the first change to them. What they are now is always asked of
 * the daemon, so that a change that was taken back, by hand or otherwise, is no change. */
class change_log {
  public:
    /* Before a change is asked for. A path that cannot be read counts as one without a value. */
    void note_set(session &link, const std::string &path);
    void note_list(session &link, const std::string &path);
    void note_entry(session &link, const std::string &list, const std::string &name);

    /* The changes are committed or dropped. */
    void clear();

    /* Forgets everything when the session is another one than last time. */
    void follow(const session &link);

    change_set compare(session &link) const;

  private:
    using value = std::optional<std::string>;
    struct list_names {
        std::vector<std::string> in_order;
        std::set<std::string> known;
    };
    void note_all(session &link, const std::vector<std::string> &paths);
    bool is_new(const std::string &path) const;

    std::map<std::string, value> values_;
    std::map<std::string, list_names> lists_;
    unsigned generation_ = 0;
};

/* The values of many paths, in order. */
std::vector<std::optional<std::string>> read_values(session &link,
                                                    const std::vector<std::string> &paths);

/* Why a value could not be read, in a line; "" where the daemon does not say. */
std::string why_unreadable(session &link, const std::string &path);

/* A node and everything below it. */
std::vector<std::string> subtree(session &link, const std::string &path);

}  // namespace ucfgsh

#endif

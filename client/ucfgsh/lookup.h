/* Whether what a path names is there. The daemon answers for every name below a node that takes any
 * name, as the lists do; whether a list has the entry only its listing tells. */
#ifndef UCFGSH_LOOKUP_H
#define UCFGSH_LOOKUP_H

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <unordered_set>
#include <vector>

#include "ucfgsh/session.h"

namespace ucfgsh {

/* Listings that were asked for a moment ago, so that a script that walks a long list does not ask
 * for the whole of it at every step. */
class known_names {
  public:
    /* Whether the listing of a node (a wire path) shows the name, or is none of entries: one that
     * nobody defined shows the "*" that stands for any name. Nothing when there is no listing. */
    std::optional<bool> has(session &link, ucfg_tree tree, const std::string &path,
                            const std::string &name);

    /* The names below a node as they are now; empty too when they cannot be had. */
    std::vector<std::string> below(session &link, ucfg_tree tree, const std::string &path);

    /* Something may have changed. */
    void forget() { lists_.clear(); }

    /* An entry of a parameter has been added or deleted from here. */
    void added(const std::string &path, const std::string &name);
    void deleted(const std::string &path, const std::string &name);

  private:
    using clock = std::chrono::steady_clock;
    struct listing {
        std::unordered_set<std::string> names;
        bool any = false;
        clock::time_point asked;
    };
    std::map<std::pair<ucfg_tree, std::string>, listing> lists_;
};

/* Where a path leaves what is there. */
struct stray {
    std::string above; /* the wire path of the node that has no such child, "" for the root */
    std::string name;  /* plain */
    std::string rest;  /* the wire path behind it */
    bool entry;        /* what is missing is the entry of a list */
};

/* Nothing when all of the path is there, and when the daemon does not tell. Quiet. */
std::optional<stray> find_stray(session &link, known_names &known, ucfg_tree tree,
                                const std::string &path);

/* "no entry nosuch in network.hosts" */
std::string describe(const stray &missing);

/* Those of the names that may have been meant, the closest first, three at most. */
std::vector<std::string> similar_names(const std::vector<std::string> &names,
                                       const std::string &typed);

/* The attributes of a node, quietly; null where there is none. */
owned_attr look_at(session &link, ucfg_tree tree, const std::string &path);

}  // namespace ucfgsh

#endif

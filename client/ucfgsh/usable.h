/* Which nodes a command can do something with. */
#ifndef UCFGSH_USABLE_H
#define UCFGSH_USABLE_H

#include <chrono>
#include <string>
#include <vector>

#include "ucfgsh/session.h"

namespace ucfgsh {

/* What asking the daemon for help with typing may cost: so many requests and so much time, whatever
 * the length of a list and of the way to the daemon. */
class allowance {
  public:
    allowance(size_t requests, std::chrono::milliseconds time)
        : requests_(requests), end_(std::chrono::steady_clock::now() + time) {}

    /* Whether another request may be made. */
    bool take() {
        return requests_ > 0 && requests_-- > 0 && std::chrono::steady_clock::now() < end_;
    }

  private:
    size_t requests_;
    std::chrono::steady_clock::time_point end_;
};

/* The letters of operations (those of ucfg_attr's ops) of which a command needs one; "" when any
 * node will do. */
std::string_view letters_for(std::string_view command);

/* Whether the node has one of them. */
bool has_letter(const ucfg_attr &attr, std::string_view letters);

/* Those of the names below `above` (plain, and a wire path) that have one, or lead to nodes that
 * do. All of them when finding out would cost too much. */
std::vector<std::string> usable_names(session &link, ucfg_tree tree, const std::string &above,
                                      const std::vector<std::string> &names,
                                      std::string_view letters);

}  // namespace ucfgsh

#endif

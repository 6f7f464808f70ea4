/* What was asked for since the last commit, so that it can be asked for again in another session.
 */
#ifndef UCFGSH_ORDERS_H
#define UCFGSH_ORDERS_H

#include <string>
#include <vector>

#include "ucfgsh/session.h"

namespace ucfgsh {

struct shell;

struct order {
    ucfg_op op;
    std::string path, value;
    std::string second = {}; /* for a move only */
};

/* One order, or a batch of which all or none are carried out. */
using order_step = std::vector<order>;

/* In the order in which they were given. A session that ends does not end them; a commit and a
 * revert do. */
struct order_book {
    std::vector<order_step> steps;
    unsigned generation = 0; /* of the session that was asked for the first one */

    /* Whether carrying all of them out twice makes no difference. */
    bool repeatable() const;
};

/* The order as one would type it. */
std::string typed_order(const order &what);

/* The parameter or the entry that it changes, as one types its path. */
std::string subject_of(const order &what);

const char *word_of(ucfg_op op);

/* Asks for a step, and keeps it when that went well, or when the session went away with it.
 * `answer` (may be null) receives what became of each item of a batch; with it, one order is a
 * batch too. */
int run_step(shell &sh, after_loss policy, order_step step, ucfg_batch **answer = nullptr);

/* Whether the session that holds the changes is not the one that we are in. */
bool orders_are_stale(const shell &sh);

/* All orders again, on a session that knows what others have committed: a new one when the old one
 * is gone. What is refused now is reported and dropped. */
int replay_orders(shell &sh);

}  // namespace ucfgsh

#endif

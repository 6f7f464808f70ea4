/* The states of an item's tree.
 *
 * A shadow begins with none and ends so; what lies between are one session's or one batch's edits:
 *
 *      none --copied--> own --dropped--> none
 *      none --borrows--> borrowed --given back--> none      and beside it, one level up:
 *                        own --lends--> lent --given back--> own
 *
 * A primary's tree comes from its source, and a commit lets the two part for a while. The child
 * writes the source; the daemon takes the same edits over and has to look at the source again when
 * the child has ended, whatever came of it. Another session's revert may read the source in
 * between; what it finds is overtaken soon.
 *
 *      unseen ------looked-----> read --taken--> submitted --looked, commit over--> read
 *        \                     ^  |                  \
 *         failed        looked/   failed              looked, commit running--> overtaken
 *           \               /    /                                         (then as submitted)
 *            `---------> unread <'     --taken--> blind --looked--> as submitted
 *
 * What may never happen: edits that a commit has refused written by a later one, and a source
 * replaced by a tree that does not know what it holds. So a submitted tree whose commit is over and
 * whose source cannot be read gives way to the tree that stood there before, and trees that are
 * unread or blind are not written over a source that is there. */

#include <libdaemon/dlog.h>

#include <array>

#include "backend/items.h"
#include "backend/ll_trns.h"
#include "llconf/nodes.h"

namespace {

struct transition {
    tree_state from;
    tree_event event;
    tree_state over;    /* what follows when no commit is running */
    tree_state running; /* and while one is */
};

constexpr transition always(tree_state from, tree_event event, tree_state to) {
    return {from, event, to, to};
}

using s = tree_state;
using e = tree_event;

constexpr std::array k_transitions = {
    always(s::none, e::copied, s::own),
    always(s::none, e::taken, s::own),
    always(s::none, e::borrows, s::borrowed),
    always(s::none, e::dropped, s::none),
    always(s::own, e::lends, s::lent),
    always(s::own, e::taken, s::own),
    always(s::own, e::dropped, s::none),
    always(s::lent, e::given_back, s::own),
    always(s::borrowed, e::given_back, s::none),

    always(s::unseen, e::taken, s::submitted),
    always(s::unseen, e::looked, s::read),
    always(s::unseen, e::failed, s::unread),
    always(s::read, e::taken, s::submitted),
    always(s::read, e::looked, s::read),
    always(s::read, e::failed, s::unread),
    always(s::unread, e::taken, s::blind),
    always(s::unread, e::looked, s::read),
    always(s::unread, e::failed, s::unread),
    always(s::submitted, e::taken, s::submitted),
    transition{s::submitted, e::looked, s::read, s::overtaken},
    transition{s::submitted, e::failed, s::unread, s::submitted},
    always(s::blind, e::taken, s::blind),
    transition{s::blind, e::looked, s::read, s::overtaken},
    transition{s::blind, e::failed, s::unread, s::blind},
    always(s::overtaken, e::taken, s::submitted),
    transition{s::overtaken, e::looked, s::read, s::overtaken},
    transition{s::overtaken, e::failed, s::unread, s::overtaken},
};

}  // namespace

bool item_commit_ended(const item_record *item) {
    return item->serial != llconf_trns_ctx_serial();
}

bool item_commit_open(const item_record *item) {
    return item->state == s::submitted || item->state == s::blind || item->state == s::overtaken;
}

void item_enter(item_record *item, tree_event event) {
    for (const transition &row : k_transitions) {
        if (row.from != item->state || row.event != event) continue;
        item->state = item_commit_ended(item) ? row.over : row.running;
        return;
    }
    daemon_log(LOG_ERR, "module '%s': event %d in state %d", item->name, static_cast<int>(event),
               static_cast<int>(item->state));
}

const file_state *item_archived(const item_record *item, const std::string &member) {
    if (!item->archived) return nullptr;
    auto found = item->archived->find(member);
    return found == item->archived->end() ? nullptr : &found->second;
}

bool item_means_no_file(const item_record *item) {
    const file_state *archived = item_archived(item, "");
    const cnfnode *tree = item->cn_root;
    return archived && archived->kind == file_kind::absent && tree && !tree->first_child;
}

const directory_record *item_directory(const llconf_item *lli) {
    while (lli && lli->item_orig && !record_of(lli)->record)
        lli = lli->item_orig;
    return lli ? record_of(lli)->record.get() : nullptr;
}

/* The trees of items: copy on write, borrowing, submit and revert. */

#include <errno.h>

#include <array>
#include <cstring>
#include <utility>

#include "backend/command_source.h"
#include "backend/discarded.h"
#include "backend/items.h"
#include "backend/ll_trns.h"
#include "backend/prepared.h"
#include "daemon/trace.h"
#include "fe/fe.h"
#include "llconf/journal.h"
#include "llconf/nodes.h"
#include "ucfgd/owners.h"

namespace {

constexpr std::array<hook_list, 4> k_hook_lists = {
    &llconf_item::func_pre_read, &llconf_item::func_post_read, &llconf_item::func_pre_commit,
    &llconf_item::func_post_commit};

/* Both ends of a loan forget it; the tree stays with the lender. */
void end_loan(item_record *borrower) {
    item_record *lender = record_of(borrower->item_orig);
    lender->borrower = nullptr;
    borrower->journal = nullptr;
    llconf_exchange_tree(borrower, nullptr);
    item_enter(lender, tree_event::given_back);
    item_enter(borrower, tree_event::given_back);
}

void return_borrowed_tree(item_record *borrower) {
    cnf_journal_rollback(borrower->journal);
    end_loan(borrower);
}

/* Takes the item's tree off it: the item's own tree is handed out, a borrowed one goes back. */
recorded_tree detach_tree(item_record *item) {
    if (item->state == tree_state::borrowed) return_borrowed_tree(item);
    if (item->state == tree_state::lent) return_borrowed_tree(item->borrower);
    if (item->state == tree_state::own) item_enter(item, tree_event::dropped);
    return {llconf_exchange_tree(item, nullptr), std::exchange(item->record, nullptr),
            std::exchange(item->seen, nullptr)};
}

void drop(recorded_tree &tree) {
    discard_tree(std::exchange(tree.tree, nullptr));
    tree.record.reset();
    tree.seen.reset();
}

/* A tree that a command makes is made now, where it is out of date. */
llconf_item *nearest_with_tree(llconf_item *lli) {
    while (lli && !lli->cn_root && lli->item_orig)
        lli = lli->item_orig;
    if (lli && record_of(lli)->source) command_source_read(record_of(lli));
    return lli;
}

/* Only a private tree can be lent, by its owner to its own shadow, and to one at a time. */
bool can_lend(const item_record *lender, const llconf_item *borrower) {
    return lender == borrower->item_orig && lender->state == tree_state::own;
}

void borrow_tree(item_record *item, item_record *lender) {
    item->journal = cnf_journal_begin(lender->cn_root);
    if (!item->journal) return;
    item->archived = lender->archived;
    llconf_exchange_tree(item, lender->cn_root);
    lender->borrower = item;
    item_enter(item, tree_event::borrows);
    item_enter(lender, tree_event::lends);
}

void copy_tree(item_record *item, const item_record *from) {
    trace(4, "%s: cloning tree %s\n", "llconf_get_cnftree_write", item->name);
    llconf_exchange_tree(item, clone_cnftree(from->cn_root));
    if (!item->cn_root) return;
    item->record = from->record;
    item->seen = from->seen;
    item->archived = from->item_orig ? from->archived : nullptr;
    item_enter(item, tree_event::copied);
}

void move_hooks_up(llconf_item *shadow) {
    for (hook_list hooks : k_hook_lists) {
        if (!(shadow->*hooks)) continue;
        destroy_fe_node_list(shadow->item_orig->*hooks);
        shadow->item_orig->*hooks = std::exchange(shadow->*hooks, nullptr);
    }
}

/* A primary's old tree is put aside: it may have to come back, and this is the moment after a
 * commit's fork, when releasing it would copy every page that the child still shares. It goes when
 * the source has been read again. */
void put_aside(item_record *primary, recorded_tree old) {
    if (primary->replaced.tree && item_commit_open(primary)) {
        drop(old);
    } else {
        std::swap(primary->replaced, old);
        drop(old);
    }
}

void move_tree_up(item_record *shadow) {
    item_record *orig = record_of(shadow->item_orig);
    if (shadow->state == tree_state::borrowed) {
        cnf_journal_keep(shadow->journal);
        end_loan(shadow);
    } else {
        recorded_tree tree = detach_tree(shadow);
        recorded_tree old = detach_tree(orig);
        if (orig->item_orig) {
            drop(old);
        } else {
            put_aside(orig, std::move(old));
        }
        llconf_exchange_tree(orig, tree.tree);
        orig->record = std::move(tree.record);
        orig->seen = std::move(tree.seen);
    }
    orig->archived = std::move(shadow->archived);
    orig->serial = llconf_trns_ctx_serial();
    item_enter(orig, tree_event::taken);
    orig->is_dirty = 1;
    orig->delete_me = shadow->delete_me;
}

/* A request that does nothing but mark an item, or take the mark back, leaves it to the session. */
void move_marks_up(llconf_item *shadow) {
    shadow->item_orig->is_dirty = 1;
    shadow->item_orig->delete_me = shadow->delete_me;
}

/* The file that a tree from elsewhere is an edit of: that of the tree in whose place it comes. */
shared_seen_file edited_file(llconf_item *item, const recorded_tree &old) {
    if (old.tree) return old.seen;
    const llconf_item *below = nearest_with_tree(item->item_orig);
    return below ? record_of(below)->seen : nullptr;
}

}  // namespace

void llconf_install_cnftree(llconf_item *lli, cnfnode *tree) {
    item_record *item = record_of(lli);
    doubt_prepared_texts();
    drop(item->replaced);
    recorded_tree old = detach_tree(item);
    recorded_tree parsed = std::exchange(item->parsed, {});
    llconf_exchange_tree(item, tree);
    if (tree && parsed.tree == tree) {
        item->record = std::move(parsed.record);
        item->seen = std::move(parsed.seen);
    } else if (tree) {
        item->seen = edited_file(item, old);
    }
    drop(old);
    if (tree && item->state == tree_state::none) item_enter(item, tree_event::copied);
}

void item_put_back(item_record *primary) {
    recorded_tree back = std::exchange(primary->replaced, {});
    recorded_tree edits = detach_tree(primary);
    drop(edits);
    llconf_exchange_tree(primary, back.tree);
    primary->record = std::move(back.record);
    primary->seen = std::move(back.seen);
    primary->archived.reset();
    primary->is_dirty = 0;
    primary->delete_me = 0;
}

void item_drop_replaced(item_record *primary) {
    drop(primary->replaced);
}

cnfnode *llconf_get_cnftree_read(llconf_item *lli) {
    const llconf_item *item = nearest_with_tree(lli);
    if (!item) return nullptr;
    return item->cn_root;
}

cnfnode *llconf_get_cnftree_write(llconf_item *lli) {
    llconf_item *item = nearest_with_tree(lli);
    if (!item) return nullptr;
    if (item != lli && item->cn_root) {
        if (can_lend(record_of(item), lli)) {
            borrow_tree(record_of(lli), record_of(item));
        } else {
            copy_tree(record_of(lli), record_of(item));
        }
    }
    return lli->cn_root;
}

int llconf_submit_shadow_list(llconf_item *shadows) {
    for (llconf_item *shadow = shadows; shadow; shadow = shadow->next) {
        if (!shadow->item_orig) continue;
        move_hooks_up(shadow);
        if (!shadow->is_dirty) continue;
        if (shadow->cn_root) {
            move_tree_up(record_of(shadow));
        } else if (shadow->item_orig->item_orig) {
            move_marks_up(shadow);
        }
    }
    return 0;
}

int llconf_revert_shadow_list(llconf_item *shadows) {
    for (llconf_item *shadow = shadows; shadow; shadow = shadow->next) {
        llconf_install_cnftree(shadow, nullptr);
        record_of(shadow)->archived.reset();
        shadow->is_dirty = 0;
        shadow->delete_me = 0;
        for (hook_list hooks : k_hook_lists)
            destroy_fe_node_list(std::exchange(shadow->*hooks, nullptr));
    }
    return 0;
}

size_t llconf_shadow_list_size(const llconf_item *shadows) {
    size_t size = 0;
    for (const llconf_item *shadow = shadows; shadow; shadow = shadow->next) {
        size += sizeof(item_record) + std::strlen(shadow->name) + 1;
        if (record_of(shadow)->state != tree_state::borrowed) size += cnftree_size(shadow->cn_root);
    }
    return size;
}

void llconf_return_borrowed_trees(llconf_item *shadows) {
    for (llconf_item *shadow = shadows; shadow; shadow = shadow->next) {
        if (record_of(shadow)->state == tree_state::borrowed)
            return_borrowed_tree(record_of(shadow));
    }
}

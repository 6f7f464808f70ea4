/* The trees of items: copy on write, borrowing, submit and revert. */

#include <errno.h>

#include <array>
#include <cstring>
#include <utility>

#include "backend/items.h"
#include "backend/ll_trns.h"
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
void end_loan(llconf_item *borrower) {
    borrower->item_orig->borrower = nullptr;
    borrower->journal = nullptr;
    borrower->cn_root = nullptr;
}

void return_borrowed_tree(llconf_item *borrower) {
    cnf_journal_rollback(borrower->journal);
    end_loan(borrower);
}

/* Takes the item's tree off it: the item's own tree is handed out, a borrowed one goes back. */
cnfnode *detach_tree(llconf_item *lli) {
    if (lli->journal) return_borrowed_tree(lli);
    if (lli->borrower) return_borrowed_tree(lli->borrower);
    return std::exchange(lli->cn_root, nullptr);
}

llconf_item *nearest_with_tree(llconf_item *lli) {
    while (lli && !lli->cn_root && lli->item_orig)
        lli = lli->item_orig;
    return lli;
}

/* Only a private tree can be lent, by its owner to its own shadow, and to one at a time. */
bool can_lend(const llconf_item *lender, const llconf_item *borrower) {
    return lender == borrower->item_orig && lender->item_orig && !lender->journal &&
           !lender->borrower;
}

void borrow_tree(llconf_item *lli, llconf_item *lender) {
    lli->journal = cnf_journal_begin(lender->cn_root);
    if (!lli->journal) return;
    lli->cn_root = lender->cn_root;
    lender->borrower = lli;
}

void move_hooks_up(llconf_item *shadow) {
    for (hook_list hooks : k_hook_lists) {
        if (!(shadow->*hooks)) continue;
        destroy_fe_node_list(shadow->item_orig->*hooks);
        shadow->item_orig->*hooks = std::exchange(shadow->*hooks, nullptr);
    }
}

/* A primary's old tree is put aside: this is the moment after a commit's fork, and releasing it now
 * would copy every page that the child still shares. It goes when the item is read again. */
void move_tree_up(llconf_item *shadow) {
    llconf_item *orig = shadow->item_orig;
    if (shadow->journal) {
        cnf_journal_keep(shadow->journal);
        end_loan(shadow);
    } else {
        cnfnode *tree = detach_tree(shadow);
        cnfnode *old = detach_tree(orig);
        destroy_cnftree(std::exchange(orig->replaced, old));
        if (orig->item_orig) destroy_cnftree(std::exchange(orig->replaced, nullptr));
        orig->cn_root = tree;
    }
    orig->is_dirty = 1;
    orig->delete_me = shadow->delete_me;
    orig->in_commit = orig->item_orig ? 0 : 1;
    orig->read_serial = llconf_trns_ctx_serial();
}

/* A request that does nothing but mark an item, or take the mark back, leaves it to the session. */
void move_marks_up(llconf_item *shadow) {
    shadow->item_orig->is_dirty = 1;
    shadow->item_orig->delete_me = shadow->delete_me;
}

}  // namespace

void llconf_install_cnftree(llconf_item *lli, cnfnode *tree) {
    destroy_cnftree(std::exchange(lli->replaced, nullptr));
    destroy_cnftree(detach_tree(lli));
    lli->cn_root = tree;
}

cnfnode *llconf_get_cnftree_read(llconf_item *lli) {
    llconf_item *item = nearest_with_tree(lli);
    return item ? item->cn_root : nullptr;
}

cnfnode *llconf_get_cnftree_write(llconf_item *lli) {
    llconf_item *item = nearest_with_tree(lli);
    if (!item) return nullptr;
    if (item != lli && item->cn_root) {
        if (can_lend(item, lli)) {
            borrow_tree(lli, item);
        } else {
            trace(4, "%s: cloning tree %s\n", __func__, lli->name);
            lli->cn_root = clone_cnftree(item->cn_root);
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
            move_tree_up(shadow);
        } else if (shadow->item_orig->item_orig) {
            move_marks_up(shadow);
        }
    }
    return 0;
}

int llconf_revert_shadow_list(llconf_item *shadows) {
    for (llconf_item *shadow = shadows; shadow; shadow = shadow->next) {
        llconf_install_cnftree(shadow, nullptr);
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
        size += sizeof(llconf_item) + std::strlen(shadow->name) + 1;
        if (!shadow->journal) size += cnftree_size(shadow->cn_root);
    }
    return size;
}

void llconf_return_borrowed_trees(llconf_item *shadows) {
    for (llconf_item *shadow = shadows; shadow; shadow = shadow->next) {
        if (shadow->journal) return_borrowed_tree(shadow);
    }
}

#include "backend/discarded.h"

#include <new>
#include <utility>
#include <vector>

#include "daemon/loop.h"
#include "llconf/nodes.h"
#include "ucfgd/owners.h"

namespace {

/* Nodes below the root that are freed at once: less than a millisecond. */
constexpr int k_piece = 2000;

std::vector<owned<cnfnode, destroy_cnftree>> g_discarded;

bool is_large(const cnfnode *tree) {
    int children = 0;
    for (const cnfnode *child = tree->first_child; child; child = child->next)
        if (++children > k_piece) return true;
    return false;
}

}  // namespace

void discard_tree(cnfnode *tree) {
    owned<cnfnode, destroy_cnftree> mine{tree};
    if (!tree || !is_large(tree)) return;
    try {
        g_discarded.push_back(std::move(mine));
        loop_work_left();
    } catch (const std::bad_alloc &) {
        return; /* at once, then */
    }
}

void discard_go_on(void) {
    if (g_discarded.empty()) return;
    cnfnode *tree = g_discarded.back().get();
    for (int i = 0; i < k_piece && tree->first_child; i++)
        destroy_cnftree(cnfnode_last_child(tree));
    if (!tree->first_child) g_discarded.pop_back();
    if (!g_discarded.empty()) loop_work_left();
}

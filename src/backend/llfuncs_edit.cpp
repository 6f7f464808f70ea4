/* Tree functions that write. */

#include <errno.h>

#include <cstring>
#include <string>
#include <vector>

#include "backend/llfuncs.h"
#include "llconf/journal.h"
#include "llconf/modules.h"
#include "llconf/path.h"

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

using owned_journal = owned<cnf_journal, cnf_journal_rollback>;
using places = std::vector<const cnfnode *>;

/* Whether an edit may leave an entry unfinished of which the file could hold all before: what adds
 * a part may, since its value comes with the next edit. */
enum class effect { adds, changes };

fe_node *done(llconf_item *lli) {
    lli->is_dirty = 1;
    return const_node("1");
}

bool is_same(const char *old, const char *text) {
    return old && std::strcmp(old, text) == 0;
}

/* The least that is said of one of the nodes; -1 with ENOMEM. */
int fitness_of(llconf_item *lli, const places &nodes, std::string *why) {
    int least = CNF_FIT;
    for (const cnfnode *node : nodes) {
        const char *reason = nullptr;
        int fitness = node ? ll_fitness(lli, node, &reason) : int{CNF_FIT};
        if (fitness >= least) continue;
        least = fitness;
        if (why && reason) *why = reason;
    }
    return least;
}

/* The answer for an edit that could not be made: null when memory is exhausted. */
fe_node *failed() {
    return errno == ENOMEM ? nullptr : const_node("0");
}

/* Edits the tree under a journal, and takes it back when the file could no longer hold an entry
 * that it touches: found at commit, that would cost every other edit of the file. make edits and
 * answers whether it could; it puts into the list what the edit touches, of nodes that it does not
 * add (unless it adds). */
template <class edit>
fe_node *try_edit(llconf_item *lli, effect kind, edit make) {
    cnfnode *root = ll_write_tree(lli);
    owned_journal journal{cnf_journal_begin(root)};
    places touched;
    if (!journal || !make(touched)) return failed();
    std::string why;
    int fitness = fitness_of(lli, touched, &why);
    if (fitness == CNF_UNFINISHED && kind == effect::changes) {
        journal.reset();
        int before = fitness_of(lli, touched, nullptr);
        if (before == CNF_FIT) return ll_unfit(why.c_str());
        journal.reset(before < 0 ? nullptr : cnf_journal_begin(root));
        touched.clear();
        if (!journal || !make(touched)) return failed();
    }
    if (fitness < 0) return nullptr;
    if (fitness == CNF_UNFIT) return ll_unfit(why.c_str());
    cnf_journal_keep(journal.release());
    return done(lli);
}

/* The places beside node, and what it is a part of: they are told of an edit that takes it away. */
void surroundings(const cnfnode *node, places &touched) {
    touched.insert(touched.end(), {cnfnode_prev(node), node->next, node->parent});
}

fe_node *add_branch(llconf_item *lli, cnfnode *node, const char *path) {
    if (!ll_branch_storable(lli, node, path)) return ll_refused();
    return try_edit(lli, effect::adds, [&](places &touched) {
        cnfnode *made = cnf_add_branch(node, path);
        if (!made) return false;
        touched = {made, made->parent};
        return true;
    });
}

/* Puts node, which stays the caller's when that fails, below parent. */
bool place(cnfnode *parent, cnfnode *node, cnfnode *before) {
    return (before ? insert_node_before(before, node) : append_node(parent, node)) == 0;
}

/* Comments and blank lines between two entries do not part them. */
cnfnode *next_entry(const cnfnode *node) {
    cnfnode *next = node->next;
    while (next && cnfnode_is_formatting(next))
        next = next->next;
    return next;
}

/* Moves first behind second, or before it when it is the next entry behind it. */
fe_node *swap_children(llconf_item *lli, cnfnode *first, cnfnode *second) {
    if (first == second) return const_node("1");
    return try_edit(lli, effect::changes, [&](places &touched) {
        surroundings(first, touched);
        touched.insert(touched.end(), {first, second});
        cnfnode *position = next_entry(second) == first ? second : second->next;
        return place(second->parent, first, position);
    });
}

}  // namespace

fe_node *func_llset(llconf_item *lli, const char *path, const char *value) {
    cnfnode *root = ll_write_tree(lli);
    if (!value || !path) return nullptr;
    cnfnode *node = root ? cnf_get_node(root, path) : nullptr;
    if (!node) return const_node("0");
    if (is_same(cnfnode_getval(node), value)) return const_node("1");
    if (!ll_storable(lli, node->parent, node->name, value)) return ll_refused();
    return try_edit(lli, effect::changes, [&](places &touched) {
        touched.push_back(node);
        return cnfnode_setval(node, value) == 0;
    });
}

fe_node *func_lladd(llconf_item *lli, const char *path, const char *value) {
    cnfnode *node = ll_write_node(lli, path);
    if (!value) return nullptr;
    return node ? add_branch(lli, node, value) : const_node("0");
}

fe_node *func_lladdne(llconf_item *lli, const char *path, const char *value) {
    cnfnode *node = ll_write_node(lli, path);
    if (!value) return nullptr;
    if (!node) return const_node("0");
    const int saved = errno;
    const bool there = cnf_get_node(node, value) != nullptr;
    if (!there && errno == ENOMEM) return nullptr;
    errno = saved;
    return there ? const_node("1") : add_branch(lli, node, value);
}

fe_node *func_lldel(llconf_item *lli, const char *path, const char *value) {
    cnfnode *node = ll_write_node(lli, path);
    if (!value) return nullptr;
    if (!node) return const_node("0");
    errno = 0;
    const cnfnode *gone = cnf_get_node(node, value);
    if (!gone && errno == ENOMEM) return nullptr;
    errno = 0;
    if (!gone || gone == node) return const_node("1");
    return try_edit(lli, effect::changes, [&](places &touched) {
        surroundings(gone, touched);
        return cnf_del_branch(node, value) == 0;
    });
}

fe_node *func_llrename(llconf_item *lli, const char *path, const char *newname) {
    cnfnode *node = ll_write_node(lli, path);
    if (!newname) return nullptr;
    if (!node) return const_node("0");
    if (is_same(cnfnode_getname(node), newname)) return const_node("1");
    if (!ll_storable(lli, node->parent, newname, node->value) ||
        !ll_name_free(lli, node->parent, newname)) {
        return ll_refused();
    }
    return try_edit(lli, effect::changes, [&](places &touched) {
        touched.push_back(node);
        return cnfnode_setname(node, newname) == 0;
    });
}

fe_node *func_llmove(llconf_item *lli, const char *path, const char *other) {
    cnfnode *first = ll_write_node(lli, path);
    if (!other) return nullptr;
    cnfnode *second = first ? ll_write_node(lli, other) : nullptr;
    bool siblings = second && first->parent && first->parent == second->parent;
    return siblings ? swap_children(lli, first, second) : const_node("0");
}

fe_node *fe_func_llcopy(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    int count = arguments.count();
    llconf_item *lli = count == 4 || count == 5 ? ll_find_item(ctx, arguments.text(0)) : nullptr;
    const cnfnode *from = lli ? ll_write_node(lli, arguments.text(1)) : nullptr;
    cnfnode *to = lli ? ll_write_node(lli, arguments.text(3)) : nullptr;
    const cnfnode *source = from && to ? find_node(from->first_child, arguments.text(2)) : nullptr;
    if (!source) return const_node("0");
    const char *name = count == 5 ? arguments.text(4) : source->name;
    if (!ll_storable(lli, to, name, source->value) || !ll_name_free(lli, to, name))
        return ll_refused();
    bool storable = true;
    fe_node *answer = try_edit(lli, effect::adds, [&](places &touched) {
        owned_tree copy{clone_cnftree(source)};
        if (!copy || cnfnode_setname(copy.get(), name) != 0 || append_node(to, copy.get()) != 0)
            return false;
        cnfnode *linked = copy.release();
        storable = ll_subtree_storable(lli, linked);
        touched = {linked, to};
        return storable;
    });
    if (storable) return answer;
    destroy_fe_node_list(answer);
    return ll_refused();
}

fe_node *fe_func_lladdmulti(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    const fe_node *module = arguments.first();
    const fe_node *path = module ? module->next : nullptr;
    llconf_item *lli = path ? ll_find_item(ctx, module->text) : nullptr;
    cnfnode *node = lli ? ll_write_node(lli, path->text) : nullptr;
    if (!node) return const_node("0");
    for (const fe_node *value = path->next; value; value = value->next) {
        if (!ll_branch_storable(lli, node, value->text)) return ll_refused();
    }
    bool all = true;
    for (const fe_node *value = path->next; value; value = value->next) {
        fe_node *added = add_branch(lli, node, value->text);
        all = all && added && is_same(added->text, "1");
        destroy_fe_node_list(added);
    }
    return const_node(all ? "1" : "0");
}

fe_node *fe_func_lladdbefore(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    llconf_item *lli = arguments.count() >= 4 ? ll_find_item(ctx, arguments.text(0)) : nullptr;
    cnfnode *parent = lli ? ll_write_node(lli, arguments.text(1)) : nullptr;
    if (!parent) return const_node("0");
    const char *name = arguments.text(2);
    if (!ll_storable(lli, parent, name, nullptr) || !ll_name_free(lli, parent, name))
        return ll_refused();
    cnfnode *before = find_node(parent->first_child, arguments.text(3));
    return try_edit(lli, effect::adds, [&](places &touched) {
        owned_tree node{create_cnfnode(name)};
        if (!node || !place(parent, node.get(), before)) return false;
        touched = {node.release(), parent};
        return true;
    });
}

fe_node *fe_func_llswap(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    llconf_item *lli = arguments.count() >= 4 ? ll_find_item(ctx, arguments.text(0)) : nullptr;
    cnfnode *parent = lli ? ll_write_node(lli, arguments.text(1)) : nullptr;
    cnfnode *first = parent ? find_node(parent->first_child, arguments.text(2)) : nullptr;
    cnfnode *second = parent ? find_node(parent->first_child, arguments.text(3)) : nullptr;
    if (!first || !second) return const_node("0");
    return swap_children(lli, first, second);
}

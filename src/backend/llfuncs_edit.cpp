/* Tree functions that write. */

#include <errno.h>

#include <cstring>

#include "backend/llfuncs.h"
#include "llconf/path.h"

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

fe_node *done(llconf_item *lli) {
    lli->is_dirty = 1;
    return const_node("1");
}

bool is_same(const char *old, const char *text) {
    return old && std::strcmp(old, text) == 0;
}

fe_node *add_branch(llconf_item *lli, cnfnode *node, const char *path) {
    if (!ll_branch_storable(lli, node, path)) return ll_refused();
    if (cnf_add_branch(node, path)) return done(lli);
    return errno == ENOMEM ? nullptr : const_node("0");
}

/* Puts node, which stays the caller's when that fails, below parent. */
bool place(cnfnode *parent, cnfnode *node, cnfnode *before) {
    return (before ? insert_node_before(before, node) : append_node(parent, node)) == 0;
}

/* Moves first behind second, or before it when it stands right behind. */
bool swap_children(cnfnode *parent, cnfnode *first, cnfnode *second) {
    cnfnode *position = second->next == first ? second : second->next;
    return place(parent, first, position);
}

}  // namespace

fe_node *func_llset(llconf_item *lli, const char *path, const char *value) {
    cnfnode *root = ll_write_tree(lli);
    if (!value || !path) return nullptr;
    cnfnode *node = root ? cnf_get_node(root, path) : nullptr;
    if (!node) return const_node("0");
    if (is_same(cnfnode_getval(node), value)) return const_node("1");
    if (!ll_storable(lli, node->parent, node->name, value)) return ll_refused();
    return cnfnode_setval(node, value) == 0 ? done(lli) : nullptr;
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
    if (cnf_del_branch(node, value) == 0)
        lli->is_dirty = 1;
    else if (errno == ENOMEM)
        return nullptr;
    errno = 0;
    return const_node("1");
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
    return cnfnode_setname(node, newname) == 0 ? done(lli) : nullptr;
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
    owned_tree copy{clone_cnftree(source)};
    if (!copy || cnfnode_setname(copy.get(), name) != 0) return const_node("0");
    if (append_node(to, copy.get()) != 0) return const_node("0");
    /* It is linked now; if it has to go again, that unlinks it. */
    if (!ll_subtree_storable(lli, copy.get())) return ll_refused();
    static_cast<void>(copy.release());
    return done(lli);
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
    const char *result = "1";
    for (const fe_node *value = path->next; value; value = value->next) {
        if (cnf_add_branch(node, value->text)) {
            lli->is_dirty = 1;
        } else {
            result = "0";
        }
    }
    return const_node(result);
}

fe_node *fe_func_lladdbefore(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    llconf_item *lli = arguments.count() >= 4 ? ll_find_item(ctx, arguments.text(0)) : nullptr;
    cnfnode *parent = lli ? ll_write_node(lli, arguments.text(1)) : nullptr;
    if (!parent) return const_node("0");
    const char *name = arguments.text(2);
    if (!ll_storable(lli, parent, name, nullptr) || !ll_name_free(lli, parent, name))
        return ll_refused();
    owned_tree node{create_cnfnode(name)};
    cnfnode *before = find_node(parent->first_child, arguments.text(3));
    if (!node || !place(parent, node.get(), before)) return const_node("0");
    static_cast<void>(node.release());
    return done(lli);
}

fe_node *fe_func_llswap(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    llconf_item *lli = arguments.count() >= 4 ? ll_find_item(ctx, arguments.text(0)) : nullptr;
    cnfnode *parent = lli ? ll_write_node(lli, arguments.text(1)) : nullptr;
    cnfnode *first = parent ? find_node(parent->first_child, arguments.text(2)) : nullptr;
    cnfnode *second = parent ? find_node(parent->first_child, arguments.text(3)) : nullptr;
    if (!first || !second) return const_node("0");
    if (first == second) return const_node("1");
    return swap_children(parent, first, second) ? done(lli) : const_node("0");
}

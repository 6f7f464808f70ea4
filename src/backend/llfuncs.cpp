/* The backend tree functions: how node methods reach configuration files.
 *
 * To add a function: declare it in llfuncs.h, write it in the file of its kind (llfuncs_read.cpp,
 * llfuncs_edit.cpp, llfuncs_module.cpp), and add a row to k_rows. A function that takes an
 * instance, a path and perhaps one more argument is a generic row: fe_func_ll evaluates, finds the
 * instance and logs what is wrong. */

#include "backend/llfuncs.h"

#include <errno.h>
#include <libdaemon/dlog.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "backend/items.h"
#include "backend/ll_trns.h"
#include "llconf/modules.h"
#include "llconf/path.h"
#include "tree/param_error.h"
#include "tree/param_failure.h"

namespace {

constexpr int k_any = -1;

/* In the order of registration, with the fewest and the most arguments. */
constexpr std::array<ll_row, 27> k_rows = {{
    {"llget", 2, 2, fe_func_ll, func_llget},
    {"llgetname", 2, 2, fe_func_ll, func_llgetname},
    {"llgetdefault", 3, 3, fe_func_ll, func_llgetdefault},
    {"llset", 3, 3, fe_func_ll, func_llset},
    {"llcopy", 4, 5, fe_func_llcopy, nullptr},
    {"lladd", 3, 3, fe_func_ll, func_lladd},
    {"lladdne", 3, 3, fe_func_ll, func_lladdne},
    {"lldel", 3, 3, fe_func_ll, func_lldel},
    {"llrename", 3, 3, fe_func_ll, func_llrename},
    {"llexists", 2, 2, fe_func_ll, func_llexists},
    {"llisdirty", 1, 1, fe_func_llisdirty, nullptr},
    {"llcompare", 2, 4, fe_func_llcompare, nullptr},
    {"lllist", 2, 2, fe_func_ll, func_lllist, nullptr, func_lllist_holds},
    {"lllistindexed", 2, 2, fe_func_ll, func_lllistindexed, nullptr, func_lllistindexed_holds},
    {"llpaths", 2, 2, fe_func_ll, func_llpaths},
    {"lladdmulti", 3, k_any, fe_func_lladdmulti, nullptr},
    {"lladdbefore", 4, 4, fe_func_lladdbefore, nullptr},
    {"llswap", 4, 4, fe_func_llswap, nullptr},
    {"lllistmatch", 3, 3, fe_func_lllistmatch, nullptr},
    {"llfindindex", 4, 4, fe_func_llfindindex, nullptr},
    {"llmodcreate", 3, 5, fe_func_llmodcreate, nullptr},
    {"llmoddelete", 1, 1, fe_func_llmoddelete, nullptr},
    {"llmodsetpostcommit", 2, 2, fe_func_llmodsethook, nullptr, func_llmodset_post_commit},
    {"llmodsetprecommit", 2, 2, fe_func_llmodsethook, nullptr, func_llmodset_pre_commit},
    {"llmove", 3, 3, fe_func_ll, func_llmove},
    {"lltree", 1, 2, fe_func_lltree, nullptr},
    {"llmodules", 0, 0, fe_func_llmodules, nullptr},
}};

/* What they find changes with trns_version, and with nothing else. */
constexpr const char *k_pure[] = {
    "llget",  "llgetname",     "llgetdefault", "llexists",    "llcompare",
    "lllist", "lllistindexed", "llpaths",      "lllistmatch", "llfindindex",
};

unsigned long g_nodes_found = 0;

/* The file of a directory instance that node lies in; null for the directory itself. */
const cnfnode *member_of(const cnfnode *node) {
    if (!node->parent) return nullptr;
    while (node->parent->parent)
        node = node->parent;
    return node;
}

/* Whether the tree has a member of that name, or the directory a file of that name that is in no
 * tree. */
bool is_taken(const llconf_item *lli, const cnfnode *directory, const char *name) {
    if (find_node(directory->first_child, name)) return true;
    const directory_record *record = item_directory(lli);
    const member_record *member = record ? record->named(name) : nullptr;
    return member && member->state == member_state::unread;
}

/* Builds the branch below an empty directory, where every new node can be looked at. A path that
 * leads into a member that is there makes none. */
bool new_member_storable(llconf_item *lli, const cnfnode *directory, const char *path) {
    llconf_item *primary = llconf_primary_item(lli);
    owned<cnfnode, destroy_cnftree> empty{create_cnfnode("(root)")};
    const cnfnode *last = empty ? cnf_add_branch(empty.get(), path) : nullptr;
    if (!last) return false;
    const cnfnode *member = empty->first_child;
    bool is_new = last == member || !find_node(directory->first_child, member->name);
    if (is_new && is_taken(lli, directory, member->name)) return false;
    return is_member_name(primary->pattern, member->name) && ll_subtree_storable(primary, member);
}

/* A question whose answer may be that memory is short, which errno tells. */
void forget_shortage() {
    if (errno == ENOMEM) errno = 0;
}

const cnfnode *following(const cnfnode *node, const cnfnode *top) {
    if (node->first_child) return node->first_child;
    while (node != top && !node->next)
        node = node->parent;
    return node == top ? nullptr : node->next;
}

/* What a generic row makes of the instance and the path that its first arguments name. */
template <class row_function>
fe_node *run_row(fe_context *ctx, fe_node *call, row_function run) {
    call_arguments arguments{ctx, call};
    const fe_node *module = arguments.first();
    if (!module || !module->next) {
        daemon_log(LOG_ERR, "not enough args to ll function %s\n", row_of(call).name);
        return const_node("");
    }
    llconf_item *lli = ll_find_item(ctx, module->text);
    if (!lli) {
        daemon_log(LOG_ERR, "module %s not found\n", module->text);
        return const_node("");
    }
    const fe_node *path = module->next;
    forget_shortage();
    fe_node *result = run(lli, path->text, path->next ? path->next->text : nullptr);
    return result || errno == ENOMEM ? result : const_node("");
}

fe_node *ask_row(fe_context *ctx, fe_node *call, const char *text) {
    return run_row(ctx, call, [=](llconf_item *lli, const char *path, const char * /*third*/) {
        return row_of(call).holds(lli, path, text);
    });
}

}  // namespace

llconf_item *ll_find_item(const fe_context *ctx, const char *name) {
    return find_llconf_item(lli_list_from_trns_ctx(static_cast<trns_ctx *>(ctx->user_data)), name);
}

unsigned long ll_nodes_found(void) {
    return g_nodes_found;
}

cnfnode *ll_read_node(llconf_item *lli, const char *path) {
    const cnfnode *root = llconf_get_cnftree_read(lli);
    cnfnode *node = root ? cnf_get_node(root, path) : nullptr;
    if (node) g_nodes_found++;
    return node;
}

cnfnode *ll_write_tree(llconf_item *lli) {
    item_retry_unread(lli);
    return llconf_get_cnftree_write(lli);
}

cnfnode *ll_write_node(llconf_item *lli, const char *path) {
    const cnfnode *root = ll_write_tree(lli);
    return root ? cnf_get_node(root, path) : nullptr;
}

bool ll_storable(llconf_item *lli, const cnfnode *parent, const char *name, const char *value) {
    const llconf_item *primary = llconf_primary_item(lli);
    forget_shortage();
    if (!primary->module) return true;
    if (!primary->pattern) return cnfmodule_accepts(primary->module, parent, name, value) != 0;
    if (!parent) return !value || !*value;
    const cnfnode *member = member_of(parent);
    if (!member) {
        bool is_root_value = cnfmodule_accepts(primary->module, nullptr, name, value) != 0;
        return is_member_name(primary->pattern, name) && is_root_value;
    }
    return cnfmodule_accepts_below(primary->module, member, parent, name, value) != 0;
}

bool ll_name_free(const llconf_item *lli, const cnfnode *parent, const char *name) {
    const llconf_item *primary = lli;
    while (primary->item_orig)
        primary = primary->item_orig;
    bool is_directory = primary->pattern && parent && !parent->parent;
    return !is_directory || !is_taken(lli, parent, name);
}

bool ll_branch_storable(llconf_item *lli, const cnfnode *parent, const char *path) {
    llconf_item *primary = llconf_primary_item(lli);
    forget_shortage();
    if (!primary->module) return true;
    const cnfnode *member = primary->pattern ? member_of(parent) : nullptr;
    if (primary->pattern && !member) return new_member_storable(lli, parent, path);
    return cnfmodule_accepts_branch(primary->module, member, parent, path) != 0;
}

bool ll_subtree_storable(llconf_item *lli, const cnfnode *node) {
    for (const cnfnode *at = node; at; at = following(at, node)) {
        if (!ll_storable(lli, at->parent, at->name, at->value)) return false;
    }
    return true;
}

int ll_fitness(llconf_item *lli, const cnfnode *node, const char **why) {
    const llconf_item *primary = llconf_primary_item(lli);
    const cnfnode *member = primary->pattern ? member_of(node) : nullptr;
    if (!primary->module || !node->parent || node == member) return CNF_FIT;
    return cnfmodule_fits(primary->module, member, node, why);
}

fe_node *ll_refused() {
    return errno == ENOMEM ? nullptr : ll_unfit("Value cannot be stored in this file");
}

fe_node *ll_unfit(const char *why) {
    ccd_set_error(why, "error.not-storable");
    ccd_set_failure_reason(why);
    return const_node("0");
}

fe_node *fe_func_ll(fe_context *ctx, fe_node *call) {
    return run_row(ctx, call, row_of(call).function);
}

bool is_ll_function(const fe_def *fed) {
    const auto *row = static_cast<const ll_row *>(fed->user_data);
    return std::any_of(k_rows.begin(), k_rows.end(), [row](const ll_row &r) { return &r == row; });
}

fe_def *fe_register_llfuncs(fe_def *list) {
    for (const ll_row &row : k_rows) {
        list = fe_register_counted_func(list, row.name, row.handler, const_cast<ll_row *>(&row),
                                        row.least, row.most);
        if (row.holds) fe_set_membership(list, row.name, ask_row);
    }
    for (const char *name : k_pure)
        fe_mark_pure(list, name);
    return list;
}

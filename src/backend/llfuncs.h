#ifndef UCFGD_BACKEND_LLFUNCS_H
#define UCFGD_BACKEND_LLFUNCS_H

#ifndef __cplusplus
#    error "llfuncs.h is for the backend's own sources"
#endif

#include "backend/llconf_item.h"
#include "fe/fe.h"
#include "llconf/nodes.h"
#include "tree/arguments.h"

/* What the tree functions have in common.
 *
 *  1. Answers are new lists of constants. "1" is success or true, "0" not found or false, the empty
 *     text no value or wrong arguments.
 *  2. A function of a generic row gets the instance, a path and perhaps a third argument, and may
 *     produce nothing: fe_func_ll answers the empty text then.
 *  3. A generic row that makes a list may say whether the list would hold a text, which is its
 *     third argument then and never empty.
 *  4. What writes asks ll_storable() about each text first, makes its edit on trial, and keeps it
 *     only if the file can hold the entry then.
 */

using ll_function = fe_node *(*)(llconf_item *lli, const char *path, const char *third);

/* One function of the language; the record is what is registered as its data. */
struct ll_row {
    const char *name;
    int least; /* arguments */
    int most;  /* -1: any number */
    fe_function handler;
    ll_function function;                                        /* of a generic row */
    void (*set_hook)(llconf_item *lli, fe_node *hook) = nullptr; /* of a hook setter */
    ll_function holds = nullptr;                                 /* of a generic row */
};

inline const ll_row &row_of(const fe_node *call) {
    return *static_cast<const ll_row *>(call->fed->user_data);
}

/* Whether a definition is one of the tree functions, whose first argument names the instance. */
bool is_ll_function(const fe_def *fed);

/* The instance of that name in the context's transaction; null without one. */
llconf_item *ll_find_item(const fe_context *ctx, const char *name);

/* The node at path of the tree that lli reads or writes, and the latter tree; null with errno. */
cnfnode *ll_read_node(llconf_item *lli, const char *path);
cnfnode *ll_write_tree(llconf_item *lli);
cnfnode *ll_write_node(llconf_item *lli, const char *path);

/* Whether the source of lli can hold a node of that name and value below parent, the nodes that
 * cnf_add_branch (parent, path) makes, the subtree below and with node. False with errno ENOMEM
 * when that cannot be found out. */
bool ll_storable(llconf_item *lli, const cnfnode *parent, const char *name, const char *value);
bool ll_branch_storable(llconf_item *lli, const cnfnode *parent, const char *path);
bool ll_subtree_storable(llconf_item *lli, const cnfnode *node);

/* Whether a node of that name may be added below parent: two files of a directory cannot have one
 * name. */
bool ll_name_free(const llconf_item *lli, const cnfnode *parent, const char *name);

/* The answer when one of those has said no: "0", and the error record set; or null when memory is
 * exhausted. */
fe_node *ll_refused();

/* What the source makes of the entry that node belongs to (cnfmodule_fits), and the answer when
 * that is too little. */
int ll_fitness(llconf_item *lli, const cnfnode *node, const char **why);
fe_node *ll_unfit(const char *why);

/* The generic handler, and the functions behind it. */
fe_node *fe_func_ll(fe_context *ctx, fe_node *call);
fe_node *func_llget(llconf_item *lli, const char *path, const char *third);
fe_node *func_llgetname(llconf_item *lli, const char *path, const char *third);
fe_node *func_llgetdefault(llconf_item *lli, const char *path, const char *value);
fe_node *func_llexists(llconf_item *lli, const char *path, const char *third);
fe_node *func_lllist(llconf_item *lli, const char *path, const char *third);
fe_node *func_lllist_holds(llconf_item *lli, const char *path, const char *text);
fe_node *func_lllistindexed(llconf_item *lli, const char *path, const char *third);
fe_node *func_lllistindexed_holds(llconf_item *lli, const char *path, const char *text);
fe_node *func_llpaths(llconf_item *lli, const char *path, const char *third);
fe_node *func_llset(llconf_item *lli, const char *path, const char *value);
fe_node *func_lladd(llconf_item *lli, const char *path, const char *value);
fe_node *func_lladdne(llconf_item *lli, const char *path, const char *value);
fe_node *func_lldel(llconf_item *lli, const char *path, const char *value);
fe_node *func_llrename(llconf_item *lli, const char *path, const char *newname);
fe_node *func_llmove(llconf_item *lli, const char *path, const char *other);

/* Functions that take their arguments apart themselves. */
fe_node *fe_func_llisdirty(fe_context *ctx, fe_node *call);
fe_node *fe_func_llcompare(fe_context *ctx, fe_node *call);
fe_node *fe_func_lllistmatch(fe_context *ctx, fe_node *call);
fe_node *fe_func_llfindindex(fe_context *ctx, fe_node *call);
fe_node *fe_func_llcopy(fe_context *ctx, fe_node *call);
fe_node *fe_func_lladdmulti(fe_context *ctx, fe_node *call);
fe_node *fe_func_lladdbefore(fe_context *ctx, fe_node *call);
fe_node *fe_func_llswap(fe_context *ctx, fe_node *call);
fe_node *fe_func_lltree(fe_context *ctx, fe_node *call);
fe_node *fe_func_llmodules(fe_context *ctx, fe_node *call);
fe_node *fe_func_llmodcreate(fe_context *ctx, fe_node *call);
fe_node *fe_func_llmoddelete(fe_context *ctx, fe_node *call);
fe_node *fe_func_llmodsethook(fe_context *ctx, fe_node *call);

/* Make hook, which the item owns from then on, the only one of its kind. */
void func_llmodset_post_commit(llconf_item *lli, fe_node *hook);
void func_llmodset_pre_commit(llconf_item *lli, fe_node *hook);

#endif

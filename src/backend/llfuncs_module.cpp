/* Functions that make, delete and hook module instances. */

#include <libdaemon/dlog.h>

#include "backend/file_io.h"
#include "backend/llfuncs.h"
#include "backend/registry.h"

namespace {

using owned_node = owned<fe_node, destroy_fe_node_tree>;

/* A new instance goes to the master context's list, where commit finds it; the list of a session
 * gets its shadow when the instance is first looked up. */
bool create_instance(const call_arguments &arguments) {
    const char *file = arguments.text(2);
    bool has_file = file && *file;
    owned<llconf_item, destroy_llconf_item> lli{
        create_llconf_item(arguments.text(0), arguments.text(1), nullptr, has_file ? file : nullptr,
                           arguments.text(3), arguments.text(4), nullptr)};
    if (!lli) return false;
    lli->flags = LLI_FLAG_CREATE;
    llconf_set_file_attributes(lli.get(), -1, -1, -1);
    if (register_llconf_module(lli.get()) != 0) return false;
    llconf_revert_cnftree(lli.release());
    return true;
}

/* The hook: the call as it stands, with the values that its arguments have now. Null when they
 * cannot be evaluated. */
owned_node bind_call(fe_context *ctx, const fe_node *expression) {
    owned_node hook{copy_fe_node(expression)};
    if (!hook || !expression->first_child) return hook;
    hook->first_child = eval_fe_expr_list(ctx, expression->first_child);
    if (!hook->first_child) hook.reset();
    return hook;
}

}  // namespace

fe_node *fe_func_llmodcreate(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    if (arguments.count() < 2) return const_node("");
    llconf_item *existing = ll_find_item(ctx, arguments.text(0));
    if (existing) {
        if (existing->delete_me) existing->is_dirty = 1;
        existing->delete_me = 0;
        return const_node("1");
    }
    return const_node(create_instance(arguments) ? "1" : "");
}

fe_node *fe_func_llmoddelete(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    llconf_item *lli = arguments.count() == 1 ? ll_find_item(ctx, arguments.text(0)) : nullptr;
    if (!lli) return const_node("");
    lli->delete_me = 1;
    lli->is_dirty = 1;
    return const_node("1");
}

fe_node *fe_func_llmodsethook(fe_context *ctx, fe_node *call) {
    const ll_row &row = row_of(call);
    const fe_node *module = call->first_child;
    owned<fe_node, destroy_fe_node_list> name{module ? eval_fe_expression(ctx, module) : nullptr};
    if (!name || !module->next) {
        daemon_log(LOG_ERR, "not enough args to llmodsethook function %s\n", row.name);
        return const_node("");
    }
    owned_node hook = bind_call(ctx, module->next);
    if (!hook) return const_node("");
    llconf_item *lli = ll_find_item(ctx, name->text);
    if (!lli) {
        daemon_log(LOG_ERR, "module %s not found\n", name->text);
        return const_node("");
    }
    row.set_hook(lli, hook.release());
    return const_node("1");
}

void func_llmodset_post_commit(llconf_item *lli, fe_node *hook) {
    destroy_fe_node_list(lli->func_post_commit);
    lli->func_post_commit = hook;
}

void func_llmodset_pre_commit(llconf_item *lli, fe_node *hook) {
    destroy_fe_node_list(lli->func_pre_commit);
    lli->func_pre_commit = hook;
}

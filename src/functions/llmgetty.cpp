/* What a serial port's getty runs when somebody calls: edits of an mgetty login configuration, one
 * top-level node per login pattern. */

#include <array>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "backend/contexts.h"
#include "daemon/trace.h"
#include "functions/functions.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "llconf/path.h"
#include "tree/arguments.h"
#include "ucfgd/owners.h"

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

constexpr const char *k_autoppp = "/AutoPPP/";

/* A type of login, and the entry that it needs; a null pattern needs none. */
struct login_type {
    std::string_view name;
    const char *pattern;
    const char *utmp_entry;
    const char *login_program;
};

constexpr std::array<login_type, 4> k_login_types = {{
    {"login", nullptr, nullptr, nullptr},
    {"autoppp", k_autoppp, "a_ppp", "/usr/local/sbin/pppd"},
    {"ppp", "*", "a_ppp", "/usr/local/sbin/pppd"},
    {"opielogin", "*", "-", "/usr/local/bin/opielogin @"},
}};

fe_node *done_answer(bool done, const memory_watch &memory) {
    return done ? const_node("1") : answer_unless_short(memory, "");
}

llconf_item *find_module(const fe_context *ctx, const fe_node *name) {
    llconf_item *list = lli_list_from_trns_ctx(static_cast<trns_ctx *>(ctx->user_data));
    llconf_item *found = find_llconf_item(list, name->text);
    if (!found) fe_fail(ENOENT, name->text, "no such module");
    return found;
}

bool append_child(cnfnode *parent, const char *name, const char *value) {
    owned_tree child{create_cnfnode(name)};
    if (!child || cnfnode_setval(child.get(), value) != 0) return false;
    if (append_node(parent, child.get()) != 0) return false;
    static_cast<void>(child.release());
    return true;
}

owned_tree make_entry(const login_type &type) {
    owned_tree entry{create_cnfnode(type.pattern)};
    bool whole = entry && append_child(entry.get(), "userid", "-") &&
                 append_child(entry.get(), "utmp_entry", type.utmp_entry) &&
                 append_child(entry.get(), "login_program", type.login_program);
    return whole ? std::move(entry) : nullptr;
}

const login_type *find_login_type(std::string_view name) {
    for (const login_type &type : k_login_types) {
        if (type.name == name) return &type;
    }
    return nullptr;
}

/* The entry for call-back, made before the first real entry when there is none: mgetty takes the
 * first pattern that matches. */
cnfnode *find_or_add_callback(cnfnode *root) {
    cnfnode *found = find_node(root->first_child, "cbuser");
    if (found) return found;
    owned_tree entry{create_cnfnode("cbuser")};
    if (!entry) return nullptr;
    cnfnode *first = root->first_child;
    while (first && first->name[0] == '.')
        first = first->next;
    int status = first ? insert_node_before(first, entry.get()) : append_node(root, entry.get());
    return status == 0 ? entry.release() : nullptr;
}

bool add_missing(cnfnode *entry, const char *name, const char *value) {
    return find_node(entry->first_child, name) || append_child(entry, name, value);
}

bool fill_callback(cnfnode *entry, const char *args) {
    return add_missing(entry, "userid", "-") && add_missing(entry, "utmp_entry", "-") &&
           add_missing(entry, "login_program", "/sbin/callback") &&
           add_missing(entry, "args", args) &&
           cnfnode_setval(find_node(entry->first_child, "args"), args) == 0;
}

bool set_callback(llconf_item *lli, const char *number) {
    cnfnode *root = llconf_get_cnftree_write(lli);
    if (!root) return false;
    char args[256];
    std::snprintf(args, sizeof(args), "-S %s", number);
    bool is_new = !find_node(root->first_child, "cbuser");
    cnfnode *entry = find_or_add_callback(root);
    if (!entry) return false;
    const cnfmodule *module = llconf_primary_item(lli)->module;
    if (module && cnfmodule_accepts(module, entry, "args", args) != 1) {
        if (is_new) destroy_cnftree(entry);
        fe_fail(EINVAL, number, "the file cannot hold the number");
        return false;
    }
    return fill_callback(entry, args);
}

const char *type_of_program(const char *program) {
    constexpr std::array<std::pair<const char *, const char *>, 3> k_programs = {
        {{"pppd", "ppp"}, {"opielogin", "opielogin"}, {"login", "login"}}};
    for (const auto &[part, type] : k_programs) {
        if (std::strstr(program, part)) return type;
    }
    return "other";
}

const char *login_type_of(const cnfnode *root) {
    for (const cnfnode *node = root ? root->first_child : nullptr; node; node = node->next) {
        if (std::strcmp(node->name, k_autoppp) == 0) return "autoppp";
        if (std::strcmp(node->name, "*") != 0) continue;
        const cnfnode *program = find_node(node->first_child, "login_program");
        return program && program->value ? type_of_program(program->value) : "login";
    }
    return "login";
}

/* Edits the tree that a reader sees, without a copy of its own for the transaction: in a session
 * that has not written to the module before, that is the parent's tree. For a type that there is
 * not, the entries go all the same. */
bool set_login_type(llconf_item *lli, const char *name) {
    cnfnode *root = lli ? llconf_get_cnftree_read(lli) : nullptr;
    if (!root) return false;
    const login_type *type = find_login_type(name);
    owned_tree entry;
    if (type && type->pattern && !(entry = make_entry(*type))) return false;
    cnf_del_branch(root, "\\/AutoPPP\\/");
    cnf_del_branch(root, "*");
    if (!type) fe_fail(EINVAL, name, "no such type of login");
    if (!type || (entry && append_node(root, entry.get()) != 0)) return false;
    static_cast<void>(entry.release());
    lli->is_dirty = 1;
    return true;
}

fe_node *fe_func_set_mgettylogin_type(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    memory_watch memory;
    const call_arguments arguments{ctx, call};
    if (arguments.count() < 2) return answer_wrong_count(memory, arguments);
    bool done = set_login_type(find_module(ctx, arguments.first()), arguments[1]);
    return done_answer(done, memory);
}

fe_node *fe_func_set_mgettylogin_cbphone(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    memory_watch memory;
    const call_arguments arguments{ctx, call};
    if (arguments.count() < 2) return answer_wrong_count(memory, arguments);
    llconf_item *lli = find_module(ctx, arguments.first());
    bool done = lli && set_callback(lli, arguments[1]);
    if (done) lli->is_dirty = 1;
    return done_answer(done, memory);
}

fe_node *fe_func_get_mgettylogin_type(fe_context *ctx, fe_node *call) {
    trace(4, "%s\n", __func__);
    memory_watch memory;
    const call_arguments arguments{ctx, call};
    if (arguments.count() == 0) return answer_wrong_count(memory, arguments);
    llconf_item *lli = find_module(ctx, arguments.first());
    if (!lli) return answer_unless_short(memory, "");
    return const_node(login_type_of(llconf_get_cnftree_read(lli)));
}

}  // namespace

fe_def *fe_register_llmgettyfuncs(fe_def *list) {
    list = fe_register_func(list, "llmgetty_setlogintype", fe_func_set_mgettylogin_type, nullptr);
    list = fe_register_func(list, "llmgetty_setcbphone", fe_func_set_mgettylogin_cbphone, nullptr);
    list = fe_register_func(list, "llmgetty_getlogintype", fe_func_get_mgettylogin_type, nullptr);
    fe_mark_pure(list, "llmgetty_getlogintype");
    return list;
}

#include <libdaemon/dlog.h>
#include <syslog.h>

#include <array>
#include <cstdio>
#include <new>
#include <vector>

#include "daemon/trace.h"
#include "llconf/nodes.h"
#include "tree/ccdtree.h"
#include "ucfgd/owners.h"

namespace {

/* Calls enter before and leave after the children of every node from root down. */
template <class node_type, class enter_function, class leave_function>
void walk(node_type *root, enter_function enter, leave_function leave) {
    node_type *node = root;
    for (;;) {
        enter(node);
        if (node->first_child) {
            node = node->first_child;
            continue;
        }
        for (;;) {
            leave(node);
            if (node == root) return;
            if (node->next) {
                node = node->next;
                break;
            }
            node = node->parent;
        }
    }
}

void warn(const char *format, const ccdtree_node *node, int is_mgmt) {
    owned_str path{get_ccdtree_path(node)};
    daemon_log(LOG_WARNING, format, path ? path.get() : "", is_mgmt ? "management" : "parameter");
}

bool has_functions(const ccdtree_node *node) {
    return node->func_get || node->func_set || node->func_add || node->func_del ||
           node->func_move || node->func_admin || node->func_info;
}

void warn_of_unchecked(const ccdtree_node *node, int is_mgmt) {
    if (node->func_sanity || node->type) return;
    if (node->func_set) {
        warn("Warning: Node '%s' in %s tree has 'set:' method, but no 'sanity:' or 'type:'.", node,
             is_mgmt);
    }
    if (node->func_add) {
        warn("Warning: Node '%s' in %s tree has 'add:' method, but no 'sanity:' or 'type:'.", node,
             is_mgmt);
    }
}

void append_key(cnfnode *parent, const char *name, const char *value) {
    owned<cnfnode, destroy_cnftree> key{create_cnfnode(name)};
    if (!key || cnfnode_setval(key.get(), value) != 0) return;
    if (append_node(parent, key.get()) == 0) static_cast<void>(key.release());
}

struct dumped_method {
    const char *name;
    fe_node *ccdtree_node::*field;
};

constexpr dumped_method k_dumped_methods[] = {
    {"get:", &ccdtree_node::func_get},     {"set:", &ccdtree_node::func_set},
    {"add:", &ccdtree_node::func_add},     {"del:", &ccdtree_node::func_del},
    {"move:", &ccdtree_node::func_move},   {"list:", &ccdtree_node::func_list},
    {"admin:", &ccdtree_node::func_admin}, {"info:", &ccdtree_node::func_info},
    {"help:", &ccdtree_node::func_help},
};

void dump_node(cnfnode *target, const ccdtree_node *node) {
    for (const dumped_method &method : k_dumped_methods) {
        if (node->*method.field) append_key(target, method.name, "");
    }
    if (node->type) append_key(target, "type:", node->type->name);
    int len = node->len != 0 ? node->len : get_type_len(node->type);
    if (len != 0) {
        std::array<char, 16> text;
        std::snprintf(text.data(), text.size(), "%d", len);
        append_key(target, "len:", text.data());
    }
}

/* The node that a child is dumped into; the parent itself where there is no memory for one. */
cnfnode *append_section(cnfnode *parent, const char *name) {
    cnfnode *section = create_cnfnode(name);
    if (section && append_node(parent, section) == 0) return section;
    destroy_cnftree(section);
    return parent;
}

}  // namespace

void ccdtree_postprocess(ccdtree_node *root, int is_mgmt, int have_access) {
    if (!root) return;
    try {
        std::vector<bool> guarded{have_access != 0};
        auto enter = [&](const ccdtree_node *node) {
            guarded.push_back(guarded.back() || node->func_access);
            if (!guarded.back() && has_functions(node)) {
                warn(
                    "Warning: No 'access:' specified for node '%s' or its parents in %s tree, but "
                    "functions are available.",
                    node, is_mgmt);
            }
        };
        auto leave = [&](const ccdtree_node *node) {
            guarded.pop_back();
            if (g_debug_level > 0) warn_of_unchecked(node, is_mgmt);
        };
        walk(root, enter, leave);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
}

void dump_ccdtree(cnfnode *parent, const ccdtree_node *node) {
    if (!node) return;
    try {
        std::vector<cnfnode *> sections;
        auto enter = [&](const ccdtree_node *entered) {
            sections.push_back(entered == node ? parent
                                               : append_section(sections.back(), entered->name));
            dump_node(sections.back(), entered);
        };
        walk(node, enter, [&](const ccdtree_node *) { sections.pop_back(); });
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
}

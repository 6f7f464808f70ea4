#include <libdaemon/dlog.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <string>
#include <string_view>

#include "fe/fe.h"
#include "llconf/nodes.h"
#include "tree/ccdtree_reader.h"
#include "tree/definition.h"
#include "tree/param_failure.h"
#include "ucfgd/owners.h"

namespace {

using method_field = fe_node *ccdtree_node::*;
using owned_expression = owned<fe_node, destroy_fe_node_tree>;

/* One key entry on its way to its node. */
struct method_entry {
    ccdtree_node *node;
    const cnfnode *cn;
    fe_def *fed_list;
    method_tails *tails;

    const char *value() const { return cn->value ? cn->value : ""; }
    owned_str path() const { return owned_str{get_ccdtree_path_for_cnfnode(cn)}; }
};

const char *text_of(const owned_str &text) {
    return text ? text.get() : "";
}

/* An expression that fails when it is evaluated, and whose text says where it came from. */
owned_expression unparsed(const method_entry &entry) {
    owned_str path = entry.path();
    if (!path) return nullptr;
    std::string text = std::string(path.get()) + ": " + entry.value();
    return owned_expression{create_fe_node(g_fed_unparsed, text.c_str())};
}

owned_expression parse_fe_expr_verbose(const method_entry &entry, fe_def *fed_list) {
    owned_expression expression{parse_fe_expression(entry.value(), fed_list)};
    if (expression) return expression;
    const int reason = errno;
    owned_str place = entry.path();
    errno = reason;
    log_expression_failure(text_of(place));
    return unparsed(entry);
}

/* A method that may come from several files: all run, in the order in which they were read. */
template <method_field field, size_t slot>
void store_in_list(const method_entry &entry) {
    fe_node *&list = entry.node->*field;
    fe_node *&tail = entry.tails->last[slot];
    if (entry.value()[0] == '\0') {
        destroy_fe_node_list(std::exchange(list, nullptr));
        tail = nullptr;
        return;
    }
    fe_node *expression = parse_fe_expr_verbose(entry, entry.fed_list).release();
    if (!expression) return;
    if (tail) {
        tail->next = expression;
    } else {
        list = append_fe_node_list(list, expression);
    }
    tail = expression;
}

template <method_field field>
void replace(const method_entry &entry) {
    owned_expression old{
        std::exchange(entry.node->*field, parse_fe_expr_verbose(entry, entry.fed_list).release())};
}

/* The check that is replaced can still be called, as "super", by the one that replaces it. */
void chain_sanity(const method_entry &entry) {
    fe_node *&field = entry.node->func_sanity;
    if (!field) {
        field = parse_fe_expr_verbose(entry, entry.fed_list).release();
        return;
    }
    fe_def *with_super =
        fe_register_function(entry.fed_list, "super", std::exchange(field, nullptr));
    field = parse_fe_expr_verbose(entry, with_super).release();
    if (with_super != entry.fed_list) fe_unregister_first(with_super);
}

/* Access never becomes wider by a further file: where it cannot be narrowed nobody gets in. */
void narrow_access(const method_entry &entry) {
    owned_expression added = parse_fe_expr_verbose(entry, entry.fed_list);
    if (!added) return;
    if (fe_node_is_const_true(added.get())) {
        daemon_log(LOG_WARNING, "Warning: \"access:\" at node \"%s\" is always true.",
                   text_of(entry.path()));
    }
    fe_node *&field = entry.node->func_access;
    if (!field) {
        field = added.release();
        return;
    }
    daemon_log(LOG_WARNING,
               "Warning: Defining multiple functions at node \"%s\". Access will only be granted "
               "if all functions pass.",
               text_of(entry.path()));
    owned_expression both{create_fe_node_with_func(entry.fed_list, "and")};
    if (!both) both = unparsed(entry);
    if (!both) return;
    both->first_child = std::exchange(field, both.get());
    both->first_child->next = added.release();
    static_cast<void>(both.release());
}

void store_len(const method_entry &entry) {
    complain_of_no_number(entry.value());
    entry.node->len = std::atoi(entry.value());
}

void store_type(const method_entry &entry) {
    entry.node->type = find_ccd_type(g_types, entry.value());
    entry.node->lacks_type = entry.node->type == nullptr;
    if (entry.node->type) return;
    daemon_log(LOG_WARNING, "Warning: Nonexistent type '%s' referred to by '%s'.  Ignoring.",
               entry.value(), text_of(entry.path()));
}

struct method_key {
    std::string_view name;
    void (*store)(const method_entry &entry);
};

constexpr method_key k_method_keys[] = {
    {"common:", store_in_list<&ccdtree_node::func_common, 0>},
    {"get:", store_in_list<&ccdtree_node::func_get, 1>},
    {"set:", store_in_list<&ccdtree_node::func_set, 2>},
    {"add:", store_in_list<&ccdtree_node::func_add, 3>},
    {"del:", store_in_list<&ccdtree_node::func_del, 4>},
    {"move:", store_in_list<&ccdtree_node::func_move, 5>},
    {"list:", replace<&ccdtree_node::func_list>},
    {"admin:", replace<&ccdtree_node::func_admin>},
    {"info:", replace<&ccdtree_node::func_info>},
    {"sanity:", chain_sanity},
    {"help:", replace<&ccdtree_node::func_help>},
    {"args:", replace<&ccdtree_node::func_args>},
    {"choices:", replace<&ccdtree_node::func_choices>},
    {"len:", store_len},
    {"flags:", replace<&ccdtree_node::func_flags>},
    {"access:", narrow_access},
    {"type:", store_type},
};

}  // namespace

void ccdtree_parse_tree_func(ccdtree_node *node, const cnfnode *entry, fe_def *fed_list,
                             method_tails *tails) {
    g_ccdtree_changes++;
    const reading_entry here{entry};
    for (const method_key &key : k_method_keys) {
        if (key.name == entry->name) {
            key.store({node, entry, fed_list, tails});
            return;
        }
    }
    std::array<std::string_view, std::size(k_method_keys) + 1> known{"include:"};
    std::ranges::transform(k_method_keys, known.begin() + 1, &method_key::name);
    complain_of_unknown(entry, known);
}

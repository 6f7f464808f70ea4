/* Tree functions that read. */

#include <errno.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>

#include "backend/llfuncs.h"
#include "llconf/path.h"

namespace {

using owned_results = owned<cnfresult, destroy_cnfresult_list>;

owned_results find_entries(llconf_item *lli, const char *path) {
    const cnfnode *root = llconf_get_cnftree_read(lli);
    return owned_results{root ? cnf_find_entry(root, path && *path ? path : ".") : nullptr};
}

bool is_listed(const cnfnode *node) {
    return node->name && !cnfnode_is_formatting(node);
}

/* Gives every listed child of every matching entry, in tree order, to take, which returns false to
 * give up. Null then. */
template <class taker>
fe_node *list_children(llconf_item *lli, const char *path, taker take) {
    owned_results entries = find_entries(lli, path);
    node_list answers;
    for (const cnfresult *entry = entries.get(); entry; entry = entry->next) {
        for (const cnfnode *child = entry->cnfnode->first_child; child; child = child->next) {
            if (is_listed(child) && !take(answers, child)) return nullptr;
        }
    }
    return answers.release();
}

/* Whether a child of that name, below any of the matching entries, is a wanted one. */
template <class condition>
fe_node *any_child_named(llconf_item *lli, const char *path, const char *name,
                         condition is_wanted) {
    owned_results entries = find_entries(lli, path);
    for (const cnfresult *entry = entries.get(); entry; entry = entry->next) {
        const cnfnode *child = find_node(entry->cnfnode->first_child, name);
        for (; child; child = child->next ? find_node(child->next, name) : nullptr) {
            if (is_wanted(child)) return const_node("1");
        }
    }
    return const_node("0");
}

constexpr size_t k_longest_indexed = 255;

std::string indexed_name(const char *name, int index) {
    std::string text = std::string(name) + "[" + std::to_string(index) + "]";
    if (text.size() > k_longest_indexed) text.resize(k_longest_indexed);
    return text;
}

bool has_child_with_value(const cnfnode *entry, const char *key, const char *value) {
    for (const cnfnode *child = find_node(entry->first_child, key); child;
         child = child->next ? find_node(child->next, key) : nullptr) {
        if (child->value && std::strcmp(child->value, value) == 0) return true;
    }
    return false;
}

}  // namespace

fe_node *func_llget(llconf_item *lli, const char *path, const char * /*third*/) {
    const cnfnode *node = ll_read_node(lli, path);
    return node && node->value ? const_node(node->value) : nullptr;
}

fe_node *func_llgetname(llconf_item *lli, const char *path, const char * /*third*/) {
    const cnfnode *node = ll_read_node(lli, path);
    return node ? const_node(node->name) : nullptr;
}

fe_node *func_llgetdefault(llconf_item *lli, const char *path, const char *value) {
    const cnfnode *node = ll_read_node(lli, path);
    const char *text = node ? node->value : value;
    return text ? const_node(text) : nullptr;
}

fe_node *func_llexists(llconf_item *lli, const char *path, const char * /*third*/) {
    const cnfnode *node = ll_read_node(lli, path);
    if (!node && errno == ENOENT) errno = 0;
    if (node && path[0] == '\0') node = node->first_child;
    return const_node(node ? "1" : "0");
}

fe_node *func_lllist(llconf_item *lli, const char *path, const char * /*third*/) {
    return list_children(lli, path, [](node_list &answers, const cnfnode *child) {
        return answers.append(child->name);
    });
}

fe_node *func_lllist_holds(llconf_item *lli, const char *path, const char *text) {
    return any_child_named(lli, path, text, is_listed);
}

fe_node *func_lllistindexed(llconf_item *lli, const char *path, const char * /*third*/) {
    /* Counts only names that occur again: the library's index finds a name's first child. */
    const cnfnode *parent = nullptr;
    std::unordered_map<std::string_view, int> repeated;
    auto take = [&parent, &repeated](node_list &answers, const cnfnode *child) {
        if (child->parent != parent) repeated.clear();
        parent = child->parent;
        bool is_first = parent == nullptr || find_node(parent->first_child, child->name) == child;
        int index = is_first ? 0 : ++repeated[child->name];
        return answers.append(indexed_name(child->name, index).c_str());
    };
    try {
        return list_children(lli, path, take);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

fe_node *func_lllistindexed_holds(llconf_item *lli, const char *path, const char *text) {
    const char *bracket = std::strrchr(text, '[');
    if (std::strlen(text) >= k_longest_indexed) { /* may be a part of what was longer */
        const owned<fe_node, destroy_fe_node_list> all{func_lllistindexed(lli, path, nullptr)};
        return all ? const_node(fe_list_holds(nullptr, all.get(), text) > 0 ? "1" : "0") : nullptr;
    }
    if (!bracket) return const_node("0");
    int index = -1;
    const cnfnode *parent = nullptr;
    auto is_meant = [&](const cnfnode *child) {
        index = child->parent == parent ? index + 1 : 0;
        parent = child->parent;
        return is_listed(child) && indexed_name(child->name, index) == text;
    };
    try {
        return any_child_named(lli, path, std::string(text, bracket).c_str(), is_meant);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

fe_node *func_llpaths(llconf_item *lli, const char *path, const char * /*third*/) {
    owned_results entries = find_entries(lli, path);
    node_list answers;
    for (const cnfresult *entry = entries.get(); entry; entry = entry->next) {
        if (!answers.append(entry->path)) return nullptr;
    }
    return answers.release();
}

fe_node *fe_func_llisdirty(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    const llconf_item *lli = ll_find_item(ctx, arguments.text(0));
    /* A request edits a shadow of the session's shadow. */
    while (lli && !lli->is_dirty && lli->item_orig && lli->item_orig->item_orig)
        lli = lli->item_orig;
    return const_node(lli && lli->is_dirty ? "1" : "0");
}

fe_node *fe_func_llcompare(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    llconf_item *first = ll_find_item(ctx, arguments.text(0));
    llconf_item *second = ll_find_item(ctx, arguments.text(1));
    if (!first || !second) return const_node("");
    const char *path1 = arguments.count() > 2 ? arguments.text(2) : "";
    const char *path2 = arguments.count() > 3 ? arguments.text(3) : path1;
    int different =
        compare_cnftree_children(ll_read_node(first, path1), ll_read_node(second, path2));
    return const_node(different ? "1" : "0");
}

fe_node *fe_func_lllistmatch(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    const char *pattern = arguments.text(2);
    llconf_item *lli = pattern ? ll_find_item(ctx, arguments.text(0)) : nullptr;
    if (!lli) return const_node("");
    auto take = [pattern](node_list &answers, const cnfnode *child) {
        const int matches = fe_match_wildcards(pattern, child->name, 1);
        return matches == 0 || (matches == 1 && answers.append(child->name));
    };
    return list_children(lli, arguments.text(1), take);
}

fe_node *fe_func_llfindindex(fe_context *ctx, fe_node *call) {
    call_arguments arguments{ctx, call};
    llconf_item *lli = arguments.count() == 4 ? ll_find_item(ctx, arguments.text(0)) : nullptr;
    if (!lli) return const_node("");
    const char *key = arguments.text(2);
    const char *value = arguments.text(3);
    owned_results entries = find_entries(lli, arguments.text(1));
    int index = 0;
    for (const cnfresult *entry = entries.get(); entry; entry = entry->next, index++) {
        if (!has_child_with_value(entry->cnfnode, key, value)) continue;
        /* Room for five digits, and the rest is cut. */
        return const_node(std::to_string(index).substr(0, 5).c_str());
    }
    return const_node("");
}

/* Tree functions that read. */

#include <errno.h>
#include <fnmatch.h>

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

/* A list of answers that grows at its end; what could not be added makes all of it fail. */
class answer_list {
  public:
    answer_list() = default;
    answer_list(const answer_list &) = delete;
    answer_list &operator=(const answer_list &) = delete;
    ~answer_list() { destroy_fe_node_list(nodes_.release()); }

    bool add(const char *text) {
        fe_node *node = ll_answer(text);
        if (node) nodes_.append(node);
        return node != nullptr;
    }
    fe_node *release() { return nodes_.release(); }

  private:
    list_builder<fe_node> nodes_;
};

bool is_listed(const cnfnode *node) {
    return node->name && !cnfnode_is_formatting(node);
}

/* Gives every listed child of every matching entry, in tree order, to take, which returns false to
 * give up. Null then. */
template <class taker>
fe_node *list_children(llconf_item *lli, const char *path, taker take) {
    owned_results entries = find_entries(lli, path);
    answer_list answers;
    for (const cnfresult *entry = entries.get(); entry; entry = entry->next) {
        for (const cnfnode *child = entry->cnfnode->first_child; child; child = child->next) {
            if (is_listed(child) && !take(answers, child)) return nullptr;
        }
    }
    return answers.release();
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
    return node && node->value ? ll_answer(node->value) : nullptr;
}

fe_node *func_llgetname(llconf_item *lli, const char *path, const char * /*third*/) {
    const cnfnode *node = ll_read_node(lli, path);
    return node ? ll_answer(node->name) : nullptr;
}

fe_node *func_llgetdefault(llconf_item *lli, const char *path, const char *value) {
    const cnfnode *node = ll_read_node(lli, path);
    const char *text = node ? node->value : value;
    return text ? ll_answer(text) : nullptr;
}

fe_node *func_llexists(llconf_item *lli, const char *path, const char * /*third*/) {
    const cnfnode *node = ll_read_node(lli, path);
    if (!node && errno == ENOENT) errno = 0;
    if (node && path[0] == '\0') node = node->first_child;
    return ll_answer(node ? "1" : "0");
}

fe_node *func_lllist(llconf_item *lli, const char *path, const char * /*third*/) {
    return list_children(lli, path, [](answer_list &answers, const cnfnode *child) {
        return answers.add(child->name);
    });
}

fe_node *func_lllistindexed(llconf_item *lli, const char *path, const char * /*third*/) {
    /* Counts only names that occur again: the library's index finds a name's first child. */
    const cnfnode *parent = nullptr;
    std::unordered_map<std::string_view, int> repeated;
    auto take = [&parent, &repeated](answer_list &answers, const cnfnode *child) {
        if (child->parent != parent) repeated.clear();
        parent = child->parent;
        bool is_first = parent == nullptr || find_node(parent->first_child, child->name) == child;
        char text[256];
        std::snprintf(text, sizeof(text), "%s[%d]", child->name,
                      is_first ? 0 : ++repeated[child->name]);
        return answers.add(text);
    };
    try {
        return list_children(lli, path, take);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

fe_node *func_llpaths(llconf_item *lli, const char *path, const char * /*third*/) {
    owned_results entries = find_entries(lli, path);
    answer_list answers;
    for (const cnfresult *entry = entries.get(); entry; entry = entry->next) {
        if (!answers.add(entry->path)) return nullptr;
    }
    return answers.release();
}

fe_node *fe_func_llisdirty(fe_context *ctx, fe_node *call) {
    ll_arguments arguments(ctx, call->first_child);
    const llconf_item *lli = ll_find_item(ctx, arguments.text(0));
    return ll_answer(lli && lli->is_dirty ? "1" : "0");
}

fe_node *fe_func_llcompare(fe_context *ctx, fe_node *call) {
    ll_arguments arguments(ctx, call->first_child);
    llconf_item *first = ll_find_item(ctx, arguments.text(0));
    llconf_item *second = ll_find_item(ctx, arguments.text(1));
    if (!first || !second) return ll_answer("");
    const char *path1 = arguments.count() > 2 ? arguments.text(2) : "";
    const char *path2 = arguments.count() > 3 ? arguments.text(3) : path1;
    int different =
        compare_cnftree_children(ll_read_node(first, path1), ll_read_node(second, path2));
    return ll_answer(different ? "1" : "0");
}

fe_node *fe_func_lllistmatch(fe_context *ctx, fe_node *call) {
    ll_arguments arguments(ctx, call->first_child);
    const char *pattern = arguments.text(2);
    llconf_item *lli = pattern ? ll_find_item(ctx, arguments.text(0)) : nullptr;
    if (!lli) return ll_answer("");
    auto take = [pattern](answer_list &answers, const cnfnode *child) {
        return fnmatch(pattern, child->name, FNM_PATHNAME) != 0 || answers.add(child->name);
    };
    fe_node *names = list_children(lli, arguments.text(1), take);
    return names ? names : ll_answer("");
}

fe_node *fe_func_llfindindex(fe_context *ctx, fe_node *call) {
    ll_arguments arguments(ctx, call->first_child);
    llconf_item *lli = arguments.count() == 4 ? ll_find_item(ctx, arguments.text(0)) : nullptr;
    if (!lli) return ll_answer("");
    const char *key = arguments.text(2);
    const char *value = arguments.text(3);
    owned_results entries = find_entries(lli, arguments.text(1));
    int index = 0;
    for (const cnfresult *entry = entries.get(); entry; entry = entry->next, index++) {
        if (!has_child_with_value(entry->cnfnode, key, value)) continue;
        /* Room for five digits, and the rest is cut. */
        return ll_answer(std::to_string(index).substr(0, 5).c_str());
    }
    return ll_answer("");
}

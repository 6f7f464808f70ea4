/* The trees: what the daemon knows about the configuration, which is how to get at it.
 *
 * A node holds no value. It holds the expressions that read, write, list, check and guard a value
 * that lives in some file of the machine, and its place in the tree is the name under which clients
 * find it. Where the names of a level are not known beforehand (the hosts of a hosts file), one
 * child is called "*", or "*something", and answers to all of them; its methods see in "0" which
 * name was meant.
 *
 * The trees are built once, at start-up: definition files (ccdtree_read.cpp) create nodes and store
 * methods on them (ccdtree_method.cpp), later files add to what earlier ones defined, replace it or
 * remove it, and ccdtree_check.cpp warns of what looks forgotten. After that nobody changes a node,
 * which is why paths (param_path.cpp) may borrow them and why a request costs no copy.
 *
 * Children are a doubly linked chain in the order of their definition, since that is the order of
 * every listing. A level of more than a few nodes also has an index by name. It is an index of the
 * first node of each name: two of one name are possible, and the first one counts. The chain is the
 * truth; the index follows it in append_ccdtree_node and unlink_ccdtree_node, so nobody else may
 * touch the links. When there is no memory for an index, look-ups walk.
 *
 * Nothing here recurses: the depth of a tree comes from files. */

#include "tree/ccdtree.h"

#include <array>
#include <cstddef>
#include <cstring>
#include <new>
#include <string_view>
#include <unordered_map>

#include "fe/fe.h"
#include "llconf/nodes.h"
#include "tree/path_segment.h"
#include "ucfgd/escape.h"
#include "ucfgd/owners.h"

ccdtree_node *g_ccdtree = nullptr;
ccdtree_node *g_mgmttree = nullptr;
uint64_t g_ccdtree_changes = 0;

static_assert(offsetof(ccdtree_node, next) == 0);

struct ccdtree_index {
    std::unordered_map<std::string_view, ccdtree_node *> by_name;
    ccdtree_node *wildcard = nullptr;
    bool has_duplicates = false;
};

namespace {

/* Up to this many children a walk is as quick as an index. */
constexpr unsigned int k_few_children = 8;

bool is_wildcard(const ccdtree_node *node) {
    return node->name[0] == '*';
}

ccdtree_node *next_of_name(ccdtree_node *node, const char *name) {
    while (node && (node->name[0] != name[0] || std::strcmp(node->name, name) != 0)) {
        node = node->next;
    }
    return node;
}

ccdtree_node *next_wildcard(ccdtree_node *node) {
    while (node && !is_wildcard(node)) {
        node = node->next;
    }
    return node;
}

void drop_index(ccdtree_node *parent) {
    delete std::exchange(parent->children, nullptr);
}

void add_to_index(ccdtree_index *index, ccdtree_node *node) {
    if (!index->by_name.emplace(node->name, node).second) index->has_duplicates = true;
    if (!index->wildcard && is_wildcard(node)) index->wildcard = node;
}

/* Brings the index up to date with the children from the given one on. */
void index_children(ccdtree_node *parent, ccdtree_node *added) {
    if (!parent->children && parent->child_count <= k_few_children) return;
    errno_guard keep;
    try {
        if (!parent->children) {
            parent->children = new ccdtree_index{};
            added = parent->first_child;
        }
        for (; added; added = added->next) {
            add_to_index(parent->children, added);
        }
    } catch (const std::bad_alloc &) {
        drop_index(parent);
    }
}

void remove_from_index(ccdtree_index *index, ccdtree_node *node) {
    auto entry = index->by_name.find(node->name);
    if (entry != index->by_name.end() && entry->second == node) {
        ccdtree_node *heir = index->has_duplicates ? next_of_name(node->next, node->name) : nullptr;
        /* The key is the node's own name, so the heir must bring its own. */
        auto handle = index->by_name.extract(entry);
        if (heir) {
            handle.key() = heir->name;
            handle.mapped() = heir;
            index->by_name.insert(std::move(handle));
        }
    }
    if (index->wildcard == node) index->wildcard = next_wildcard(node->next);
}

/* The names from below the topmost node down to this one, filled in from the end. */
template <class node_type>
char *dotted_path(const node_type *node) {
    size_t size = 0;
    for (const node_type *n = node; n && n->parent; n = n->parent) {
        size += std::strlen(n->name) + 1;
    }
    if (size == 0) return dup_str("").release();
    auto *path = static_cast<char *>(std::malloc(size));
    if (!path) return nullptr;
    char *position = path + size;
    char after = '\0';
    for (const node_type *n = node; n->parent; n = n->parent) {
        std::string_view name = n->name;
        *--position = std::exchange(after, '.');
        position -= name.size();
        std::memcpy(position, name.data(), name.size());
    }
    return path;
}

}  // namespace

ccdtree_node *create_ccdtree(void) {
    return create_ccdtree_node("(root)");
}

void destroy_ccdtree(ccdtree_node *root) {
    if (!root) return;
    unlink_ccdtree_node(root);
    ccdtree_node *node = root;
    while (node) {
        if (ccdtree_node *child = node->first_child) {
            node->first_child = child->next;
            node = child;
            continue;
        }
        ccdtree_node *above = node->parent;
        destroy_ccdtree_node(node);
        node = above;
    }
}

ccdtree_node *create_ccdtree_node(const char *name) {
    owned_str copy = dup_str(name);
    if (!copy) return nullptr;
    auto *node = new (std::nothrow) ccdtree_node{};
    if (!node) {
        errno = ENOMEM;
        return nullptr;
    }
    node->name = copy.release();
    return node;
}

void destroy_ccdtree_node(ccdtree_node *node) {
    if (!node) return;
    g_ccdtree_changes++;
    for (fe_node *list : {node->func_common, node->func_get, node->func_set, node->func_add,
                          node->func_del, node->func_move}) {
        destroy_fe_node_list(list);
    }
    for (fe_node *expression :
         {node->func_list, node->func_admin, node->func_info, node->func_sanity, node->func_choices,
          node->func_help, node->func_flags, node->func_access, node->func_args}) {
        destroy_fe_node_tree(expression);
    }
    drop_index(node);
    std::free(node->name);
    delete node;
}

void append_ccdtree_node(ccdtree_node *parent, ccdtree_node *node) {
    if (!parent || !node) return;
    g_ccdtree_changes++;
    node->prev = parent->last_child;
    (parent->last_child ? parent->last_child->next : parent->first_child) = node;
    for (ccdtree_node *added = node; added; added = added->next) {
        added->parent = parent;
        if (added->next) added->next->prev = added;
        parent->last_child = added;
        parent->child_count++;
    }
    index_children(parent, node);
}

void unlink_ccdtree_node(ccdtree_node *node) {
    ccdtree_node *parent = node ? node->parent : nullptr;
    if (!parent) return;
    g_ccdtree_changes++;
    if (parent->children) remove_from_index(parent->children, node);
    (node->prev ? node->prev->next : parent->first_child) = node->next;
    (node->next ? node->next->prev : parent->last_child) = node->prev;
    parent->child_count--;
    node->next = node->prev = node->parent = nullptr;
}

ccdtree_node *find_ccdtree_child(const ccdtree_node *parent, const char *name) {
    if (!parent->children) return next_of_name(parent->first_child, name);
    auto entry = parent->children->by_name.find(name);
    return entry == parent->children->by_name.end() ? nullptr : entry->second;
}

ccdtree_node *match_ccdtree_child(const ccdtree_node *parent, const char *name) {
    if (ccdtree_node *child = find_ccdtree_child(parent, name)) return child;
    return parent->children ? parent->children->wildcard : next_wildcard(parent->first_child);
}

ccdtree_node *find_or_create_ccdtree_child(ccdtree_node *parent, const char *name) {
    ccdtree_node *child = find_ccdtree_child(parent, name);
    if (!child && (child = create_ccdtree_node(name))) append_ccdtree_node(parent, child);
    return child;
}

ccdtree_node *find_or_create_ccdtree_path(ccdtree_node *root, const char *path) {
    ccdtree_node *node = root;
    while (node) {
        path_segment segment = first_segment(path);
        if (segment.length == 0) return node;
        std::array<char, k_max_segment + 1> name;
        unescape_part(path, segment.length, name.data());
        node = find_or_create_ccdtree_child(node, name.data());
        if (!segment.goes_on) return node;
        path += segment.length + 1;
    }
    return nullptr;
}

char *get_ccdtree_path(const ccdtree_node *node) {
    return dotted_path(node);
}

char *get_ccdtree_path_for_cnfnode(const cnfnode *cn) {
    return dotted_path(cn);
}

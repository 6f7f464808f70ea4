#include <cstdio>
#include <cstring>

#include "child_index.h"
#include "llconf/nodes.h"
#include "node_record.h"

/* Operations that go through whole trees, without recursion and without journal affairs of their
 * own. */

namespace {

bool same_text(const char *a, const char *b) {
    return a == nullptr || b == nullptr ? a == b : std::strcmp(a, b) == 0;
}

bool same_node(const cnfnode *a, const cnfnode *b) {
    return same_text(a->name, b->name) && same_text(a->value, b->value) &&
           (a->first_child == nullptr) == (b->first_child == nullptr);
}

/* Walks both trees in step; the tops themselves are not compared. */
bool same_below(const cnfnode *top_a, const cnfnode *top_b) {
    const cnfnode *a = top_a->first_child;
    const cnfnode *b = top_b->first_child;
    if (a == nullptr || b == nullptr) return a == b;
    while (true) {
        if (!same_node(a, b)) return false;
        if (a->first_child != nullptr) {
            a = a->first_child;
            b = b->first_child;
            continue;
        }
        while (a->next == nullptr) {
            if (b->next != nullptr) return false;
            a = a->parent;
            b = b->parent;
            if (a == top_a) return true;
        }
        a = a->next;
        b = b->next;
        if (b == nullptr) return false;
    }
}

size_t text_size(const char *text) {
    return text != nullptr ? std::strlen(text) + 1 : 0;
}

size_t node_size(const node_record *node) {
    size_t size = sizeof(node_record) + text_size(node->value) + index_size(node);
    if (!node->has(k_static_name)) size += text_size(node->name);
    if (node->has(k_has_text)) size += sizeof(source_text);
    if (!node->has(k_in_block)) size += sizeof(size_t);
    return size;
}

}  // namespace

int compare_cnftree(const cnfnode *a, const cnfnode *b) {
    if (a == nullptr || b == nullptr) return a == b ? 0 : 1;
    return same_node(a, b) && same_below(a, b) ? 0 : 1;
}

int compare_cnftree_children(const cnfnode *a, const cnfnode *b) {
    bool none_a = a == nullptr || a->first_child == nullptr;
    bool none_b = b == nullptr || b->first_child == nullptr;
    if (none_a || none_b) return none_a == none_b ? 0 : 1;
    return same_below(a, b) ? 0 : 1;
}

int cnfnode_is_formatting(const cnfnode *node) {
    if (node == nullptr || node->name[0] != '.') return 0;
    for (const char *name : {".comment", ".empty", ".unparsed"}) {
        if (std::strcmp(node->name, name) == 0) return 1;
    }
    return 0;
}

size_t cnftree_size(const cnfnode *root) {
    size_t size = 0;
    for (auto *node = static_cast<const node_record *>(root); node; node = next_in_tree(node, root))
        size += node_size(node);
    return size;
}

void strip_cnftree(cnfnode *root) {
    if (root == nullptr) return;
    cnfnode *node = next_in_tree(root, root);
    while (node != nullptr) {
        bool goes = cnfnode_is_formatting(node) != 0;
        cnfnode *next = next_in_tree(node, root, goes);
        if (goes) destroy_cnftree(node);
        node = next;
    }
}

void dump_nodes(const cnfnode *tree, int indent) {
    int depth = indent > 0 ? indent : 0;
    const cnfnode *node = tree;
    while (node != nullptr) {
        std::printf("%*s%s", depth, "", node->name);
        if (node->value != nullptr) std::printf(": '%s'", node->value);
        std::printf("\n");
        if (node->first_child != nullptr) {
            node = node->first_child;
            depth += 4;
            continue;
        }
        while (node != tree && node->next == nullptr) {
            node = node->parent;
            depth -= 4;
        }
        node = node == tree ? nullptr : node->next;
    }
}

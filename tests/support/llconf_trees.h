#ifndef TESTS_LLCONF_TREES_H
#define TESTS_LLCONF_TREES_H

#include <string>

#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "llconf/path.h"
#include "ucfgd/owners.h"

using tree = owned<cnfnode, destroy_cnftree>;
using module_ptr = owned<cnfmodule, destroy_cnfmodule>;

/* A tree as text: "a=1{b c}" is a node a of value 1 with children b and c. */
inline std::string show(const cnfnode *node) {
    std::string text = node->name;
    if (node->value != nullptr) text += std::string{"="} + node->value;
    if (node->first_child == nullptr) return text;
    text += '{';
    for (const cnfnode *child = node->first_child; child != nullptr; child = child->next) {
        text += show(child) + (child->next != nullptr ? " " : "");
    }
    return text + '}';
}

/* The same the other way. */
inline cnfnode *grow(const char *&text) {
    std::string word;
    while (*text != '\0' && *text != '{' && *text != '}' && *text != ' ')
        word += *text++;
    size_t equals = word.find('=');
    cnfnode *node = create_cnfnode(word.substr(0, equals).c_str());
    if (equals != std::string::npos) cnfnode_setval(node, word.substr(equals + 1).c_str());
    if (*text != '{') return node;
    while (*text != '}')
        append_node(node, grow(++text));
    text++;
    return node;
}

inline tree make_tree(const char *text) {
    return tree{grow(text)};
}

inline cnfnode *at(const tree &t, const char *path) {
    return cnf_get_node(t.get(), path);
}

inline const cnfmodule *parser(const char *name) {
    register_all();
    return find_cnfmodule(name);
}

inline tree parse(const cnfmodule *module, const std::string &text) {
    return tree{cnfmodule_parse_text(module, "file", text.data(), text.size())};
}

/* The text of a tree, or the error. */
inline std::string unparse(const cnfmodule *module, const cnfnode *root) {
    size_t length = 0;
    owned_str text{cnfmodule_unparse_text(module, root, &length)};
    return text ? std::string{text.get(), length} : cnf_error_text();
}

#endif

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "syntaxes.h"
#include "ucfgd/owners.h"

/* Files of every syntax. The first byte chooses the parser; the text goes up to the first byte
 * 0xff, and what follows is a value that one node is set to.
 *
 * What is read is written back byte for byte. The same tree, put together from new nodes that know
 * nothing of the file, reads back as it is or is refused as a whole. An edit that is written does
 * not make or unmake another node. */

namespace {

using tree_ptr = owned<cnfnode, destroy_cnftree>;
using module_ptr = owned<cnfmodule, destroy_cnfmodule>;

void require(bool condition) {
    if (!condition) std::abort();
}

const cnfmodule *module_of(std::size_t index) {
    static std::vector<module_ptr> modules;
    if (modules.empty()) {
        register_all();
        for (const syntax_case &c : k_syntaxes) {
            tree_ptr options{parse_options(c.options)};
            const cnfmodule *parser = find_cnfmodule(c.parser);
            require(parser != nullptr && options != nullptr);
            modules.emplace_back(clone_cnfmodule(parser, nullptr, nullptr, options.get()));
            require(modules.back() != nullptr);
        }
    }
    return modules[index].get();
}

tree_ptr parse(const cnfmodule *module, std::string_view text) {
    return tree_ptr{cnfmodule_parse_text(module, "FILE", text.data(), text.size())};
}

/* False: refused, which must be for what the tree holds. */
bool write(const cnfmodule *module, const cnfnode *tree, std::string &text) {
    std::size_t length = 0;
    errno = 0;
    owned_str written{cnfmodule_unparse_text(module, tree, &length)};
    require(written != nullptr || errno == EINVAL);
    if (written) text.assign(written.get(), length);
    return written != nullptr;
}

/* The node behind this one in a walk through everything below top; null at the end. */
cnfnode *next_in_tree(cnfnode *node, const cnfnode *top) {
    if (node->first_child != nullptr) return node->first_child;
    while (node != top && node->next == nullptr)
        node = node->parent;
    return node == top ? nullptr : node->next;
}

/* The same nodes without a memory of the file. */
tree_ptr rebuild(cnfnode *tree) {
    tree_ptr copy{create_cnfnode(tree->name)};
    cnfnode *made = copy.get();
    for (cnfnode *node = tree; node != nullptr;) {
        require(cnfnode_setval(made, node->value) == 0);
        cnfnode *next = next_in_tree(node, tree);
        if (next == nullptr) break;
        for (; node != next->parent; node = node->parent)
            made = made->parent;
        cnfnode *child = create_cnfnode(next->name);
        require(append_node(made, child) == 0);
        made = child;
        node = next;
    }
    return copy;
}

std::size_t count(cnfnode *tree) {
    std::size_t nodes = 0;
    for (cnfnode *node = tree; node != nullptr; node = next_in_tree(node, tree)) {
        if (cnfnode_is_formatting(node) == 0) ++nodes;
    }
    return nodes;
}

void check_written_anew(const cnfmodule *module, cnfnode *tree, bool exact) {
    strip_cnftree(tree);
    tree_ptr plain = rebuild(tree);
    require(compare_cnftree(plain.get(), tree) == 0);
    std::string text;
    if (!write(module, plain.get(), text)) {
        require(!exact);
        return;
    }
    tree_ptr again = parse(module, text);
    require(again != nullptr);
    strip_cnftree(again.get());
    require(!exact || compare_cnftree(again.get(), plain.get()) == 0);
    require(count(again.get()) == count(plain.get()));
}

void check_edit(const cnfmodule *module, cnfnode *tree, const std::string &value) {
    std::size_t chosen = value.size() % (count(tree) + 1);
    cnfnode *node = tree;
    for (; chosen > 0 && node->next != nullptr; --chosen)
        node = node->next;
    if (node == tree && tree->first_child != nullptr) node = tree->first_child;
    if (node->value != nullptr && std::strcmp(node->value, value.c_str()) == 0) return;
    require(cnfnode_setval(node, value.c_str()) == 0);
    bool accepted = node->parent != nullptr && cnfnode_is_formatting(node) == 0 &&
                    cnfmodule_accepts(module, node->parent, node->name, node->value) == 1;
    std::string text;
    if (!write(module, tree, text)) return;
    require(accepted || node->parent == nullptr || cnfnode_is_formatting(node) != 0);
    tree_ptr again = parse(module, text);
    require(again != nullptr && count(again.get()) == count(tree));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size == 0) return 0;
    std::size_t index = data[0] % k_syntaxes.size();
    const cnfmodule *module = module_of(index);
    std::string_view text{reinterpret_cast<const char *>(data) + 1, size - 1};
    std::string value;
    if (std::size_t end = text.find('\xff'); end != std::string_view::npos) {
        value = text.substr(end + 1);
        text = text.substr(0, end);
    }
    errno = 0;
    tree_ptr tree = parse(module, text);
    if (!tree) {
        require(errno == EINVAL && std::strncmp(cnf_error_text(), "FILE:", 5) == 0);
        return 0;
    }
    std::string written;
    require(write(module, tree.get(), written) && written == text);
    check_edit(module, tree.get(), value);
    check_written_anew(module, parse(module, text).get(), k_syntaxes[index].exact);
    return 0;
}

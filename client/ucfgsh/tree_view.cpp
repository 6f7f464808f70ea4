#include "ucfgsh/tree_view.h"

#include "ucfgsh/words.h"

namespace ucfgsh {

tree_node &tree_node::child(const std::string &child_name) {
    tree_node *&known = by_name[child_name];
    if (!known) {
        children.push_back(std::make_unique<tree_node>());
        known = children.back().get();
        known->name = child_name;
    }
    return *known;
}

tree_node build_tree(const std::vector<std::string> &paths,
                     const std::vector<std::optional<std::string>> &values,
                     const std::vector<std::string> &notes) {
    tree_node top;
    for (size_t i = 0; i < paths.size(); i++) {
        owned_strings components{ucfg_path_split(paths[i].c_str())};
        if (!components || components->count > k_tree_depth) continue;
        tree_node *node = &top;
        for (size_t k = 0; k < components->count; k++)
            node = &node->child(components->items[k]);
        node->value = values[i];
        if (i < notes.size()) node->note = notes[i];
    }
    return top;
}

void print_tree(output &out, const tree_node &top, int indent) {
    for (const auto &node : top.children) {
        std::string text(static_cast<size_t>(indent), ' ');
        text += out.paint(style::name, take_text(ucfg_path_quote(node->name.c_str())));
        if (node->value) text += ": " + out.paint(style::value, show_value(*node->value));
        if (!node->note.empty()) text += "  " + out.paint(style::faint, "# " + node->note);
        out.line(text);
        print_tree(out, *node, indent + 2);
    }
}

}  // namespace ucfgsh

/* What a module's tree looks like, for who writes definitions over it. */

#include <errno.h>

#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "backend/contexts.h"
#include "backend/llfuncs.h"
#include "llconf/modules.h"
#include "llconf/parser.h"
#include "llconf/path.h"

namespace {

using name_counts = std::map<std::string_view, size_t>;

/* On one line, whatever is in it. */
std::string shown(std::string_view value) {
    std::string text;
    for (char c : value) {
        if (c == '\n')
            text += "\\n";
        else
            text += static_cast<unsigned char>(c) < ' ' && c != '\t' ? '?' : c;
    }
    return text;
}

/* Comments and blank lines are no business of expressions; what the parser could not read is. */
bool is_layout(const cnfnode *node) {
    return cnfnode_is_formatting(node) && std::string_view{node->name} != ".unparsed";
}

/* The last component of the path that leads to the node. */
std::string component(const cnfnode *node, name_counts &counts) {
    const owned_str name{cnf_escape_name(node->name)};
    if (!name) throw std::bad_alloc{};
    const size_t before = counts[node->name]++;
    std::string text{name.get()};
    if (before > 0) text += '[' + std::to_string(before) + ']';
    return text;
}

void append_tree(node_list &lines, const cnfnode *top) {
    std::vector<name_counts> counts(1);
    for (const cnfnode *node = top->first_child; node;) {
        if (!is_layout(node)) {
            std::string line(2 * (counts.size() - 1), ' ');
            line += component(node, counts.back());
            if (node->value) line += " = " + shown(node->value);
            if (!node->first_child && cnfnode_is_changed(node)) line += "  (changed)";
            lines.append(line.c_str());
        }
        if (node->first_child) {
            counts.emplace_back();
            node = node->first_child;
            continue;
        }
        while (node != top && !node->next) {
            node = node->parent;
            counts.pop_back();
        }
        node = node == top ? nullptr : node->next;
    }
}

std::string heading(llconf_item *lli) {
    const llconf_item *primary = llconf_primary_item(lli);
    std::string text = "# ";
    if (primary->file) text += primary->file->filename;
    if (primary->pattern) text += std::string{"/"} + primary->pattern;
    if (!primary->file) text += primary->pipe_in ? primary->pipe_in : "no source";
    if (primary->module) text += std::string{", parser "} + primary->module->parser->name;
    return text;
}

}  // namespace

fe_node *fe_func_lltree(fe_context *ctx, fe_node *call) try {
    call_arguments arguments{ctx, call};
    llconf_item *lli = ll_find_item(ctx, arguments[0]);
    if (!lli) return fe_fail(ENOENT, arguments[0], "no such module");
    const cnfnode *top = ll_read_node(lli, arguments[1]);
    if (!top) return fe_fail(ENOENT, arguments[1], "there is no such node");
    node_list lines;
    if (!*arguments[1]) lines.append(heading(lli).c_str());
    if (top->value) lines.append(shown(top->value).c_str());
    append_tree(lines, top);
    return lines.release();
} catch (const std::bad_alloc &) {
    errno = ENOMEM;
    return nullptr;
}

fe_node *fe_func_llmodules(fe_context *ctx, fe_node * /*call*/) {
    node_list names;
    llconf_item *lli = lli_list_from_trns_ctx(static_cast<trns_ctx *>(ctx->user_data));
    for (; lli; lli = lli->next)
        names.append(lli->name);
    return names.release();
}

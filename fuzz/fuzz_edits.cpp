#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "backend/ll_trns.h"
#include "backend/llfuncs.h"
#include "backend/registry.h"
#include "fe/fe.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "llconf/parser.h"
#include "llconf/path.h"
#include "syntaxes.h"
#include "tree/param_error.h"
#include "ucfgd/owners.h"

#ifdef WITH_LENSES
extern "C" int cnfmodule_register_augeas(void);

/* The library keeps some of what it allocated for a tree that it could not write. */
extern "C" const char *__lsan_default_suppressions(void);
extern "C" const char *__lsan_default_suppressions(void) {
    return "leak:libaugeas";
}
#endif

/* Edits of files of every syntax, through the functions that methods use. The first byte chooses
 * the syntax; the file goes up to the first byte 0xff, and each edit behind it up to the next one:
 * a byte for the function, one for each of two nodes, then up to two texts parted by 0xfe.
 *
 * Whatever sequence of edits was accepted: the file can be written unless an entry is unfinished,
 * reads back as the tree was, is written again as it is then, and has every line that no edit had
 * to do with. */

namespace {

using tree_ptr = owned<cnfnode, destroy_cnftree>;
using item_ptr = owned<llconf_item, destroy_llconf_item>;
using nodes_ptr = owned<fe_node, destroy_fe_node_list>;

constexpr std::size_t k_most_edits = 24;

void require(bool condition) {
    if (!condition) std::abort();
}

struct edit {
    unsigned function = 0;
    std::size_t first = 0;
    std::size_t second = 0;
    std::string text;
    std::string value;
};

struct daemon_state {
    daemon_state() {
        register_all();
        ll_register_tctx_interface();
        g_trns_ctx = trns_create_ctx();
        functions = fe_register_llfuncs(fe_register_felib_funcs(nullptr));
#ifdef WITH_LENSES
        require(cnfmodule_register_augeas() == 0);
#endif
        for (const syntax_case &syntax : k_syntaxes) {
            const std::string name = "s" + std::to_string(items.size());
            items.push_back(create_llconf_item(name.c_str(), syntax.parser, syntax.options,
                                               "/nowhere/file", nullptr, nullptr, nullptr));
            require(items.back() != nullptr);
            register_llconf_module(items.back());
        }
    }

    fe_def *functions = nullptr;
    std::vector<llconf_item *> items;
};

std::string quoted(const std::string &text) {
    std::string out = "'";
    for (char c : text) {
        if (c == '\n') {
            out += "\\n";
            continue;
        }
        if (c == '\'' || c == '\\') out += '\\';
        out += c;
    }
    return out + "'";
}

std::vector<cnfnode *> nodes_of(cnfnode *root) {
    std::vector<cnfnode *> nodes;
    for (cnfnode *node = root; node != nullptr;) {
        nodes.push_back(node);
        if (node->first_child != nullptr) {
            node = node->first_child;
            continue;
        }
        while (node != root && node->next == nullptr)
            node = node->parent;
        node = node == root ? nullptr : node->next;
    }
    return nodes;
}

std::string escaped(const char *name) {
    return owned_str{cnf_escape_name(name)}.get();
}

std::string path_of(const cnfnode *node) {
    std::string path;
    for (; node->parent != nullptr; node = node->parent) {
        std::size_t before = 0;
        for (const cnfnode *at = node->parent->first_child; at != node; at = at->next)
            before += std::strcmp(at->name, node->name) == 0 ? 1 : 0;
        std::string part = escaped(node->name) + "[" + std::to_string(before) + "]";
        path = path.empty() ? part : part + "/" + path;
    }
    return path;
}

/* The call as an author would write it. */
std::string call_of(const edit &e, cnfnode *root, const std::string &module) {
    std::vector<cnfnode *> nodes = nodes_of(root);
    const cnfnode *node = nodes[e.first % nodes.size()];
    const cnfnode *other = nodes[e.second % nodes.size()];
    std::string at = "(" + quoted(module) + ", " + quoted(path_of(node)) + ", ";
    std::string above = "(" + quoted(module) + ", " +
                        quoted(node->parent != nullptr ? path_of(node->parent) : "") + ", ";
    std::string child = escaped(e.text.c_str());
    switch (e.function % 9) {
        case 0:
            return "llset" + at + quoted(e.text) + ")";
        case 1:
            return "lladd" + at + quoted(child) + ")";
        case 2:
            return "lladd" + at + quoted(child) + ") && llset(" + quoted(module) +
                   ", last(llpaths(" + quoted(module) + ", " + quoted(path_of(node) + "/" + child) +
                   ")), " + quoted(e.value) + ")";
        case 3:
            return "lldel(" + quoted(module) + ", '', " + quoted(path_of(node)) + ")";
        case 4:
            return "llrename" + at + quoted(e.text) + ")";
        case 5:
            return "llswap" + above + quoted(node->name) + ", " +
                   quoted(node->next != nullptr ? node->next->name : other->name) + ")";
        case 6:
            return "lladdbefore" + above + quoted(e.text) + ", " + quoted(node->name) + ")";
        case 7:
            return "llcopy" + above + quoted(node->name) + ", " + quoted(path_of(other)) + ", " +
                   quoted(e.text) + ")";
        default:
            return "lladdmulti" + at + quoted(child) + ", " + quoted(escaped(e.value.c_str())) +
                   ")";
    }
}

void evaluate(const daemon_state &state, const std::string &call) {
    owned<fe_node, destroy_fe_node_tree> parsed{parse_fe_expression(call.c_str(), state.functions)};
    require(parsed != nullptr);
    owned<fe_context, destroy_fe_context> context{create_fe_context(nullptr, g_trns_ctx)};
    nodes_ptr rr{eval_fe_expression(context.get(), parsed.get())};
    ccd_clear_error();
}

std::vector<edit> read_edits(std::string_view text) {
    std::vector<edit> edits;
    while (!text.empty() && edits.size() < k_most_edits) {
        std::string_view one = text.substr(0, text.find('\xff'));
        text.remove_prefix(std::min(one.size() + 1, text.size()));
        if (one.size() < 3) continue;
        edit e{static_cast<unsigned char>(one[0]),
               static_cast<unsigned char>(one[1]),
               static_cast<unsigned char>(one[2]),
               std::string{one.substr(3)},
               {}};
        if (std::size_t part = e.text.find('\xfe'); part != std::string::npos) {
            e.value = e.text.substr(part + 1);
            e.text.resize(part);
        }
        /* What a client sends has no NUL. */
        e.text = e.text.c_str();
        e.value = e.value.c_str();
        edits.push_back(e);
    }
    return edits;
}

bool write(const cnfmodule *module, const cnfnode *tree, std::string &text) {
    std::size_t length = 0;
    owned_str written{cnfmodule_unparse_text(module, tree, &length)};
    if (written) text.assign(written.get(), length);
    return written != nullptr;
}

/* Entries that are numbered are numbered anew when they are read. */
std::string name_of(const cnfmodule *module, const cnfnode *node) {
    const std::string name = node->name;
    const bool counted = module->parser->counted_names != 0 &&
                         name.find_first_not_of("0123456789") == std::string::npos;
    return counted ? "" : name;
}

/* What a tree says, without layout and without the order, which a flat syntax may choose. */
std::vector<std::string> contents(const cnfmodule *module, cnfnode *root) {
    std::vector<std::string> lines;
    for (cnfnode *node : nodes_of(root)) {
        if (cnfnode_is_formatting(node) != 0 || node == root) continue;
        std::string line = node->value != nullptr ? node->value : "";
        for (const cnfnode *at = node; at != root; at = at->parent)
            line.insert(0, name_of(module, at) + "\n");
        lines.push_back(line);
    }
    std::sort(lines.begin(), lines.end());
    return lines;
}

bool is_finished(const cnfmodule *module, cnfnode *root) {
    bool finished = true;
    for (const cnfnode *node : nodes_of(root))
        finished = finished && cnfmodule_fits(module, root, node, nullptr) != CNF_UNFINISHED;
    return finished;
}

/* How many lines of one text the other has not. */
std::size_t lines_lost(const std::string &from, const std::string &to) {
    auto sorted = [](std::string_view text) {
        std::vector<std::string_view> lines;
        while (!text.empty()) {
            std::string_view line = text.substr(0, text.find('\n'));
            text.remove_prefix(std::min(line.size() + 1, text.size()));
            if (line.ends_with('\r')) line.remove_suffix(1);
            lines.push_back(line);
        }
        std::sort(lines.begin(), lines.end());
        return lines;
    };
    std::vector<std::string_view> a = sorted(from);
    std::vector<std::string_view> b = sorted(to);
    std::vector<std::string_view> lost;
    std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(lost));
    return lost.size();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static daemon_state *const g_state = new daemon_state;
    if (size == 0) return 0;
    std::size_t index = data[0] % k_syntaxes.size();
    std::string_view text{reinterpret_cast<const char *>(data) + 1, size - 1};
    std::string_view rest = text.substr(std::min(text.find('\xff'), text.size()));
    text = text.substr(0, text.size() - rest.size());
    llconf_item *lli = g_state->items[index];
    const cnfmodule *module = lli->module;
    tree_ptr tree{cnfmodule_parse_text(module, "FILE", text.data(), text.size())};
    if (!tree) return 0;
    llconf_install_cnftree(lli, tree.release());
    std::vector<edit> edits = read_edits(rest);
    for (const edit &e : edits)
        evaluate(*g_state, call_of(e, lli->cn_root, lli->name));
    if (!is_finished(module, lli->cn_root)) return 0;
    std::string written;
    std::string again;
    if (!write(module, lli->cn_root, written)) {
        /* Which trees a lens can write, nothing but the lens knows. */
        require(module->parser->read_tree != nullptr);
        return 0;
    }
    tree = tree_ptr{cnfmodule_parse_text(module, "FILE", written.data(), written.size())};
    require(tree != nullptr && contents(module, tree.get()) == contents(module, lli->cn_root));
    require(write(module, tree.get(), again) && again == written);
    bool by_lines = module->parser->cut == nullptr && module->parser->read_tree == nullptr;
    require(!by_lines || lines_lost(std::string{text}, written) <= edits.size());
    return 0;
}

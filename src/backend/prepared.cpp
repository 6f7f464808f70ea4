/* What a commit knows on both sides of its fork.
 *
 * Before the fork the daemon tries whether the trees can be written, which makes their texts. They
 * are kept: the child writes them, and archives them, without making them again. Of each the child
 * tells, in memory that both share, which file it has become. When the commit is over and that very
 * file stands there, the daemon need not read it: its tree was written to it, and only has to
 * become what a parse would have made of it.
 *
 * A text is known by the address of its tree. So in the child all of them are forgotten as soon as
 * a hook runs or a tree is replaced; in the daemon a tree that is not the one that was written
 * shows when it is compared with the text, line by line. */

#include "backend/prepared.h"

#include <sys/mman.h>
#include <sys/stat.h>

#include <cerrno>
#include <new>
#include <utility>
#include <vector>

#include "backend/items.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"

namespace {

constexpr size_t k_most_told = 64;

struct told_file {
    bool is_written;
    file_identity file;
};

struct prepared_tree {
    const cnfnode *tree;
    shared_text text;
};

std::vector<prepared_tree> g_prepared;
bool g_is_child = false;
told_file *g_told = nullptr; /* of the first k_most_told; shared with the child */

size_t index_of(const cnfnode *tree) {
    size_t index = 0;
    while (index < g_prepared.size() && g_prepared[index].tree != tree)
        index++;
    return index;
}

told_file *told_of(const cnfnode *tree) {
    const size_t index = index_of(tree);
    return g_told && index < g_prepared.size() && index < k_most_told ? g_told + index : nullptr;
}

void share_memory() {
    if (g_told) return;
    void *memory = mmap(nullptr, k_most_told * sizeof(told_file), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory != MAP_FAILED) g_told = static_cast<told_file *>(memory);
}

int unparse(const cnfmodule *module, const cnfnode *tree, shared_text &text) {
    auto made = std::make_shared<tree_text>();
    if (tree) made->bytes.reset(cnfmodule_unparse_text(module, tree, &made->length));
    if (tree && !made->bytes) return errno;
    text = std::move(made);
    return 0;
}

bool is_told(const item_record *item, const file_identity &there) {
    if (!item->is_dirty || item->pattern || item->func_pre_read || item->func_post_read)
        return false;
    if (!item_commit_open(item) || !item_commit_ended(item)) return false;
    const told_file *told = told_of(item->cn_root);
    return told && told->is_written && same_identity(told->file, there);
}

}  // namespace

int text_of_tree(const cnfmodule *module, const cnfnode *tree, shared_text &text) {
    const size_t known = g_is_child ? index_of(tree) : g_prepared.size();
    if (known == g_prepared.size()) return unparse(module, tree, text);
    text = g_prepared[known].text;
    return 0;
}

int prepare_text(const cnfmodule *module, const cnfnode *tree) {
    try {
        shared_text text;
        const int reason = unparse(module, tree, text);
        if (reason != 0) return reason;
        share_memory();
        if (g_told && g_prepared.size() < k_most_told) g_told[g_prepared.size()] = {};
        g_prepared.push_back({tree, std::move(text)});
        return 0;
    } catch (const std::bad_alloc &) {
        return ENOMEM;
    }
}

void use_prepared_texts(void) {
    g_is_child = true;
}

void doubt_prepared_texts(void) {
    if (g_is_child) g_prepared.clear();
}

void forget_prepared_texts(void) {
    g_prepared.clear();
}

void tell_written(const cnfnode *tree, const file_identity &file) {
    if (told_file *told = g_is_child ? told_of(tree) : nullptr) *told = {true, file};
}

bool adopt_written_tree(item_record *item, const file_look &there) {
    if (!is_told(item, identity_of(there.st))) return false;
    const errno_guard keep;
    const std::string_view text = g_prepared[index_of(item->cn_root)].text->view();
    if (cnfmodule_adopt(item->module, item->cn_root, text.data(), text.size()) != 0) return false;
    try {
        item->seen = std::make_shared<const seen_file>(seen_in(there, item->cn_root));
    } catch (const std::bad_alloc &) {
        return false;
    }
    return true;
}

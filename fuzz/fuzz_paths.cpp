#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tree/ccdtree.h"
#include "tree/param_path.h"
#include "ucfgd/escape.h"
#include "ucfgd/owners.h"

/* Paths as clients send them: resolving one, creating one, and the escaping around both. */

namespace {

ccdtree_node *make_tree() {
    ccdtree_node *root = create_ccdtree();
    for (const char *path :
         {"a.b.c", "a.*.x.*", "a.*2", "a%2eb", "++", "*.*.*.*.*.*.*.*.*.*.*.*"}) {
        find_or_create_ccdtree_path(root, path);
    }
    for (int i = 0; i < 100; i++) {
        find_or_create_ccdtree_path(root, ("wide.n" + std::to_string(i)).c_str());
    }
    return root;
}

void require(bool condition) {
    if (!condition) std::abort();
}

void check_escaping(const char *text) {
    owned_str escaped{escape(text)};
    require(!std::strpbrk(escaped.get(), ". "));
    owned_str back{unescape(escaped.get())};
    require(std::strcmp(back.get(), text) == 0);
    owned_str plain{unescape(text)};
    require(std::strlen(plain.get()) <= std::strlen(text));
}

/* What resolves has the given path, ends at the top, and leads through parents and children. */
void check_resolving(ccdtree_node *root, const char *text) {
    owned<param_path, destroy_param_path> path{find_ccd_param(text, root)};
    if (!path) {
        require(errno == ENOENT);
        return;
    }
    require(std::strcmp(path->fullpath, text) == 0);
    const param_path_item *item = path->first;
    while (item->next) {
        require(item->ccd->parent == item->next->ccd && item->name[0] != '\0');
        item = item->next;
    }
    require(item == path->last && item->ccd->parent == root);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size);

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    static ccdtree_node *const k_root = make_tree();
    std::string text(reinterpret_cast<const char *>(data), size);
    check_escaping(text.c_str());
    check_resolving(k_root, text.c_str());
    owned<ccdtree_node, destroy_ccdtree> grown{create_ccdtree()};
    ccdtree_node *end = find_or_create_ccdtree_path(grown.get(), text.c_str());
    owned_str names{get_ccdtree_path(end)};
    require(end && names);
    return 0;
}

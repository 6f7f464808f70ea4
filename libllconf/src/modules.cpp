#include "llconf/modules.h"

#include <syslog.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <new>
#include <utility>

#include "engine.h"
#include "path_search.h"
#include "ucfgd/owners.h"

/* The registry of parsers, and their instances.
 *
 * A registered parser is a cnfmodule like any other: the one without options, which lives as long
 * as the process and from which the others are cloned. The list is short and is searched by
 * walking. */

static_assert(offsetof(cnfmodule, next) == 0);

namespace {

using owned_module = owned<cnfmodule, destroy_cnfmodule>;

cnfmodule *g_modules = nullptr;

bool is_registered(const cnfmodule *module) {
    for (const cnfmodule *known = g_modules; known != nullptr; known = known->next) {
        if (known == module) return true;
    }
    return false;
}

bool is_complete(const cnf_parser *parser) {
    bool known = parser != nullptr &&
                 (parser->version == CNF_PARSER_VERSION || parser->version == CNF_SHARING_PARSER);
    if (!known || parser->name == nullptr || parser->accepts == nullptr) {
        return false;
    }
    if (parser->read_tree != nullptr) return parser->format_tree != nullptr;
    return parser->read != nullptr && parser->format != nullptr;
}

bool knows_option(const cnf_parser *parser, const char *name) {
    for (const char *const *known = parser->options; known != nullptr && *known != nullptr;
         known++) {
        if (std::strcmp(*known, name) == 0) return true;
    }
    return false;
}

int refuse_options(const cnfmodule *module, const std::string &what) {
    report(LOG_ERR, std::string{"module '"} + module->name + "': " + what);
    errno = EINVAL;
    return -1;
}

/* Checks the options of a module and lets its parser prepare for them. */
int prepare(cnfmodule *module) {
    const cnf_parser *parser = module->parser;
    const cnfnode *first = module->options != nullptr ? module->options->first_child : nullptr;
    for (const cnfnode *option = first; option != nullptr; option = option->next) {
        if (!knows_option(parser, option->name)) {
            return refuse_options(module, std::string{"unknown option '"} + option->name + "'");
        }
    }
    if (parser->prepare == nullptr) return 0;
    if (parser->prepare(module->options, &module->data) == 0) return 0;
    if (errno != EINVAL) return -1;
    return refuse_options(module, "its options cannot be used");
}

cnfmodule *make_module(const cnf_parser *parser, const char *name, const char *default_file,
                       const cnfnode *options) {
    owned_module module{static_cast<cnfmodule *>(std::calloc(1, sizeof(cnfmodule)))};
    if (!module) return nullptr;
    module->name = strdup(name);
    if (default_file != nullptr) module->default_file = strdup(default_file);
    if (options != nullptr) module->options = clone_cnftree(options);
    if (module->name == nullptr || (default_file != nullptr && module->default_file == nullptr) ||
        (options != nullptr && module->options == nullptr)) {
        return nullptr;
    }
    module->parser = parser;
    if (prepare(module.get()) == 0) return module.release();
    module->parser = nullptr; /* it has nothing to release */
    return nullptr;
}

/* The root of the file that a node belongs to. */
const cnfnode *root_of(const cnfnode *node) {
    while (node->parent != nullptr && !record(node)->has(k_file_root))
        node = node->parent;
    return node;
}

/* The level of the children of parent. */
int level_below(const cnfnode *root, const cnfnode *parent) {
    int level = 1;
    for (; parent != root && parent->parent != nullptr && level <= k_max_depth;
         parent = parent->parent) {
        level++;
    }
    return level;
}

/* 1 or 0 with errno as it was; 0 and ENOMEM when there is no answer. */
template <class question>
int answer(question ask) {
    int before = std::exchange(errno, 0);
    bool yes = false;
    try {
        yes = ask();
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
    }
    if (yes || errno != ENOMEM) errno = before;
    return yes ? 1 : 0;
}

bool accepts_branch(const cnfmodule *module, const cnfnode *root, const cnfnode *parent,
                    const char *path) {
    branch made;
    if (!make_branch(mutable_record(parent), path, made)) return errno != ENOMEM;
    owned<node_record, free_tree> top{made.top};
    if (root == nullptr) root = root_of(made.parent);
    int level = level_below(root, made.parent);
    const cnfnode *above = made.parent;
    for (const cnfnode *node = made.top; node != nullptr; level++) {
        if (!accepts_node(syntax{module}, level, above, node->name, node->value)) return false;
        above = node;
        /* A node with a key has that one as its first child, and the next of the path behind it. */
        const cnfnode *next = node->first_child;
        if (next != nullptr && next->value != nullptr) {
            if (!accepts_node(syntax{module}, level + 1, node, next->name, next->value)) {
                return false;
            }
            next = next->next;
        }
        node = next;
    }
    return true;
}

}  // namespace

int cnf_register_parser(const cnf_parser *parser) {
    if (!is_complete(parser)) {
        errno = EINVAL;
        return -1;
    }
    if (find_cnfmodule(parser->name) != nullptr) {
        errno = EEXIST;
        return -1;
    }
    cnfmodule *module = make_module(parser, parser->name, nullptr, nullptr);
    if (module == nullptr) return -1;
    module->next = g_modules;
    g_modules = module;
    return 0;
}

cnfmodule *find_cnfmodule(const char *name) {
    for (cnfmodule *module = g_modules; name != nullptr && module != nullptr;
         module = module->next) {
        if (std::strcmp(module->name, name) == 0) return module;
    }
    return nullptr;
}

cnfmodule *clone_cnfmodule(const cnfmodule *parser, const char *name, const char *default_file,
                           const cnfnode *options) {
    if (parser == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    try {
        return make_module(parser->parser, name != nullptr ? name : parser->name, default_file,
                           options);
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return nullptr;
    }
}

void destroy_cnfmodule(cnfmodule *module) {
    if (module == nullptr || is_registered(module)) return;
    errno_guard keep;
    if (module->parser != nullptr && module->parser->release != nullptr) {
        module->parser->release(module->data);
    }
    destroy_cnftree(module->options);
    std::free(module->default_file);
    std::free(module->name);
    std::free(module);
}

int cnfmodule_accepts(const cnfmodule *module, const cnfnode *parent, const char *name,
                      const char *value) {
    return cnfmodule_accepts_below(module, nullptr, parent, name, value);
}

int cnfmodule_accepts_below(const cnfmodule *module, const cnfnode *root, const cnfnode *parent,
                            const char *name, const char *value) {
    if (module == nullptr || name == nullptr) return 0;
    /* No parent: the root itself, which is called as one likes but holds no value of its own. */
    if (parent == nullptr) {
        bool plain = value == nullptr || *value == '\0';
        return plain || syntax{module}.whole_file() ? 1 : 0;
    }
    if (root == nullptr) root = root_of(parent);
    return answer([=] {
        return accepts_node(syntax{module}, level_below(root, parent), parent, name, value);
    });
}

int cnfmodule_accepts_branch(const cnfmodule *module, const cnfnode *root, const cnfnode *parent,
                             const char *path) {
    if (module == nullptr || parent == nullptr || path == nullptr) return 0;
    return answer([=] { return accepts_branch(module, root, parent, path); });
}

int cnfmodule_fits(const cnfmodule *module, const cnfnode *root, const cnfnode *node,
                   const char **why) {
    static std::string *const g_why = new std::string;
    if (module == nullptr || node == nullptr) return CNF_UNFIT;
    if (root == nullptr) root = root_of(node);
    try {
        errno_guard keep;
        int fitness = fitness_of(module, record(root), record(node), *g_why);
        if (why != nullptr) *why = g_why->c_str();
        return fitness;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

#include "tree/features.h"

#include <dlfcn.h>
#include <libdaemon/dlog.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstring>
#include <new>
#include <set>
#include <string>
#include <string_view>

#include "backend/registry.h"
#include "daemon/dirs.h"
#include "daemon/trace.h"
#include "fe/fe.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "llconf/path.h"
#include "tree/ccdtree_reader.h"
#include "tree/definition.h"
#include "tree/root_glob.h"
#include "ucfgd/owners.h"

/* The one file that knows both the trees and the backend: a feature module adds to each. */

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;
using registration_function = int (*)(felib_base *);

constexpr const char *k_tavconf = "tavconf";

/* All that a feature module's file may hold. */
constexpr const char *k_felib_name = "felib/name:";
constexpr const char *k_felib_library = "felib/library:";
constexpr const char *k_functions = "functions/file:";
constexpr const char *k_plugin_name = "backends/llconf/library/name:";
constexpr const char *k_plugin_library = "backends/llconf/library/library:";
constexpr const char *k_modules = "backends/llconf/file:";
constexpr const char *k_hooks = "backends/llconf/hooks/file:";
struct plug {
    const char *file;
    const char *root;
};
constexpr plug k_param{"param/file:", "param/root:"};
constexpr plug k_management{"management/file:", "management/root:"};

constexpr std::string_view k_known[] = {k_felib_name,      k_felib_library, k_functions,
                                        k_param.file,      k_param.root,    k_management.file,
                                        k_management.root, k_plugin_name,   k_plugin_library,
                                        k_modules,         k_hooks};

/* Calls visit for every file of the directory with its complete name, and finish with their number
 * and the pattern. Returns the last result that was not 0. */
template <class visitor, class at_end>
int for_each_module(const char *directory, visitor visit, at_end finish) {
    try {
        root_glob files{(std::string(directory) + "/*.conf").c_str()};
        int result = 0;
        for (size_t i = 0; i < files.count(); i++) {
            int status = visit(files.name(i));
            if (status != 0) result = status;
        }
        finish(static_cast<int>(files.count()), files.pattern());
        return result;
    } catch (const std::bad_alloc &) {
        daemon_log(LOG_ERR, "Error: Not all feature modules in '%s' are loaded: %s", directory,
                   std::strerror(ENOMEM));
        errno = ENOMEM;
        return -1;
    }
}

void log_unread(const char *file) {
    daemon_log(LOG_WARNING, "Unable to parse feature module configuration from '%s'.", file);
    log_parse_failure();
}

/* Refuses what somebody could have put in the place of the library. A bare name is looked up in the
 * system's own directories. */
bool is_trusted(const char *library) {
    if (!std::strchr(library, '/') || llconf_check_library(library) == 0) return true;
    if (errno == ENOENT) return true; /* loading it fails, and says so */
    daemon_log(LOG_ERR, "Error: Library '%s' is not loaded: others than root may change it (%s).",
               library, std::strerror(errno));
    return false;
}

int register_library(felib_base *base, const char *library, const char *name) {
    owned_str path{prefix_ucfgdconffilename(library)};
    if (!path || !is_trusted(path.get())) return -1;
    void *handle = dlopen(path.get(), RTLD_LAZY);
    if (!handle) {
        daemon_log(LOG_ERR, "dlopen(%s) failed: %s", path.get(), dlerror());
        return -1;
    }
    std::array<char, 256> symbol;
    std::snprintf(symbol.data(), symbol.size(), "felib_register_%s_funcs", name);
    dlerror();
    auto function = reinterpret_cast<registration_function>(dlsym(handle, symbol.data()));
    if (dlerror()) {
        /* The first query has taken the text, so the line ends without a reason. */
        const char *reason = dlerror();
        daemon_log(LOG_ERR, "dlsym() failed: %s", reason ? reason : "");
        return -2;
    }
    return function ? function(base) : -2;
}

/* The first pass over a file whose name is complete. */
int load_library_of(felib_base *base, const char *file) {
    cnfmodule *tavconf = find_cnfmodule(k_tavconf);
    if (!tavconf) return 1;
    const reading_file reading{file};
    owned_tree tree{cnfmodule_parse_file(tavconf, file)};
    if (!tree) {
        log_unread(file);
        return 1;
    }
    const char *name = cnf_get_entry(tree.get(), k_felib_name);
    const char *library = cnf_get_entry(tree.get(), k_felib_library);
    if (!name || !library) {
        trace(2, "Feature module '%s' does not specify an felib library.", file);
        return 1;
    }
    trace(2, "Feature module '%s' uses library '%s' with name '%s'", file, library, name);
    return register_library(base, library, name);
}

/* Reads the definition file that the module names into the tree, at the node that it names. */
void feature_plug_tree(ccdtree_node *tree, const cnfnode *module, const plug &keys,
                       fe_def *fed_list) {
    const char *file = cnf_get_entry(module, keys.file);
    if (!file) return;
    const char *root = cnf_get_entry(module, keys.root);
    bool at_top = !root || std::strcmp(root, "/") == 0;
    ccdtree_node *node = at_top ? tree : find_or_create_ccdtree_path(tree, root);
    if (node) ccdtree_readconf(node, file, fed_list);
}

/* A file with backend modules or hooks, or null after a line in the log. */
owned_tree parse_backend_file(cnfmodule *tavconf, const char *file, const owned_str &full) {
    owned_tree tree{full ? cnfmodule_parse_file(tavconf, full.get()) : nullptr};
    if (!tree) {
        daemon_log(LOG_WARNING, "Unable to parse module configuration from '%s'.", file);
        log_parse_failure();
        return nullptr;
    }
    strip_cnftree(tree.get());
    return tree;
}

/* A copy of a system (--root) brings its own plug-ins, or takes those of the machine. One that is
 * there and out of reach is no reason to take another. */
void register_plugin(const char *name, const char *library) {
    static std::set<std::string, std::less<>> loaded;
    if (!loaded.emplace(name).second) return; /* it stays, whatever is read again */
    owned_str path{prefix_ucfgdconffilename(library)};
    if (!path) {
        daemon_log(LOG_ERR, "Error: Plug-in '%s' is not loaded: %s", name, std::strerror(ENOMEM));
        return;
    }
    struct stat st {};
    bool is_missing = stat(path.get(), &st) != 0 && (errno == ENOENT || errno == ENOTDIR);
    cnfmodule_register_plugin(name, is_missing ? library : path.get(), 0);
}

void add_backends(cnfmodule *tavconf, const cnfnode *module, fe_def *fed_list) {
    const char *name = cnf_get_entry(module, k_plugin_name);
    const char *library = cnf_get_entry(module, k_plugin_library);
    if (name && library) register_plugin(name, library);
    const char *file = cnf_get_entry(module, k_modules);
    if (!file) return;
    owned_str full{prefix_ucfgdconffilename(file)};
    const reading_file reading{full.get()};
    owned_tree modules = parse_backend_file(tavconf, file, full);
    if (!modules) return;
    for (const cnfnode *entry = modules->first_child; entry; entry = entry->next) {
        if (entry->name[0] == '.' || register_llconf_cn(entry, fed_list) || errno == ENOENT)
            continue;
        const reading_entry here{entry};
        daemon_log(LOG_ERR, "Unable to register module '%s' specified in file '%s'.", entry->name,
                   full.get());
    }
}

void add_hooks(cnfmodule *tavconf, const cnfnode *module, fe_def *fed_list) {
    const char *file = cnf_get_entry(module, k_hooks);
    if (!file) return;
    owned_str full{prefix_ucfgdconffilename(file)};
    const reading_file reading{full.get()};
    owned_tree hooks = parse_backend_file(tavconf, file, full);
    if (hooks) register_llconf_hooks_cn(fed_list, hooks.get());
}

}  // namespace

int config_feature_modules_lib(felib_base *base, const char *directory) {
    return for_each_module(
        directory, [&](const char *file) { return load_library_of(base, file); },
        [](int count, const char *pattern) {
            if (count > 0) {
                trace(2, "Found %i feature module(s) in '%s'.", count, pattern);
            } else {
                trace(2, "No feature modules to load from '%s'.", pattern);
            }
        });
}

int config_feature_module_lib(felib_base *base, const char *file) {
    owned_str full{prefix_ucfgdconffilename(file)};
    return full ? load_library_of(base, full.get()) : 1;
}

int config_feature_modules(ccdtree_node *param_root, ccdtree_node *mgmt_root, felib_base *base,
                           const char *directory, int with_backends) {
    return for_each_module(
        directory,
        [&](const char *file) {
            return config_feature_module(param_root, mgmt_root, base, file, with_backends);
        },
        [](int count, const char *pattern) {
            const std::string place{pattern, strrchr(pattern, '/')};
            if (count == 0 && access(place.c_str(), F_OK) != 0)
                daemon_log(LOG_ERR, "Error: No feature modules are loaded: %s: %s", place.c_str(),
                           std::strerror(errno));
        });
}

int config_feature_module(ccdtree_node *param_root, ccdtree_node *mgmt_root, felib_base *base,
                          const char *file, int with_backends) {
    cnfmodule *tavconf = find_cnfmodule(k_tavconf);
    if (!tavconf) return -1;
    const reading_file reading{file};
    owned_tree module{cnfmodule_parse_file(tavconf, file)};
    if (!module) {
        /* Everything else the first pass has said. */
        if (errno == ENOMEM) log_unread(file);
        return -1;
    }
    complain_of_unknown_paths(module.get(), k_known);
    const char *functions = cnf_get_entry(module.get(), k_functions);
    if (functions) ccdtree_readconf_functions(functions, base->fed_list);
    feature_plug_tree(param_root, module.get(), k_param, base->fed_list);
    feature_plug_tree(mgmt_root, module.get(), k_management, base->fed_list);
    if (with_backends) add_backends(tavconf, module.get(), base->fed_list);
    add_hooks(tavconf, module.get(), base->fed_list);
    return 0;
}

#include <libdaemon/dlog.h>
#include <sys/stat.h>
#include <syslog.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "daemon/dirs.h"
#include "daemon/trace.h"
#include "fe/fe.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "tree/ccdtree_reader.h"
#include "tree/definition.h"
#include "tree/root_glob.h"
#include "ucfgd/owners.h"

namespace {

/* Bounds for files that include each other (a directory whose files all include it would be read in
 * every order there is) or multiply with "a|b" inside "a|b". No definition for people comes near
 * them. */
constexpr size_t k_max_include_depth = 20;
constexpr size_t k_max_included_files = 10'000;
constexpr size_t k_max_entries = 1'000'000;

struct file_identity {
    dev_t device;
    ino_t inode;
    bool operator==(const file_identity &) const = default;
};

/* The files that are being read, outermost first, and what they came to so far. */
struct reading {
    std::vector<file_identity> files;
    size_t included = 0;
    size_t entries = 0;
};
reading g_reading;

/* A file's place among those, taken back when the file is done. */
class file_in_progress {
  public:
    explicit file_in_progress(const char *name) {
        struct stat st = {};
        bool exists = stat(name, &st) == 0;
        file_identity identity{st.st_dev, st.st_ino};
        circular_ = exists && std::ranges::find(g_reading.files, identity) != g_reading.files.end();
        g_reading.files.push_back(identity);
    }
    file_in_progress(const file_in_progress &) = delete;
    file_in_progress &operator=(const file_in_progress &) = delete;
    ~file_in_progress() {
        g_reading.files.pop_back();
        if (g_reading.files.empty()) g_reading.included = g_reading.entries = 0;
    }
    bool circular() const { return circular_; }
    bool too_deep() const { return g_reading.files.size() > k_max_include_depth; }

  private:
    bool circular_;
};

/* False from the one on that is one too many; said once. */
bool count_up_to(size_t most, size_t &count, const char *what) {
    if (count > most) return false;
    if (++count <= most) return true;
    daemon_log(LOG_ERR, "Error: The tree has more than %zu %s. The others are ignored.", most,
               what);
    return false;
}

bool count_entry() {
    return count_up_to(k_max_entries, g_reading.entries, "entries");
}

bool count_include() {
    return count_up_to(k_max_included_files, g_reading.included, "included files");
}

/* Where a file's entries come from. */
struct definition_source {
    fe_def *fed_list;
    const char *dir; /* of the file's name as it was given */
};

void include_files(ccdtree_node *target, const char *value, const definition_source &source) {
    std::array<char, 256> pattern;
    std::snprintf(pattern.data(), pattern.size(), "%s/%s", source.dir, value);
    root_glob files{pattern.data()};
    if (g_only_checking && files.count() == 0 && !std::strpbrk(value, "*?["))
        complain(LOG_WARNING, "Warning: there is no file '%s'", files.pattern());
    for (size_t i = 0; i < files.count() && count_include(); i++) {
        ccdtree_readconf(target, files.given(i), source.fed_list);
    }
}

void ccdtree_parse_tree_cn(ccdtree_node *current, const cnfnode *cn, const char *node_name,
                           const definition_source &source);

/* The entry defines the same subtree under each of the names between the "|"s. */
void parse_under_each_name(ccdtree_node *target, const cnfnode *entry,
                           const definition_source &source) {
    std::string_view rest = entry->name;
    for (;;) {
        size_t end = rest.find('|');
        std::string name{rest.substr(0, end)};
        ccdtree_parse_tree_cn(target, entry, name.c_str(), source);
        if (end == std::string_view::npos || end + 1 == rest.size()) return;
        rest.remove_prefix(end + 1);
    }
}

bool is_key(std::string_view name) {
    return name.ends_with(':');
}

/* The node that an entry of that name is about, made where it is missing; null when it was an order
 * to remove one. */
ccdtree_node *target_of(ccdtree_node *current, const cnfnode *cn, const char *node_name) {
    if (node_name[0] == '~' && !cn->first_child) {
        destroy_ccdtree(find_ccdtree_child(current, node_name + 1));
        return nullptr;
    }
    ccdtree_node *target = find_or_create_ccdtree_child(current, node_name);
    if (!target) throw std::bad_alloc{};
    return target;
}

/* Applies a section of a file to the child of that name, or to the current node itself when there
 * is no name. */
void ccdtree_parse_tree_cn(ccdtree_node *current, const cnfnode *cn, const char *node_name,
                           const definition_source &source) {
    trace(4, "%s, node_name=%s\n", __func__, node_name ? node_name : "");
    ccdtree_node *target = node_name ? target_of(current, cn, node_name) : current;
    if (!target) return;
    method_tails tails;
    for (const cnfnode *entry = cn->first_child; entry; entry = entry->next) {
        if (!count_entry()) return;
        const reading_entry here{entry};
        if (std::strcmp(entry->name, "include:") == 0) {
            include_files(target, entry->value ? entry->value : "", source);
            tails = {};
        } else if (is_key(entry->name)) {
            ccdtree_parse_tree_func(target, entry, source.fed_list, &tails);
        } else {
            parse_under_each_name(target, entry, source);
        }
    }
}

std::string directory_of(const char *filename) {
    std::string_view name = filename;
    while (name.size() > 1 && name.ends_with('/')) {
        name.remove_suffix(1);
    }
    size_t slash = name.rfind('/');
    if (slash == std::string_view::npos) return ".";
    size_t end = name.find_last_not_of('/', slash);
    return end == std::string_view::npos ? "/" : std::string{name.substr(0, end + 1)};
}

cnfmodule *find_tavconf() {
    cnfmodule *module = find_cnfmodule("tavconf");
    if (!module) daemon_log(LOG_ERR, "Error: Unable to find module tavconf");
    return module;
}

using owned_tree = owned<cnfnode, destroy_cnftree>;

/* Reads one file whose name is complete; the message is for a file that cannot be read. */
owned_tree parse_stripped(const cnfmodule *module, const char *full, const char *message) {
    owned_tree tree{cnfmodule_parse_file(module, full)};
    if (tree) {
        strip_cnftree(tree.get());
    } else {
        daemon_log(LOG_ERR, message, full, std::strerror(errno));
        log_parse_failure();
    }
    return tree;
}

void read_definitions(ccdtree_node *root, const char *filename, fe_def *fed_list) {
    cnfmodule *module = find_tavconf();
    if (!module) return;
    owned_str full{prefix_ucfgdconffilename(filename)};
    if (!full) throw std::bad_alloc{};
    trace(4, "%s, path=%s\n", __func__, full.get());
    const reading_file reading{full.get()};
    file_in_progress place{full.get()};
    if (place.circular()) {
        daemon_log(LOG_ERR, "Error: File '%s' is being read already and is not included again.",
                   full.get());
        return;
    }
    if (place.too_deep()) {
        daemon_log(LOG_ERR, "Error: File '%s' is not included: more than %zu files deep.",
                   full.get(), k_max_include_depth);
        return;
    }
    owned_tree tree = parse_stripped(module, full.get(),
                                     "Error: Unable to parse parameter tree from file '%s': %s");
    if (!tree) return;
    std::string dir = directory_of(filename);
    ccdtree_parse_tree_cn(root, tree.get(), nullptr, {fed_list, dir.c_str()});
}

}  // namespace

void log_parse_failure(void) {
    daemon_log(LOG_ERR, "%s", cnf_error_text());
}

void ccdtree_readconf(ccdtree_node *root, const char *filename, fe_def *fed_list) {
    try {
        read_definitions(root, filename, fed_list);
    } catch (const std::bad_alloc &) {
        daemon_log(LOG_ERR, "Error: Unable to parse parameter tree from file '%s': %s", filename,
                   std::strerror(ENOMEM));
    }
}

int ccdtree_readconf_functions(const char *filename, fe_def *fed_list) {
    cnfmodule *module = find_tavconf();
    if (!module) return -1;
    owned_str full{prefix_ucfgdconffilename(filename)};
    if (!full) return -1;
    const reading_file reading{full.get()};
    owned_tree tree = parse_stripped(module, full.get(),
                                     "Error: Unable to parse functions list from file '%s': %s");
    if (!tree) return -1;
    felib_parse_functions_cn(tree.get(), fed_list);
    return 0;
}

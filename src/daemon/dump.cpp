#include "daemon/dump.h"

#include <errno.h>
#include <libdaemon/daemon.h>
#include <syslog.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <memory>

#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "tree/ccdtree.h"
#include "ucfgd/owners.h"

namespace {

struct tree_dump {
    const char *format; /* of the file's name, given the directory */
    const char *notice; /* given the working directory and the file's name */
    ccdtree_node *const *tree;
};

constexpr tree_dump k_dumps[] = {
    {"%s/parameter_tree.py", "Writing parameter tree to %s/%s\n", &g_ccdtree},
    {"%s/management_tree.py", "Writing management tree to %s/%s\n", &g_mgmttree},
};

/* -1 with errno. */
int write_tree(const cnfmodule *python, const char *filename, const ccdtree_node *tree) {
    owned<cnfnode, destroy_cnftree> root{create_cnfnode("(root)")};
    if (!root) return -1;
    FILE *file = fopen(filename, "we");
    if (!file) return -1;
    dump_ccdtree(root.get(), tree);
    int written = cnfmodule_unparse(python, file, root.get());
    int failure = errno;
    int closed = fclose(file);
    if (written != 0) errno = failure;
    return written != 0 || closed != 0 ? -1 : 0;
}

}  // namespace

int dump_trees(const char *directory) {
    const cnfmodule *python = find_cnfmodule("python");
    if (!python) {
        daemon_log(LOG_ERR, "Error: no parser writes tree dumps");
        return -1;
    }
    owned_str working_directory{getcwd(nullptr, 0)};
    int result = 0;
    for (const tree_dump &dump : k_dumps) {
        char *name = nullptr;
        if (asprintf(&name, dump.format, directory) < 0) return -1;
        owned_str filename{name};
        fprintf(stderr, dump.notice, working_directory ? working_directory.get() : ".", name);
        if (write_tree(python, name, *dump.tree) == 0) continue;
        daemon_log(LOG_ERR, "Error: %s: %s", name, strerror(errno));
        result = -1;
    }
    return result;
}

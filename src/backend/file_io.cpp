/* Reading the sources of module instances. */

#include "backend/file_io.h"

#include <errno.h>
#include <glob.h>
#include <libdaemon/dlog.h>
#include <signal.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "backend/contexts.h"
#include "backend/files.h"
#include "backend/items.h"
#include "backend/ll_trns.h"
#include "daemon/dirs.h"
#include "daemon/trace.h"
#include "fe/fe.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "ucfgd/lines.h"
#include "ucfgd/owners.h"

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

void log_parse_failure(const char *what, int reason) {
    daemon_log(LOG_WARNING, "parsing %s failed: %s\n", what, std::strerror(reason));
    daemon_log(LOG_ERR, "%s", cnf_error_text());
}

/* One file of a directory instance, as a subtree named name; null when it does not parse. */
owned_tree parse_member(const llconf_item *lli, const char *path, const char *name) {
    owned_tree tree{cnfmodule_parse_file(lli->module, path)};
    if (!tree) {
        log_parse_failure(path, errno);
    } else if (cnfnode_setname(tree.get(), name) != 0) {
        daemon_log(LOG_WARNING, "parsing %s failed: %s\n", path, std::strerror(errno));
        tree.reset();
    }
    return tree;
}

/* Appends every match of a directory instance to root; those that do not parse are remembered, so
 * that commit leaves them alone. */
void parse_members(const llconf_item *lli, const char *dirpath, const directory_glob &matches,
                   cnfnode *root) {
    list_builder<line> unparsed;
    for (const char *path : matches.paths()) {
        const char *name = name_below(dirpath, path);
        if (!name || is_temporary_name(name)) continue;
        owned_tree tree = parse_member(lli, path, name);
        if (tree && append_node(root, tree.get()) == 0) {
            static_cast<void>(tree.release());
        } else if (line *cell = create_line(name)) {
            unparsed.append(cell);
        }
    }
    if (!lli->file) {
        destroy_line_list(unparsed.release());
        return;
    }
    destroy_line_list(std::exchange(lli->file->unparsed, unparsed.release()));
    lli->file->incomplete = matches.complete() ? 0 : 1;
    if (lli->file->incomplete) {
        daemon_log(LOG_ERR, "module '%s': the directory %s cannot be listed whole, not writing it",
                   lli->name, dirpath);
    }
}

void record_file(const llconf_item *lli, const char *path) {
    struct stat st {};
    if (!lli->file || stat(path, &st) != 0) return;
    lli->file->st_ino = st.st_ino;
    lli->file->mtime = st.st_mtime;
}

/* Replaces the tree and marks the item clean. A null tree is a failure. */
int install_clean(llconf_item *lli, cnfnode *tree) {
    if (!tree) {
        if (lli->read_state == k_read_never) lli->read_state = k_read_failed;
        return -1;
    }
    llconf_install_cnftree(lli, tree);
    lli->is_dirty = 0;
    lli->read_state = k_read_done;
    return 0;
}

/* Whether a commit has ended since the item's source was looked at last. Its child wrote the source
 * without this process seeing it: perhaps after another session's revert had read the old one, or
 * from a hook. */
bool commit_has_ended(const llconf_item *lli) {
    return lli->read_serial != llconf_trns_ctx_serial();
}

bool has_current_tree(const llconf_item *lli) {
    return lli->cn_root && !lli->is_dirty && !(lli->flags & LLI_FLAG_ALWAYS_REVERT);
}

/* Files that commits write follow each other within one second, so that after a commit the inode
 * alone counts. */
bool is_unchanged(const llconf_item *lli, const struct stat &st) {
    if (!has_current_tree(lli)) return false;
    if (st.st_ino == lli->file->st_ino) return true;
    return st.st_mtime == lli->file->mtime && !commit_has_ended(lli);
}

/* A file that is there, but out of reach at the moment, is not missing: an empty tree in its place
 * would be written over it. */
int revert_missing_file(llconf_item *lli, const char *path) {
    if (errno != ENOENT && errno != ENOTDIR) {
        daemon_log(LOG_ERR, "stat('%s') failed: %s", path, std::strerror(errno));
        return install_clean(lli, nullptr);
    }
    if (!(lli->flags & LLI_FLAG_CREATE)) return install_clean(lli, nullptr);
    if (lli->cn_root && !lli->is_dirty) return 0;
    return install_clean(lli, create_cnfnode("(root)"));
}

int revert_file(llconf_item *lli) {
    owned_str path{prefix_llfilename(lli->file->filename)};
    if (!path) return -1;
    struct stat before {};
    if (stat(path.get(), &before) != 0) return revert_missing_file(lli, path.get());
    if (is_unchanged(lli, before)) return 0;
    cnfnode *tree = lli->pattern ? llconf_parse_file_pattern(lli, path.get(), lli->pattern)
                                 : llconf_parse_file(lli, path.get());
    if (install_clean(lli, tree) != 0) return -1;
    struct stat after {};
    if (stat(path.get(), &after) == 0 && after.st_ino != before.st_ino) lli->is_dirty = 1;
    return 0;
}

/* With "create", a command that says that it has nothing has an empty source. One that failed in
 * another way may have a full one, that must not be replaced. */
int revert_command(llconf_item *lli) {
    if (has_current_tree(lli) && !(lli->in_commit && commit_has_ended(lli))) return 0;
    cnfnode *tree = llconf_parse_pipe_in(lli, lli->pipe_in);
    if (tree || !(lli->flags & LLI_FLAG_CREATE)) return install_clean(lli, tree);
    const bool missing = errno == ENOENT;
    const int result = install_clean(lli, create_cnfnode("(root)"));
    if (!missing) lli->read_state = k_read_failed;
    return result;
}

int revert_virtual(llconf_item *lli) {
    if (lli->cn_root && !lli->is_dirty) return 0;
    run_hook(lli, &llconf_item::func_pre_read);
    if (install_clean(lli, create_cnfnode("(root)")) != 0) return -1;
    run_hook(lli, &llconf_item::func_post_read);
    return 0;
}

int revert_source(llconf_item *lli) {
    if (lli->file) return revert_file(lli);
    if (lli->pipe_in) return revert_command(lli);
    return revert_virtual(lli);
}

/* A deletion that a commit's child has carried out ends the item here, where the child's memory is
 * not seen. One that left its file behind has failed, and is forgotten. */
bool release_if_deleted(llconf_item *lli) {
    if (!lli->delete_me) return false;
    if (lli->file) {
        owned_str path{prefix_llfilename(lli->file->filename)};
        struct stat st {};
        if (path && (lstat(path.get(), &st) == 0 || errno != ENOENT)) {
            if (!lli->in_commit || commit_has_ended(lli)) lli->delete_me = 0;
            return false;
        }
    }
    return ll_contexts_release(lli) != 0;
}

}  // namespace

char *prefix_llfilename(const char *name) {
    if (!g_filesprefix) return dup_str(name).release();
    char *path = nullptr;
    return asprintf(&path, "%s/%s", g_filesprefix, name) < 0 ? nullptr : path;
}

int hook_function(fe_node *list) {
    owned<fe_context, destroy_fe_context> ctx{create_fe_context(g_trns_fe_context, g_trns_ctx)};
    if (!ctx) return -1;
    owned<fe_node, destroy_fe_node_list> result{eval_fe_expr_list(ctx.get(), list)};
    return result ? 0 : -1;
}

void run_hook(llconf_item *lli, hook_list which) {
    if (!(lli->*which)) return;
    errno_guard keep;
    fe_node *running = std::exchange(lli->*which, nullptr);
    hook_function(running);
    if (lli->*which) {
        destroy_fe_node_list(running);
    } else {
        lli->*which = running;
    }
}

cnfnode *llconf_parse_file(llconf_item *lli, const char *path) {
    run_hook(lli, &llconf_item::func_pre_read);
    cnfnode *tree = cnfmodule_parse_file(lli->module, path);
    int reason = tree ? 0 : errno;
    if (tree) {
        run_hook(lli, &llconf_item::func_post_read);
    } else {
        log_parse_failure(path, reason);
    }
    record_file(lli, path);
    errno = reason;
    return tree;
}

cnfnode *llconf_parse_file_pattern(llconf_item *lli, const char *dirpath, const char *pattern) {
    run_hook(lli, &llconf_item::func_pre_read);
    owned_tree root{create_cnfnode("(root)")};
    if (!root) return nullptr;
    directory_glob matches(dirpath, pattern);
    parse_members(lli, dirpath, matches, root.get());
    run_hook(lli, &llconf_item::func_post_read);
    return root.release();
}

int llconf_revert_cnftree(llconf_item *lli) {
    if (!lli) return 0;
    trace(3, "%s: %s\n", __func__, lli->name);
    destroy_cnftree(std::exchange(lli->replaced, nullptr));
    if (revert_source(lli) != 0) return -1;
    if (commit_has_ended(lli)) lli->in_commit = 0;
    lli->read_serial = llconf_trns_ctx_serial();
    return 0;
}

int llconf_revert_all_cnftrees(llconf_item *list) {
    int result = 0;
    int reason = 0;
    for (llconf_item *lli : removal_safe(list)) {
        if (release_if_deleted(lli)) continue;
        errno = 0;
        int status = llconf_revert_cnftree(lli);
        if (status == 0) continue;
        result = status;
        reason = errno;
    }
    errno = reason;
    return result;
}

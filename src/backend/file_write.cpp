/* Writing the trees of module instances back to their sources. */

#include <errno.h>
#include <libdaemon/dlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <set>
#include <string>
#include <string_view>

#include "backend/contexts.h"
#include "backend/file_io.h"
#include "backend/files.h"
#include "backend/items.h"
#include "daemon/trace.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "ucfgd/lines.h"
#include "ucfgd/owners.h"
#include "ucfgd/uptime.h"

namespace {

/* The result of a write that has several parts: the last failure and its errno. */
struct outcome {
    int result = 0;
    int reason = 0;

    void add(int status) {
        if (status == 0) return;
        result = status;
        reason = errno != 0 ? errno : EIO;
    }
};

using name_set = std::set<std::string_view>;

name_set unparsed_names(const llconf_item *lli) {
    name_set names;
    for (const line *l = lli->file->unparsed; l; l = l->next)
        names.insert(l->line);
    return names;
}

int refuse_member(const char *directory, const char *name, int reason) {
    daemon_log(LOG_ERR, "writing to %s/%s failed: %s", directory, name, std::strerror(reason));
    errno = reason;
    return -1;
}

/* Removes the matches that are no file of the tree any more. */
void unlink_others(const llconf_item *lli, const char *directory, const name_set &unparsed) {
    directory_glob matches(directory, lli->pattern);
    if (!matches.complete()) return;
    for (const char *path : matches.paths()) {
        const char *name = name_below(directory, path);
        if (!name || unparsed.contains(name)) continue;
        if (!find_node(lli->cn_root->first_child, name)) unlink(path);
    }
}

int write_directory(llconf_item *lli) {
    const char *directory = lli->file->filename;
    if (lli->file->incomplete) return refuse_member(directory, lli->pattern, ENAMETOOLONG);
    name_set unparsed = unparsed_names(lli);
    outcome all;
    for (cnfnode *file = lli->cn_root->first_child; file; file = file->next) {
        if (!is_name_below(file->name)) {
            all.add(refuse_member(directory, file->name, EINVAL));
        } else if (unparsed.contains(file->name)) {
            all.add(refuse_member(directory, file->name, EEXIST));
        } else {
            std::string filename = std::string(directory) + "/" + file->name;
            all.add(llconf_write_cnftree_file(lli, filename.c_str(), file));
        }
    }
    owned_str prefixed{prefix_llfilename(directory)};
    if (prefixed) unlink_others(lli, prefixed.get(), unparsed);
    errno = all.reason;
    return all.result;
}

int write_marked_directory(llconf_item *lli) {
    if (!lli->cn_root) return 0;
    int result = write_directory(lli);
    lli->is_dirty = 0;
    lli->file->last_write = get_uptime();
    return result;
}

int write_file(llconf_item *lli) {
    int result = llconf_write_cnftree_file(lli, lli->file->filename, lli->cn_root);
    lli->is_dirty = 0;
    lli->file->last_write = get_uptime();
    return result;
}

int delete_file(const llconf_item *lli) {
    if (!lli->file) return 0;
    owned_str path{prefix_llfilename(lli->file->filename)};
    if (!path) return -1;
    daemon_log(LOG_NOTICE, "deleting file %s", path.get());
    if (unlink(path.get()) == 0) return 0;
    int reason = errno;
    daemon_log(LOG_ERR, "unlink('%s') failed: %s", path.get(), std::strerror(reason));
    errno = reason;
    return reason == ENOENT ? 0 : -1;
}

/* Whether the source is there, perhaps since a moment ago, but could never be read: then the tree
 * lacks what it holds. */
bool is_unread(const llconf_item *lli) {
    if (lli->read_state != k_read_failed) return false;
    if (!lli->file) return true;
    owned_str path{prefix_llfilename(lli->file->filename)};
    struct stat st {};
    return !path || lstat(path.get(), &st) == 0 || errno != ENOENT;
}

/* Leaves an unread source as it is. That is a failure when there are edits that get lost. */
int keep_unread(const llconf_item *lli) {
    const char *source = lli->file ? lli->file->filename : lli->pipe_out;
    if (lli->cn_root && lli->cn_root->first_child) {
        daemon_log(LOG_ERR, "writing to %s failed: its present contents have not been read",
                   source);
        errno = EINVAL;
        return -1;
    }
    daemon_log(LOG_WARNING, "module '%s': %s has not been read, not writing it", lli->name, source);
    return 0;
}

int write_source(llconf_item *lli) {
    if (lli->flags & LLI_FLAG_READONLY) {
        lli->is_dirty = 0;
        return 0;
    }
    if (lli->delete_me) return delete_file(lli);
    if (is_unread(lli)) return keep_unread(lli);
    if (lli->file) return lli->pattern ? write_marked_directory(lli) : write_file(lli);
    if (lli->pipe_out) return llconf_write_pipe_out(lli); /* the mark stays */
    return 0;
}

}  // namespace

int llconf_write_cnftree_file(llconf_item *lli, const char *filename, cnfnode *tree) {
    owned_str path{prefix_llfilename(filename)};
    if (!path) return -1;
    const llconf_file *file = lli->file;
    file_attributes attributes =
        file ? file_attributes{file->mode, file->uid, file->gid} : file_attributes{-1, -1, -1};
    try {
        if (replace_file(lli->module, path.get(), tree, attributes) != 0) return -1;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
    struct stat st {};
    if (lli->file && stat(path.get(), &st) == 0) lli->file->mtime = st.st_mtime;
    return 0;
}

int llconf_write_cnftree(llconf_item *lli) {
    if (!lli || !lli->is_dirty) {
        if (lli) trace(0, "data for module %s have not changed, not writing\n", lli->name);
        return 0;
    }
    if (g_debug_level > 4) dump_nodes(lli->cn_root, 0);
    run_hook(lli, &llconf_item::func_pre_commit);
    outcome written;
    try {
        written.add(write_source(lli));
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        written.add(-1);
    }
    run_hook(lli, &llconf_item::func_post_commit);
    errno = written.reason;
    return written.result;
}

int llconf_write_all_cnftrees(llconf_item *list) {
    outcome all;
    for (llconf_item *lli = list; lli; lli = lli->next)
        all.add(llconf_write_cnftree(lli));
    for (llconf_item *lli : removal_safe(list)) {
        if (lli->delete_me) ll_contexts_release(lli);
    }
    errno = all.reason;
    return all.result;
}

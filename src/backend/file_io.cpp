/* Reading the sources of module instances. */

#include "backend/file_io.h"

#include <errno.h>
#include <libdaemon/dlog.h>
#include <signal.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "backend/command_source.h"
#include "backend/contexts.h"
#include "backend/files.h"
#include "backend/items.h"
#include "backend/ll_trns.h"
#include "backend/prepared.h"
#include "daemon/dirs.h"
#include "daemon/place.h"
#include "daemon/trace.h"
#include "fe/fe.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "tree/definition.h"
#include "ucfgd/owners.h"

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

void record_file(item_record *item, const file_identity &looked) {
    item->looked = looked;
    if (!item->file) return;
    item->file->st_ino = looked.inode;
    item->file->mtime = looked.modified.tv_sec;
}

int accept_clean(item_record *item) {
    item->is_dirty = 0;
    item->archived.reset();
    item_enter(item, tree_event::looked);
    return 0;
}

/* What has been read becomes the item's tree, which is clean then. */
int accept_tree(item_record *item, cnfnode *tree) {
    llconf_install_cnftree(item, tree);
    return accept_clean(item);
}

/* The item keeps its tree; but edits whose commit is over are not taken for what a source holds
 * that nobody can look at. Keeps errno. */
int refuse_tree(item_record *item) {
    errno_guard keep;
    bool has_edits = item_commit_open(item) && item->is_dirty;
    item_enter(item, tree_event::failed);
    if (has_edits && item->state == tree_state::unread) item_put_back(item);
    return -1;
}

/* The edits have become what the source holds. */
int accept_written_tree(item_record *item, const struct stat &st) {
    record_file(item, identity_of(st));
    item_drop_replaced(item);
    return accept_clean(item);
}

int install_clean(item_record *item, cnfnode *tree) {
    return tree ? accept_tree(item, tree) : refuse_tree(item);
}

/* The tree is still that of the source, if it ever was. */
int leave_alone(item_record *item) {
    if (item->state != tree_state::unread) item_enter(item, tree_event::looked);
    return 0;
}

bool has_current_tree(const item_record *item) {
    return item->cn_root && !item->is_dirty && !(item->flags & LLI_FLAG_ALWAYS_REVERT);
}

/* Reading the same file again changes nothing, unless hooks do something about it. */
bool is_same_again(const item_record *item, const char *path, const file_identity &there) {
    if (!item->cn_root || item->is_dirty || item->func_pre_read || item->func_post_read)
        return false;
    if (item->state != tree_state::read && item->state != tree_state::overtaken) return false;
    if (item->pattern) return item->record && same_members(path, item->pattern, *item->record);
    return item->seen && item->seen->is_still(there);
}

/* Without always-revert a file that is edited in place is not seen. After a commit the inode alone
 * counts. What could not be read is tried again as soon as anything about it is new. */
bool is_unchanged(const item_record *item, const char *path, const struct stat &st) {
    const file_identity there = identity_of(st);
    if (is_same_again(item, path, there)) return true;
    if (!has_current_tree(item)) return false;
    const bool same_inode = st.st_ino == item->looked.inode;
    const bool same_mtime = same_time(there.modified, item->looked.modified);
    if (item->state == tree_state::unread) return same_inode && same_mtime;
    return same_inode || (same_mtime && !item_commit_ended(item));
}

/* From here on sessions know that the file is gone, and a commit may make it anew. Keeps errno. */
void note_missing(item_record *item) {
    errno_guard keep;
    try {
        item->seen = std::make_shared<const seen_file>();
    } catch (const std::bad_alloc &) {
        return; /* a commit is refused then */
    }
}

/* A file that is there, but out of reach at the moment, is not missing: an empty tree in its place
 * would be written over it. */
int revert_missing_file(item_record *item, const char *path) {
    int reason = errno;
    bool is_missing = reason == ENOENT || reason == ENOTDIR;
    if (!is_missing) daemon_log(LOG_ERR, "stat('%s') failed: %s", path, std::strerror(reason));
    if (!is_missing || !(item->flags & LLI_FLAG_CREATE)) {
        errno = reason;
        refuse_tree(item);
        item->looked = {}; /* the file that was read last may be the one that comes back */
        if (is_missing && !item->is_dirty) note_missing(item);
        return -1;
    }
    const bool keeps_tree = (item->flags & LLI_FLAG_ALWAYS_REVERT) == 0 && item->cn_root;
    if (keeps_tree && !item->is_dirty) {
        note_missing(item);
        return leave_alone(item);
    }
    const int result = install_clean(item, create_cnfnode("(root)"));
    if (result == 0) note_missing(item);
    return result;
}

int revert_file(item_record *item) {
    owned_str path{prefix_llfilename(item->file->filename)};
    if (!path) return -1;
    file_look there;
    if (look_at(path.get(), there) != 0) return revert_missing_file(item, path.get());
    const struct stat &before = there.st;
    if (is_unchanged(item, path.get(), before)) return leave_alone(item);
    if (adopt_written_tree(item, there)) return accept_written_tree(item, before);
    cnfnode *tree = item->pattern ? llconf_parse_file_pattern(item, path.get(), item->pattern)
                                  : llconf_parse_file(item, path.get());
    if (install_clean(item, tree) != 0) return -1;
    struct stat after {};
    if (place_stat(path.get(), &after) == 0 && after.st_ino != before.st_ino) item->is_dirty = 1;
    return 0;
}

/* With "create", a command that says that it has nothing has an empty source. One that failed in
 * another way may have a full one, that must not be replaced. */
int revert_command(item_record *item) {
    bool is_over = item_commit_open(item) && item_commit_ended(item);
    if (has_current_tree(item) && !is_over && item->state != tree_state::unread)
        return leave_alone(item);
    cnfnode *tree = llconf_parse_pipe_in(item, item->pipe_in);
    if (tree || !(item->flags & LLI_FLAG_CREATE)) return install_clean(item, tree);
    const bool missing = errno == ENOENT;
    const int result = install_clean(item, create_cnfnode("(root)"));
    if (!missing) item_enter(item, tree_event::failed);
    return result;
}

int revert_virtual(item_record *item) {
    if (item->cn_root && !item->is_dirty) return leave_alone(item);
    run_hook(item, &llconf_item::func_pre_read);
    if (install_clean(item, create_cnfnode("(root)")) != 0) return -1;
    run_hook(item, &llconf_item::func_post_read);
    return 0;
}

int revert_source(item_record *item) {
    if (item->file) return revert_file(item);
    if (item->source) return command_source_revert(item);
    if (item->pipe_in) return revert_command(item);
    return revert_virtual(item);
}

/* A deletion that a commit's child has carried out ends the item here, where the child's memory is
 * not seen. One that left its file behind has failed, and is forgotten. */
bool release_if_deleted(llconf_item *lli) {
    if (!lli->delete_me) return false;
    if (lli->file) {
        owned_str path{prefix_llfilename(lli->file->filename)};
        struct stat st {};
        if (path && (place_lstat(path.get(), &st) == 0 || errno != ENOENT)) {
            const item_record *item = record_of(lli);
            if (!item_commit_open(item) || item_commit_ended(item)) lli->delete_me = 0;
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
    if (!(lli->*which) || g_only_checking) return;
    errno_guard keep;
    doubt_prepared_texts();
    fe_node *running = std::exchange(lli->*which, nullptr);
    hook_function(running);
    if (lli->*which) {
        destroy_fe_node_list(running);
    } else {
        lli->*which = running;
    }
}

cnfnode *llconf_parse_file(llconf_item *lli, const char *path) {
    item_record *item = record_of(lli);
    file_look look;
    run_hook(lli, &llconf_item::func_pre_read);
    owned_tree tree{read_file(lli->module, path, look)};
    int reason = tree ? 0 : errno;
    /* What is wrong with the contents stays wrong; everything else may pass. */
    record_file(item, reason == 0 || reason == EINVAL ? identity_of(look.st) : file_identity{});
    try {
        if (tree)
            item->parsed = {tree.get(), nullptr,
                            std::make_shared<const seen_file>(seen_in(look, tree.get()))};
    } catch (const std::bad_alloc &) {
        tree.reset();
        reason = ENOMEM;
    }
    if (tree) run_hook(lli, &llconf_item::func_post_read);
    errno = reason;
    return tree.release();
}

cnfnode *llconf_parse_file_pattern(llconf_item *lli, const char *dirpath, const char *pattern) {
    run_hook(lli, &llconf_item::func_pre_read);
    owned_tree root;
    shared_record record;
    const int reason = read_directory(record_of(lli), dirpath, pattern, root, record);
    if (reason != 0) {
        daemon_log(LOG_WARNING, "parsing %s failed: %s\n", dirpath, std::strerror(reason));
        errno = reason;
        return nullptr;
    }
    if (record->blocked != 0) {
        daemon_log(LOG_ERR, "module '%s': the directory %s cannot be listed whole, not writing it",
                   lli->name, dirpath);
    }
    record_of(lli)->parsed = {root.get(), std::move(record), nullptr};
    run_hook(lli, &llconf_item::func_post_read);
    return root.release();
}

int llconf_revert_cnftree(llconf_item *lli) {
    if (!lli) return 0;
    trace(3, "%s: %s\n", __func__, lli->name);
    item_record *item = record_of(lli);
    int result = revert_source(item);
    if (result == 0 || !item_commit_open(item)) item->serial = llconf_trns_ctx_serial();
    return result;
}

void item_retry_unread(llconf_item *lli) {
    if (!lli || lli->cn_root || !lli->item_orig) return;
    errno_guard keep;
    while (lli->item_orig && !lli->cn_root)
        lli = lli->item_orig;
    if (lli->item_orig || !lli->file || record_of(lli)->state != tree_state::unread) return;
    bool has_edits = lli->is_dirty && lli->cn_root && lli->cn_root->first_child;
    if (!has_edits) llconf_revert_cnftree(lli);
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

/* Writing the trees of module instances back to their sources. */

#include "backend/file_write.h"

#include <errno.h>
#include <libdaemon/dlog.h>
#include <sys/stat.h>

#include <cstring>
#include <new>
#include <utility>
#include <vector>

#include "archive/archive.h"
#include "backend/contexts.h"
#include "backend/file_io.h"
#include "backend/files.h"
#include "backend/items.h"
#include "backend/others.h"
#include "backend/whole_commit.h"
#include "daemon/place.h"
#include "daemon/trace.h"
#include "fe/fe.h"
#include "llconf/nodes.h"
#include "tree/param_error.h"
#include "ucfgd/owners.h"
#include "ucfgd/uptime.h"

namespace {

file_attributes attributes_of(const llconf_file *file) {
    return file ? file_attributes{file->mode, file->uid, file->gid} : file_attributes{};
}

int write_members(item_record *item) {
    if (!item->cn_root) return 0;
    int reason = write_directory(item, item->record);
    item->is_dirty = 0;
    item->file->last_write = get_uptime();
    return reason;
}

int write_file(item_record *item) {
    file_batch batch;
    int reason = take_in_others(item);
    if (reason == 0) reason = write_beside(item, batch);
    if (reason == 0) reason = check_candidates(item, batch, 0);
    const bool is_ready = reason == 0;
    if (is_ready) reason = batch.install();
    if (is_ready && batch.has_replaced()) note_file_written(item);
    item->is_dirty = 0;
    item->file->last_write = get_uptime();
    return reason;
}

int delete_file(item_record *item) {
    if (!item->file) return 0;
    file_batch batch;
    int reason = take_in_others(item);
    if (reason == 0) reason = note_deletion(item, batch);
    return reason == 0 ? batch.install() : reason;
}

int write_source(item_record *item) {
    if (item->flags & LLI_FLAG_READONLY) {
        item->is_dirty = 0;
        return 0;
    }
    if (item->delete_me) return delete_file(item);
    if (is_unread_source(item)) return keep_unread_source(item);
    if (item->file) return item->pattern ? write_members(item) : write_file(item);
    if (!item->pipe_out) return 0;
    return llconf_write_pipe_out(item) == 0 ? 0 : errno; /* the mark stays */
}

/* What a write has come to. */
struct written {
    int reason;       /* 0 or an error number */
    bool stays_dirty; /* the source wants the same again next time */
};

/* Writes a dirty item, its hooks around it. Its dirty mark is that of an edit by the last one. */
written write_item(item_record *item) {
    if (g_debug_level > 4) dump_nodes(item->cn_root, 0);
    run_hook(item, &llconf_item::func_pre_commit);
    written result{};
    try {
        result.reason = write_source(item);
    } catch (const std::bad_alloc &) {
        result.reason = ENOMEM;
    }
    result.stays_dirty = std::exchange(item->is_dirty, 0) != 0;
    run_hook(item, &llconf_item::func_post_commit);
    return result;
}

/* How often a commit goes through the items because hooks have edited some that it had passed. */
constexpr int k_most_rounds = 8;

bool any_dirty(const llconf_item *list) {
    while (list && !list->is_dirty)
        list = list->next;
    return list != nullptr;
}

/* Writes the dirty ones among the items. Those whose source wants the same again are noted. */
void write_round(llconf_item *list, std::vector<llconf_item *> &stay_dirty, int &reason) {
    for (llconf_item *lli = list; lli; lli = lli->next) {
        if (!lli->is_dirty) continue;
        written result = write_item(record_of(lli));
        if (result.reason != 0) reason = result.reason;
        if (result.stays_dirty) stay_dirty.push_back(lli);
    }
}

/* What can be known before is refused before anything is written. */
int look_at_all(llconf_item *list) {
    int refused = 0;
    for (llconf_item *lli = list; lli; lli = lli->next) {
        const int reason = lli->is_dirty ? take_in_others(record_of(lli)) : 0;
        if (reason != 0) refused = reason;
    }
    return refused;
}

/* Without an archive. */
int write_one_by_one(llconf_item *list) {
    int reason = look_at_all(list);
    if (reason == ESTALE) return reason;
    reason = 0;
    std::vector<llconf_item *> stay_dirty;
    for (int round = 0; round < k_most_rounds && any_dirty(list); round++)
        write_round(list, stay_dirty, reason);
    if (any_dirty(list)) {
        daemon_log(LOG_ERR, "commit hooks edit modules again and again; the last edits are lost");
        reason = EBUSY;
    }
    for (llconf_item *lli : stay_dirty)
        lli->is_dirty = 1;
    return reason;
}

}  // namespace

bool is_unread_source(const item_record *item) {
    if (item->state != tree_state::unread && item->state != tree_state::blind) return false;
    if (!item->file) return true;
    owned_str path{prefix_llfilename(item->file->filename)};
    struct stat st {};
    return !path || place_stat(path.get(), &st) == 0 || errno != ENOENT;
}

int keep_unread_source(const item_record *item) {
    const char *source = item->file ? item->file->filename : item->pipe_out;
    if (item->state == tree_state::blind || (item->cn_root && item->cn_root->first_child)) {
        daemon_log(LOG_ERR, "writing to %s failed: its present contents have not been read",
                   source);
        return EINVAL;
    }
    daemon_log(LOG_WARNING, "module '%s': %s has not been read, not writing it", item->name,
               source);
    return 0;
}

int write_beside(const item_record *item, file_batch &batch) {
    owned_str path{prefix_llfilename(item->file->filename)};
    if (!path) return ENOMEM;
    return batch.write(item->module, path.get(), item->cn_root, attributes_of(item->file),
                       item->seen ? &item->seen->identity : nullptr);
}

int check_candidates(const item_record *item, const file_batch &batch, size_t first) {
    for (size_t i = first; item->check && i < batch.written(); i++) {
        const std::string file = batch.candidate(i);
        owned<fe_context, destroy_fe_context> ctx{create_fe_context(g_trns_fe_context, g_trns_ctx)};
        if (file.empty() || !ctx || fe_set(ctx.get(), "file", file.c_str()) != 0) return EIO;
        const owned<fe_node, destroy_fe_node_list> result{
            eval_fe_expr_list(ctx.get(), item->check)};
        if (result && fe_istrue(fe_last_text(result.get())) != 0) continue;
        const std::string text = std::string{item->name} + ": refused by its check";
        daemon_log(LOG_ERR, "%s", text.c_str());
        if (!ccd_get_error()) ccd_set_error(text.c_str(), "error.commit.check");
        return ECANCELED;
    }
    return 0;
}

void note_file_written(item_record *item) {
    item->seen = nullptr;
    owned_str path{prefix_llfilename(item->file->filename)};
    if (!path) return;
    const file_identity written = identity_at(path.get());
    item->file->mtime = written.modified.tv_sec;
    try {
        item->seen = std::make_shared<const seen_file>(seen_file{written, true, nullptr});
    } catch (const std::bad_alloc &) {
        return; /* a later round writes without a look */
    }
}

int note_deletion(const item_record *item, file_batch &batch) {
    owned_str path{prefix_llfilename(item->file->filename)};
    if (!path) return ENOMEM;
    if (!batch.is_plan()) daemon_log(LOG_NOTICE, "deleting file %s", path.get());
    batch.remove(item->module, path.get(), item->seen ? &item->seen->identity : nullptr);
    return 0;
}

int llconf_write_cnftree_file(llconf_item *lli, const char *filename, cnfnode *tree) {
    owned_str path{prefix_llfilename(filename)};
    const int reason =
        path ? replace_file(lli->module, path.get(), tree, attributes_of(lli->file)) : ENOMEM;
    if (reason == 0) {
        if (lli->file) lli->file->mtime = identity_at(path.get()).modified.tv_sec;
        return 0;
    }
    errno = reason;
    return -1;
}

int llconf_write_cnftree(llconf_item *lli) {
    if (!lli || !lli->is_dirty) {
        if (lli) trace(0, "data for module %s have not changed, not writing\n", lli->name);
        return 0;
    }
    written result = write_item(record_of(lli));
    if (result.stays_dirty) lli->is_dirty = 1;
    errno = result.reason;
    return result.reason == 0 ? 0 : -1;
}

int llconf_write_all_cnftrees(llconf_item *list) {
    for (const llconf_item *lli = list; lli; lli = lli->next)
        if (!lli->is_dirty)
            trace(0, "data for module %s have not changed, not writing\n", lli->name);
    int reason = 0;
    try {
        reason = archive_is_on() ? write_all_or_none(list) : write_one_by_one(list);
    } catch (const std::bad_alloc &) {
        reason = ENOMEM;
    }
    for (llconf_item *lli : removal_safe(list))
        if (lli->delete_me) ll_contexts_release(lli);
    errno = reason;
    return reason == 0 ? 0 : -1;
}

/* Writing the trees of module instances back to their sources. */

#include <errno.h>
#include <libdaemon/dlog.h>

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
#include "backend/write_parts.h"
#include "daemon/trace.h"
#include "llconf/nodes.h"
#include "ucfgd/owners.h"
#include "ucfgd/uptime.h"

namespace {

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
    batch.log_merged();
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

int llconf_write_cnftree_file(llconf_item *lli, const char *filename, cnfnode *tree) {
    owned_str path{prefix_llfilename(filename)};
    const int reason =
        path ? replace_file(lli->module, path.get(), tree, attributes_of(record_of(lli), ""))
             : ENOMEM;
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

#include "backend/write_parts.h"

#include <errno.h>
#include <libdaemon/dlog.h>
#include <sys/stat.h>
#include <syslog.h>

#include <memory>
#include <new>

#include "backend/file_io.h"
#include "backend/others.h"
#include "daemon/place.h"
#include "fe/fe.h"
#include "llconf/nodes.h"
#include "tree/param_error.h"
#include "tree/trns.h"
#include "ucfgd/owners.h"

namespace {

/* Each line of a check has its say. */
bool passes(const fe_node *check, fe_context *ctx) {
    for (const fe_node *line = check; line; line = line->next) {
        const owned<fe_node, destroy_fe_node_list> result{eval_fe_expression(ctx, line)};
        if (!result || !fe_istrue(fe_last_text(result.get()))) return false;
    }
    return true;
}

}  // namespace

bool any_dirty(const llconf_item *list) {
    while (list && !list->is_dirty)
        list = list->next;
    return list != nullptr;
}

file_attributes attributes_of(const item_record *item, const std::string &member) {
    file_attributes attributes;
    if (const llconf_file *file = item->file)
        attributes = {file->mode, file->uid, file->gid, item->create_mode, {}, false};
    const file_state *archived = item_archived(item, member);
    if (archived && archived->kind == file_kind::regular) {
        attributes.earlier = owner_and_mode{archived->uid, archived->gid, archived->mode};
        attributes.earlier_counts_first = true;
    }
    return attributes;
}

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
        const std::string text = std::string{source} + ": its present contents have not been read";
        daemon_log(LOG_ERR, "writing to %s", text.c_str());
        if (!ccd_get_error()) {
            ccd_set_error(text.c_str(), "error.commit.unread");
            ccd_add_error_arg(source);
        }
        return EINVAL;
    }
    daemon_log(LOG_WARNING, "module '%s': %s has not been read, not writing it", item->name,
               source);
    return 0;
}

int write_beside(const item_record *item, file_batch &batch) {
    owned_str path{prefix_llfilename(item->file->filename)};
    if (!path) return ENOMEM;
    return batch.write(item->module, path.get(), item->cn_root, attributes_of(item, ""),
                       item->seen ? &item->seen->identity : nullptr);
}

int check_candidates(const item_record *item, file_batch &batch, size_t first) {
    for (size_t i = first; item->check && i < batch.written(); i++) {
        batch.doubt(i);
        const std::string file = batch.candidate(i);
        owned<fe_context, destroy_fe_context> ctx{create_fe_context(g_trns_fe_context, g_trns_ctx)};
        if (file.empty() || !ctx || fe_set(ctx.get(), "file", file.c_str()) != 0) return EIO;
        if (passes(item->check, ctx.get())) continue;
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

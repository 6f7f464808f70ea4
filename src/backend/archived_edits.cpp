#include "backend/archived_edits.h"

#include <errno.h>
#include <libdaemon/dlog.h>
#include <syslog.h>

#include <cstring>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "archive/archive.h"
#include "archive/merge.h"
#include "backend/contexts.h"
#include "backend/items.h"
#include "backend/llfuncs.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "tree/param_error.h"
#include "ucfgd/owners.h"

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

/* One version of a file, or that there was none. One without owner and mode leaves them as they
 * are. */
struct version {
    file_kind kind = file_kind::absent;
    std::string text;
    std::optional<owner_and_mode> attributes;
};

/* The file of a module that an archived one was, in the trees of a transaction. */
struct target {
    llconf_item *item = nullptr;
    llconf_item *primary = nullptr;
    std::string member; /* of a directory */
    std::string shown;
};

int refuse(const std::string &why, const char *id, const target &at) {
    ccd_set_error(why.c_str(), id);
    ccd_add_error_arg(at.shown.c_str());
    return -1;
}

int refuse_text(const target &at) {
    const char *why = errno == EINVAL ? cnf_error_text() : std::strerror(errno);
    return refuse(at.shown + ": " + why, "error.commit.text", at);
}

/* False when no module has that file any more. */
bool find_target(trns_ctx *ctx, const archived_file &file, target &at) {
    at.shown = file.path.empty() ? file.module : file.path;
    at.item = find_llconf_item(lli_list_from_trns_ctx(ctx), file.module.c_str());
    at.primary = llconf_primary_item(at.item);
    if (!at.item || !at.primary->module || at.item->delete_me) return false;
    const llconf_file *own = at.primary->file;
    if (file.path.empty()) return !own;
    if (!own) return false;
    const std::string name = own->filename;
    if (!at.primary->pattern) return file.path == name;
    if (!file.path.starts_with(name)) return false;
    at.member = file.path.substr(name.size());
    at.member.erase(0, at.member.find_first_not_of('/'));
    return is_member_name(at.primary->pattern, at.member.c_str());
}

const cnfnode *tree_of(const target &at) {
    const cnfnode *tree = llconf_get_cnftree_read(at.item);
    return tree && at.primary->pattern ? find_node(tree->first_child, at.member.c_str()) : tree;
}

/* The item whose tree the transaction reads. */
const item_record *read_item(const target &at) {
    const llconf_item *item = at.item;
    while (!item->cn_root && item->item_orig)
        item = item->item_orig;
    return record_of(item);
}

owner_and_mode attributes_in(const file_state &state) {
    return {state.uid, state.gid, state.mode};
}

/* Owner and mode that the file has, or will have by an edit made before. */
std::optional<owner_and_mode> present_attributes(const target &at) {
    if (!at.primary->file) return {};
    const file_state *archived = item_archived(read_item(at), at.member);
    if (archived && archived->kind == file_kind::regular) return attributes_in(*archived);
    file_state now;
    std::string text;
    if (read_state(whole_path(at.shown), now, text) != 0 || now.kind != file_kind::regular)
        return {};
    return attributes_in(now);
}

/* Whether there is no file, and will be none. */
bool is_missing(const target &at, const cnfnode *tree) {
    if (!tree) return true;
    if (at.primary->pattern || !at.primary->file || tree->first_child) return false;
    const item_record *item = read_item(at);
    return item_means_no_file(item) || (item->seen && !item->seen->identity.exists);
}

/* What the transaction's tree would be written as. */
int read_present(const target &at, version &present) {
    const cnfnode *tree = tree_of(at);
    present = {};
    if (is_missing(at, tree)) return 0;
    size_t length = 0;
    const owned_str text{cnfmodule_unparse_text(at.primary->module, tree, &length)};
    if (!text) return refuse_text(at);
    present = {file_kind::regular, {text.get(), length}, present_attributes(at)};
    return 0;
}

int read_archived(const commit_record &record, size_t index, bool after, version &archived,
                  const target &at) {
    const archived_file &file = record.files[index];
    const std::string folder = archive_folder(record.number);
    const file_state &state = after ? file.after : file.before;
    archived = {state.kind, "", {}};
    if (archived.kind == file_kind::absent) return 0;
    if (at.primary->file) archived.attributes = attributes_in(state);
    if (archived.kind == file_kind::link)
        return refuse(at.shown + " was a link that led nowhere", "error.commit.text", at);
    const std::string name = after ? after_name(folder, index) : before_name(folder, index);
    return read_whole(name, archived.text) == 0 ? 0 : refuse_text(at);
}

int put_member(const target &at, owned_tree fresh) {
    cnfnode *directory = llconf_get_cnftree_write(at.item);
    if (!directory) return refuse_text(at);
    cnfnode *old = find_node(directory->first_child, at.member.c_str());
    if (!old && fresh && !ll_name_free(at.item, directory, at.member.c_str()))
        return refuse(at.shown + " is there and cannot be read", "error.commit.text", at);
    if (fresh &&
        (cnfnode_setname(fresh.get(), at.member.c_str()) != 0 ||
         (old ? insert_node_before(old, fresh.get()) : append_node(directory, fresh.get())) != 0))
        return refuse_text(at);
    (void)fresh.release();
    destroy_cnftree(old);
    return 0;
}

bool same_owner_and_mode(const owner_and_mode &a, const owner_and_mode &b) {
    return a.uid == b.uid && a.gid == b.gid && a.mode == b.mode;
}

/* What the module sets counts more than what the archive has. */
bool has_attributes(const target &at, const version &present, const version &wanted) {
    if (!wanted.attributes || !present.attributes) return true;
    owner_and_mode as = *wanted.attributes;
    const llconf_file *file = at.primary->file;
    if (file->uid >= 0) as.uid = present.attributes->uid;
    if (file->gid >= 0) as.gid = present.attributes->gid;
    if (file->mode >= 0) as.mode = present.attributes->mode;
    return same_owner_and_mode(*present.attributes, as);
}

/* The commit of the edit has to know what the file was. */
void note_archived(const target &at, const version &wanted) {
    item_record *item = record_of(at.item);
    archived_states states = item->archived ? *item->archived : archived_states{};
    if (wanted.kind == file_kind::absent) {
        states[at.member] = {};
    } else if (wanted.attributes) {
        const auto &[uid, gid, mode] = *wanted.attributes;
        states[at.member] = {file_kind::regular, mode, uid, gid, ""};
    } else if (states.contains(at.member) && states[at.member].kind == file_kind::absent) {
        states.erase(at.member);
    }
    item->archived = std::make_shared<const archived_states>(std::move(states));
}

/* Makes the tree that of a version, as an edit. Nothing happens where it is so already. */
int put(const target &at, const version &present, const version &wanted) {
    if (present.text == wanted.text && present.kind == wanted.kind &&
        has_attributes(at, present, wanted))
        return 0;
    owned_tree tree;
    if (wanted.kind != file_kind::absent) {
        tree.reset(cnfmodule_parse_text(at.primary->module, at.shown.c_str(), wanted.text.data(),
                                        wanted.text.size()));
        if (!tree) return refuse_text(at);
    } else if (!at.primary->pattern) {
        tree.reset(create_cnfnode("(root)"));
        if (!tree) return refuse_text(at);
    }
    if (at.primary->pattern) {
        if (put_member(at, std::move(tree)) != 0) return -1;
    } else {
        llconf_install_cnftree(at.item, tree.release());
    }
    note_archived(at, wanted);
    at.item->is_dirty = 1;
    return 0;
}

/* Where in the archive a version stands. */
struct found_version {
    const commit_record *record;
    size_t index;
    bool after;
};

using file_key = std::pair<std::string, std::string>;

/* Which version each file had after a commit: that of the last commit up to there, or else what the
 * first one behind it found. What never was in effect, or has been undone, has left nothing. */
std::map<file_key, found_version> versions_after(const std::map<long, commit_record> &records,
                                                 long number) {
    std::map<file_key, found_version> versions;
    for (const auto &[at, record] : records) {
        const bool up_to = at <= number;
        if (record.state == commit_state::failed || record.state == commit_state::open) continue;
        if (up_to && at != number && record.state == commit_state::undone) continue;
        for (size_t i = 0; i < record.files.size(); i++) {
            const file_key key{record.files[i].module, record.files[i].path};
            if (up_to)
                versions[key] = {&record, i, true};
            else
                versions.try_emplace(key, found_version{&record, i, false});
        }
    }
    return versions;
}

std::map<long, commit_record> all_records() {
    std::map<long, commit_record> records;
    for (long number : archive_numbers()) {
        commit_record record;
        if (read_record(archive_folder(number), record) == 0) records[number] = std::move(record);
    }
    return records;
}

int put_version(trns_ctx *ctx, const commit_record &record, size_t index, bool after) {
    target at;
    if (!find_target(ctx, record.files[index], at)) {
        daemon_log(LOG_NOTICE, "commit %ld: no module has %s any more", record.number,
                   at.shown.c_str());
        return 0;
    }
    version archived;
    version present;
    if (read_archived(record, index, after, archived, at) != 0 || read_present(at, present) != 0)
        return -1;
    return put(at, present, archived);
}

/* The files that later commits changed in the same lines. */
struct overlap {
    std::string file;
    std::string where;
};

int refuse_overlaps(const commit_record &record, const std::vector<overlap> &overlaps) {
    std::string text = "commit " + std::to_string(record.number) + " cannot be undone: ";
    for (const overlap &one : overlaps)
        text += (&one == overlaps.data() ? "" : "; ") + one.file + " has been changed since in " +
                one.where;
    ccd_set_error(text.c_str(), "error.commit.overlap");
    for (const overlap &one : overlaps) {
        ccd_add_error_arg(one.file.c_str());
        ccd_add_error_arg(one.where.c_str());
    }
    return -1;
}

/* Whether the file has its owner and mode from the commit between two versions. */
bool gave_attributes(const version &before, const version &after, const version &present) {
    return before.attributes && after.attributes && present.attributes &&
           !same_owner_and_mode(*before.attributes, *after.attributes) &&
           same_owner_and_mode(*present.attributes, *after.attributes);
}

int undo_file(trns_ctx *ctx, const commit_record &record, size_t index,
              std::vector<overlap> &overlaps) {
    target at;
    const auto note_overlap = [&](const std::string &where) {
        overlaps.push_back({at.shown, where});
        return 0;
    };
    if (!find_target(ctx, record.files[index], at))
        return refuse("no module has " + at.shown + " any more", "error.commit.module", at);
    version before;
    version after;
    version present;
    if (read_archived(record, index, false, before, at) != 0 ||
        read_archived(record, index, true, after, at) != 0 || read_present(at, present) != 0)
        return -1;
    if (present.kind != file_kind::absent && !gave_attributes(before, after, present))
        before.attributes.reset();
    if (present.text == after.text || (present.text == before.text && present.kind == before.kind))
        return put(at, present, before);
    if (before.kind == file_kind::absent || after.kind == file_kind::absent)
        return note_overlap("all lines");
    const text_merge merged = merge_texts(after.text, present.text, before.text);
    if (merged.result == merge_result::conflict) return note_overlap(merged.conflicts);
    if (merged.result == merge_result::failed) return refuse_text(at);
    return put(at, present, {file_kind::regular, merged.text, before.attributes});
}

/* Whether its files have ever been in effect. */
bool was_in_effect(const commit_record &record) {
    if (record.state == commit_state::done || record.state == commit_state::trial ||
        record.state == commit_state::undone)
        return true;
    const std::string text = "commit " + std::to_string(record.number) + " was never in effect";
    ccd_set_error(text.c_str(), "error.commit.state");
    return false;
}

}  // namespace

int load_after_commit(trns_ctx *ctx, const commit_record &record) {
    if (!was_in_effect(record)) return -1;
    const std::map<long, commit_record> records = all_records();
    for (const auto &[key, found] : versions_after(records, record.number))
        if (put_version(ctx, *found.record, found.index, found.after) != 0) return -1;
    return 0;
}

int undo_commit(trns_ctx *ctx, const commit_record &record) {
    if (!was_in_effect(record)) return -1;
    std::vector<overlap> overlaps;
    for (size_t i = 0; i < record.files.size(); i++)
        if (undo_file(ctx, record, i, overlaps) != 0) return -1;
    return overlaps.empty() ? 0 : refuse_overlaps(record, overlaps);
}

int show_commit(trns_ctx *ctx, const commit_record &record, bool after) {
    for (size_t i = 0; i < record.files.size(); i++)
        if (put_version(ctx, record, i, after) != 0) return -1;
    return 0;
}

/* One commit with an archive behind it.
 *
 *      step                                          what fails there leaves
 *   1. pre-commit hooks of all modules that change   the old files
 *   2. what others have changed taken in, new        the old files
 *      contents written and synced beside
 *   3. old and new contents, kept in the archive     the old files
 *   4. the record, "open"                            the old files
 *   5. the files replaced and removed, commands      the old files: put back at once,
 *      given their text                              or by the next start
 *   6. the record, "done" or "trial"                 the same
 *   7. post-commit hooks, which may add notes        the new files
 *
 * The record of step 6 is what makes a commit happen: before it everything goes back, behind it
 * nothing does. Hooks run for all modules before and behind the files, not around each file, since
 * no service may be told of a file that is put back a moment later. */

#include "backend/whole_commit.h"

#include <errno.h>
#include <libdaemon/dlog.h>
#include <syslog.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "archive/archive.h"
#include "archive/journal.h"
#include "archive/put_back.h"
#include "backend/file_io.h"
#include "backend/items.h"
#include "backend/ll_trns.h"
#include "backend/others.h"
#include "backend/prepared.h"
#include "backend/write_parts.h"
#include "llconf/modules.h"
#include "llconf/nodes.h"
#include "tree/param_error.h"
#include "tree/trns.h"
#include "ucfgd/owners.h"
#include "ucfgd/uptime.h"

namespace {

constexpr int k_most_rounds = 8;
constexpr long k_lock_milliseconds = 5000;

/* One module of the commit. */
struct piece {
    item_record *item;
    std::optional<directory_write> directory;
    bool is_written = false; /* its file stands in the batch */
};

class whole_commit {
  public:
    whole_commit() : journal_(commit_author()) {}
    int run(llconf_item *list);
    int plan(llconf_item *list, commit_plan &plan);

  private:
    void collect(llconf_item *list);
    int join_earlier(piece &one, file_batch &batch);
    int prepare(piece &one, file_batch &batch);
    int prepare_all(file_batch &batch);
    int keep();
    int keep_command(const item_record *item);
    int replace();
    int give_up(int reason);
    void settle();

    std::vector<piece> pieces_;
    file_batch batch_;
    commit_journal journal_;
};

bool is_collected(const std::vector<piece> &pieces, const llconf_item *lli) {
    for (const piece &one : pieces)
        if (one.item == lli) return true;
    return false;
}

bool writes_command(const item_record *item) {
    return !item->file && item->pipe_out && !item->delete_me && !(item->flags & LLI_FLAG_READONLY);
}

const char *source_of(const item_record *item) {
    return item->file ? item->file->filename : item->name;
}

/* The first failure is what the client is told. */
int refuse(const item_record *item, int reason) {
    if (ccd_get_error()) return reason;
    const char *why = reason == EINVAL ? cnf_error_text() : "";
    if (!*why) why = std::strerror(reason);
    const std::string text = std::string{source_of(item)} + ": " + why;
    ccd_set_error(text.c_str(), "error.commit.write");
    ccd_add_error_arg(source_of(item));
    return reason;
}

int refuse_keeping(int reason) {
    if (ccd_get_error()) return reason;
    const std::string text =
        std::string{"the commit cannot be kept in the archive: "} + std::strerror(reason);
    ccd_set_error(text.c_str(), "error.commit.archive");
    return reason;
}

/* The texts of a command, the one that it gave and the one that it is to take. */
int texts_of_command(const item_record *item, shared_text &before, shared_text &after) {
    if (text_of_tree(item->module, item->replaced.tree, before) != 0)
        text_of_tree(item->module, nullptr, before);
    const int reason = text_of_tree(item->module, item->cn_root, after);
    return reason == 0 ? 0 : refuse(item, reason);
}

/* A hook may edit a module that was clean: that one is part of the commit, too. */
void whole_commit::collect(llconf_item *list) {
    for (bool found = true; found;) {
        found = false;
        for (llconf_item *lli = list; lli; lli = lli->next) {
            if (!lli->is_dirty || is_collected(pieces_, lli)) continue;
            pieces_.push_back({record_of(lli), {}, false});
            run_hook(lli, &llconf_item::func_pre_commit);
            found = true;
        }
    }
}

bool is_one_file(const item_record *a, const item_record *b) {
    return a->file && b->file && !a->pattern && !b->pattern &&
           std::strcmp(a->file->filename, b->file->filename) == 0;
}

/* Where an earlier module of the commit writes the same file, this one writes the changes of both,
 * and that one nothing. */
int whole_commit::join_earlier(piece &one, file_batch &batch) {
    for (piece &earlier : pieces_) {
        if (&earlier == &one) return 0;
        if (!earlier.is_written || !is_one_file(earlier.item, one.item)) continue;
        const int reason = take_in_item(one.item, earlier.item);
        if (reason != 0) return reason;
        const owned_str path{prefix_llfilename(one.item->file->filename)};
        if (!path) return ENOMEM;
        batch.forget(path.get());
        earlier.is_written = false;
    }
    return 0;
}

int whole_commit::prepare(piece &one, file_batch &batch) {
    item_record *item = one.item;
    if (item->flags & LLI_FLAG_READONLY) return 0;
    const int refused = item->pattern ? 0 : take_in_others(item);
    if (refused != 0) return refused;
    if (item->delete_me) return item->file ? note_deletion(item, batch) : 0;
    if (is_unread_source(item)) return keep_unread_source(item);
    if (!item->file || !item->cn_root) return 0;
    if (item_means_no_file(item)) return note_deletion(item, batch);
    const int joined = join_earlier(one, batch);
    if (joined != 0) return joined;
    const size_t first = batch.written();
    if (item->pattern) one.directory.emplace(item, item->record.get());
    const int reason = item->pattern ? one.directory->prepare(batch) : write_beside(item, batch);
    one.is_written = reason == 0;
    return reason == 0 ? check_candidates(item, batch, first) : reason;
}

int whole_commit::prepare_all(file_batch &batch) {
    int failed = 0;
    for (piece &one : pieces_) {
        int reason = prepare(one, batch);
        if (reason != 0) failed = refuse(one.item, reason);
    }
    return failed;
}

int whole_commit::keep_command(const item_record *item) {
    shared_text before;
    shared_text after;
    const int reason = texts_of_command(item, before, after);
    if (reason != 0) return reason;
    const int kept = journal_.add_command(item->name, before->view(), after->view());
    return kept == 0 ? 0 : refuse_keeping(errno);
}

int whole_commit::keep() {
    int reason = batch_.note_in(journal_);
    if (reason != 0) return refuse_keeping(reason);
    for (const piece &one : pieces_) {
        if (writes_command(one.item)) reason = keep_command(one.item);
        if (reason != 0) return reason;
    }
    return journal_.seal() == 0 ? 0 : refuse_keeping(errno);
}

int whole_commit::replace() {
    int reason = batch_.install();
    for (const piece &one : pieces_) {
        if (reason != 0) return reason;
        if (writes_command(one.item) && llconf_write_pipe_out(one.item) != 0)
            reason = refuse(one.item, errno);
    }
    if (reason == 0 && journal_.finish() != 0) reason = refuse_keeping(errno);
    return reason;
}

/* The old files come back, and then the commands get their old texts. What cannot be put back now
 * is left open for the next start. */
int whole_commit::give_up(int reason) {
    commit_record record = journal_.record();
    daemon_log(LOG_ERR, "commit %ld failed: %s; putting its files back", record.number,
               std::strerror(reason));
    end_commit(record, commit_state::failed);
    return reason;
}

void whole_commit::settle() {
    for (piece &one : pieces_) {
        if (one.directory) one.item->record = one.directory->done();
        one.item->is_dirty = 0;
        one.item->archived.reset();
        if (!one.item->file) continue;
        one.item->file->last_write = get_uptime();
        if (!one.item->pattern) note_file_written(one.item);
    }
}

int whole_commit::run(llconf_item *list) {
    collect(list);
    int failed = prepare_all(batch_);
    if (failed == 0) failed = keep();
    if (failed != 0) return failed;
    int reason = replace();
    if (reason != 0) return give_up(reason);
    settle();
    batch_.log_merged();
    commit_author().number = journal_.record().number;
    for (const piece &one : pieces_)
        run_hook(one.item, &llconf_item::func_post_commit);
    return 0;
}

int whole_commit::plan(llconf_item *list, commit_plan &plan) {
    for (llconf_item *lli = list; lli; lli = lli->next)
        if (lli->is_dirty) pieces_.push_back({record_of(lli), {}, false});
    file_batch batch{plan.changes};
    const int reason = prepare_all(batch);
    if (reason != 0) return reason;
    for (const piece &one : pieces_) {
        const item_record *item = one.item;
        if (item->func_pre_commit) plan.hooks.push_back(std::string{"pre-commit of "} + item->name);
        if (!writes_command(item)) continue;
        shared_text before;
        shared_text after;
        const int refused = texts_of_command(item, before, after);
        if (refused != 0) return refused;
        planned_change change;
        change.module = item->name;
        change.before = before->view();
        change.text = after->view();
        plan.changes.push_back(std::move(change));
    }
    for (const piece &one : pieces_)
        if (one.item->func_post_commit)
            plan.hooks.push_back(std::string{"post-commit of "} + one.item->name);
    return 0;
}

}  // namespace

void put_back_commands(const commit_record &record, const put_back_report &report) {
    trns_ctx_item *backend = trns_find_ctx_byid(g_trns_ctx, k_ll_trns_id);
    auto *list = backend ? static_cast<llconf_item *>(backend->data) : nullptr;
    for (size_t index : report.commands) {
        const std::string &name = record.files[index].module;
        const llconf_item *lli = find_llconf_item(list, name.c_str());
        std::string text;
        if (!lli || !lli->pipe_out ||
            read_whole(before_name(archive_folder(record.number), index), text) != 0) {
            daemon_log(LOG_ERR, "commit %ld: the module %s cannot be given its old text",
                       record.number, name.c_str());
            continue;
        }
        if (pipe_text(lli->pipe_out, text) == 0)
            daemon_log(LOG_NOTICE, "commit %ld: %s put back", record.number, name.c_str());
    }
}

int plan_commit(llconf_item *list, commit_plan &plan) {
    return whole_commit{}.plan(list, plan);
}

int write_all_or_none(llconf_item *list) {
    archive_lock lock{k_lock_milliseconds};
    if (!lock.held()) return refuse_keeping(errno);
    int reason = 0;
    for (int round = 0; round < k_most_rounds && reason == 0 && any_dirty(list); round++)
        reason = whole_commit{}.run(list);
    if (reason == 0 && any_dirty(list)) {
        daemon_log(LOG_ERR, "commit hooks edit modules again and again; the last edits are lost");
        reason = EBUSY;
    }
    archive_trim();
    return reason;
}

#include "backend/trial_end.h"

#include <cerrno>
#include <set>
#include <string>
#include <vector>

#include "archive/journal.h"
#include "archive/trials.h"
#include "backend/items.h"
#include "backend/ll_trns.h"
#include "backend/registry.h"
#include "tree/param_ops.h"
#include "tree/trns.h"

namespace {

llconf_item *all_items() {
    trns_ctx_item *backend = trns_find_ctx_byid(g_trns_ctx, k_ll_trns_id);
    return backend ? static_cast<llconf_item *>(backend->data) : nullptr;
}

void run_hooks(const std::vector<commit_record> &undone) {
    std::set<std::string> modules;
    for (const commit_record &record : undone)
        for (const archived_file &file : record.files)
            modules.insert(file.module);
    /* What the hooks note belongs to the first commit of the trial. */
    commit_author().number = undone.back().number;
    for (llconf_item *lli = all_items(); lli; lli = lli->next)
        if (modules.count(lli->name) != 0) run_hook(lli, &llconf_item::func_post_commit);
}

}  // namespace

int end_trial(void) {
    std::vector<commit_record> undone;
    const int result = trial_undo(undone);
    const int reason = errno;
    if (!undone.empty()) {
        doubt_commands();
        trns_inc_ctx_serial(g_trns_ctx);
        ccd_revert(g_trns_ctx);
        run_hooks(undone);
    }
    errno = reason;
    return result;
}

void doubt_commands(void) {
    for (llconf_item *lli = all_items(); lli; lli = lli->next)
        if (!lli->file && lli->pipe_in) item_enter(record_of(lli), tree_event::failed);
}

void remove_all_leftovers(void) {
    for (const llconf_item *lli = all_items(); lli; lli = lli->next)
        llconf_remove_leftovers(lli);
}

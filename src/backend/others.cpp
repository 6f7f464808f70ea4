#include "backend/others.h"

#include <errno.h>
#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <unistd.h>

#include <cstring>
#include <new>
#include <set>
#include <utility>

#include "archive/file_state.h"
#include "archive/merge.h"
#include "backend/file_io.h"
#include "backend/items.h"
#include "backend/prepared.h"
#include "backend/write_parts.h"
#include "daemon/place.h"
#include "llconf/modules.h"
#include "tree/param_error.h"

namespace {

using owned_tree = owned<cnfnode, destroy_cnftree>;

constexpr char k_conflict[] = "error.commit.conflict";

/* Files whose merged texts this commit has not written yet. */
std::set<std::string> &merged_files() {
    static std::set<std::string> files;
    return files;
}

int fail(const std::string &path, int reason) {
    daemon_log(LOG_ERR, "looking at %s failed: %s", name_in_module(path).c_str(),
               std::strerror(reason));
    return reason;
}

int read_now(const std::string &path, file_look &look, std::string &text) {
    unique_fd fd{place_open(path.c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK)};
    if (!fd || look_at(fd.get(), look) != 0) return fail(path, errno);
    char piece[65536];
    for (ssize_t got = 0; (got = read(fd.get(), piece, sizeof piece)) != 0;) {
        if (got < 0 && errno != EINTR) return fail(path, errno);
        if (got > 0) text.append(piece, static_cast<size_t>(got));
    }
    return 0;
}

/* Only what parses has a text that the next look can be compared with. */
seen_file seen_as(const cnfmodule *module, const std::string &path, const file_look &look,
                  const std::string &text) {
    const owned_tree tree{cnfmodule_parse_text(module, path.c_str(), text.data(), text.size())};
    return seen_in(look, tree.get());
}

int merge(const cnfmodule *module, const std::string &path, std::string_view base,
          const std::string &theirs, const cnfnode *tree, owned_tree &merged) {
    shared_text ours;
    const int reason = text_of_tree(module, tree, ours);
    if (reason != 0) return fail(path, reason);
    const text_merge both = merge_texts(std::string{base}, theirs, std::string{ours->view()});
    if (both.result == merge_result::failed)
        return refuse_for_others(path, std::string{"merging failed: "} + std::strerror(errno));
    if (both.result == merge_result::conflict) return refuse_for_others(path, both.conflicts);
    if (!tree) return both.text.empty() ? 0 : refuse_for_others(path, "it was to be removed");
    merged.reset(cnfmodule_parse_text(module, path.c_str(), both.text.data(), both.text.size()));
    if (!merged) return refuse_for_others(path, cnf_error_text());
    merged_files().insert(path);
    return 0;
}

int take_in_file(item_record *item) {
    if (!item->seen || !item->file) return 0;
    const owned_str path{prefix_llfilename(item->file->filename)};
    if (!path) return ENOMEM;
    others_work work;
    const bool goes = item->delete_me || item_means_no_file(item);
    const cnfnode *tree = item->cn_root;
    const int reason =
        look_for_others(item->module, path.get(), *item->seen, goes ? nullptr : tree, work);
    if (reason != 0 || !work.now) return reason;
    auto now = std::make_shared<const seen_file>(std::move(*work.now));
    if (work.merged) llconf_install_cnftree(item, work.merged.release());
    item->seen = std::move(now);
    return 0;
}

}  // namespace

int look_for_others(const cnfmodule *module, const std::string &path, const seen_file &seen,
                    const cnfnode *tree, others_work &work) {
    const file_identity there = identity_at(path.c_str());
    if (seen.is_still(there)) return 0;
    if (!there.exists) {
        work.now = seen_file{};
        place at;
        const bool has_folder = find_file(path.c_str(), at) == 0;
        return tree && has_folder ? refuse_for_others(path, "it has been removed") : 0;
    }
    file_look look;
    std::string theirs;
    const int reason = read_now(path, look, theirs);
    if (reason != 0) return reason;
    const std::optional<std::string_view> base = seen.text();
    if (base && *base == theirs && seen.identity.exists) {
        work.now = seen_file{identity_of(look.st), look.settled, seen.source};
        return 0;
    }
    work.now = seen_as(module, path, look, theirs);
    if (!base) return refuse_for_others(path, "its earlier contents are not known");
    return merge(module, path, *base, theirs, tree, work.merged);
}

int take_in_others(item_record *item) {
    if ((item->flags & LLI_FLAG_READONLY) || !item->file || is_unread_source(item)) return 0;
    if (item->pattern && item->delete_me) return 0;
    if (!item->cn_root) return 0;
    return item->pattern ? merge_members(item, item->record) : take_in_file(item);
}

int take_in_item(item_record *item, const item_record *earlier) {
    const owned_str path{prefix_llfilename(item->file->filename)};
    if (!path) return ENOMEM;
    std::optional<std::string_view> base;
    if (item->seen) base = item->seen->text();
    if (!base) return refuse_for_others(path.get(), "its earlier contents are not known");
    shared_text theirs;
    const int reason = text_of_tree(earlier->module, earlier->cn_root, theirs);
    if (reason != 0) return fail(path.get(), reason);
    owned_tree merged;
    const int refused =
        merge(item->module, path.get(), *base, std::string{theirs->view()}, item->cn_root, merged);
    if (refused == 0) llconf_install_cnftree(item, merged.release());
    return refused;
}

int refuse_file(const std::string &path, int reason) {
    if (ccd_get_error()) return reason;
    const std::string name = name_in_module(path);
    const std::string text = name + ": " + std::strerror(reason);
    ccd_set_error(text.c_str(), "error.commit.write");
    ccd_add_error_arg(name.c_str());
    return reason;
}

int refuse_for_others(const std::string &path, const std::string &where) {
    const std::string name = name_in_module(path);
    const std::string text = name + ": others have changed it meanwhile: " + where;
    daemon_log(LOG_ERR, "%s", text.c_str());
    const param_error *earlier = ccd_get_error();
    const bool joins =
        earlier && earlier->id && earlier->msg && std::strcmp(earlier->id, k_conflict) == 0;
    const std::string all = joins ? std::string{earlier->msg} + "; " + text : text;
    owned<param_error, destroy_param_error> others{joins ? ccd_copy_and_clear_error() : nullptr};
    ccd_set_error(all.c_str(), k_conflict);
    for (const line *arg = others ? others->args : nullptr; arg; arg = arg->next)
        ccd_add_error_arg(arg->line);
    ccd_add_error_arg(name.c_str());
    ccd_add_error_arg(where.c_str());
    return ESTALE;
}

void log_if_merged(const std::string &path) {
    if (merged_files().erase(path) == 0) return;
    daemon_log(LOG_NOTICE, "%s: merged with changes made by others", name_in_module(path).c_str());
}

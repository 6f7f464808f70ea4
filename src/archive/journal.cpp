#include "archive/journal.h"

#include <errno.h>
#include <libdaemon/dlog.h>
#include <syslog.h>
#include <time.h>
#include <unistd.h>

#include <cstring>
#include <utility>

#include "archive/archive.h"
#include "ucfgd/owners.h"

namespace {

int fail(const std::string &what) {
    int reason = errno;
    daemon_log(LOG_ERR, "archive: keeping %s failed: %s", what.c_str(), strerror(reason));
    errno = reason;
    return -1;
}

file_state command_state(std::string_view text) {
    file_state state;
    state.kind = file_kind::regular;
    state.mode = 0600;
    state.digest = digest_of(text);
    return state;
}

int keep_text(const std::string &name, const file_state &state, std::string_view text) {
    return state.kind == file_kind::absent ? 0 : write_whole(name, text);
}

/* The contents that the newest commit left under that name, when they are those: nobody else can
 * write there, so a link to them is as good as a copy. */
bool link_to_last(long number, const archived_file &file, const std::string &name) {
    const std::string folder = archive_folder(number - 1);
    commit_record last;
    if (read_record(folder, last) != 0) return false;
    for (size_t i = 0; i < last.files.size(); i++) {
        const archived_file &old = last.files[i];
        if (old.path == file.path && old.module == file.module &&
            old.after.kind == file.before.kind && old.after.digest == file.before.digest)
            return link(after_name(folder, i).c_str(), name.c_str()) == 0;
    }
    return false;
}

}  // namespace

commit_journal::~commit_journal() {
    if (folder_.empty() || sealed_) return;
    errno_guard keep;
    archive_remove(record_.number);
}

int commit_journal::start() {
    if (!folder_.empty()) return 0;
    if (archive_new_folder(record_.number) != 0) return -1;
    folder_ = archive_folder(record_.number);
    record_.state = commit_state::open;
    record_.time = time(nullptr);
    return 0;
}

int commit_journal::keep(archived_file file, std::string_view before, std::string_view after) {
    if (start() != 0) return -1;
    size_t index = record_.files.size();
    const std::string shown = file.path.empty() ? file.module : file.path;
    const std::string old_name = before_name(folder_, index);
    if ((!link_to_last(record_.number, file, old_name) &&
         keep_text(old_name, file.before, before) != 0) ||
        keep_text(after_name(folder_, index), file.after, after) != 0)
        return fail(shown);
    record_.files.push_back(std::move(file));
    return 0;
}

int commit_journal::add(const std::string &module, const std::string &path, file_state after,
                        std::string_view text) {
    archived_file file{module, path, {}, std::move(after)};
    std::string before;
    if (read_state(whole_path(path), file.before, before) != 0) return fail(path);
    if (file.after.kind != file_kind::absent) file.after.digest = digest_of(text);
    return keep(std::move(file), before, text);
}

int commit_journal::add_command(const std::string &module, std::string_view before,
                                std::string_view after) {
    return keep({module, "", command_state(before), command_state(after)}, before, after);
}

int commit_journal::seal() {
    if (folder_.empty()) return 0;
    record_.notes = std::exchange(commit_author().notes, {});
    if (write_record(folder_, record_) != 0) return fail("the record of " + folder_);
    sealed_ = true;
    return 0;
}

int commit_journal::finish() {
    if (!sealed_) return 0;
    record_.state = record_.trial_seconds > 0 ? commit_state::trial : commit_state::done;
    return write_record(folder_, record_) == 0 ? 0 : fail("the record of " + folder_);
}

commit_record &commit_author(void) {
    static commit_record author;
    return author;
}

int journal_note(long number, const commit_note &note) {
    const std::string folder = archive_folder(number);
    commit_record record;
    if (read_record(folder, record) != 0) return fail("a note in " + folder);
    record.notes.push_back(note);
    return write_record(folder, record) == 0 ? 0 : fail("a note in " + folder);
}

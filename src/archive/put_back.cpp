#include "archive/put_back.h"

#include <errno.h>
#include <libdaemon/dlog.h>
#include <syslog.h>

#include <cstring>
#include <filesystem>

#include "archive/archive.h"
#include "archive/merge.h"

namespace {

commands_back g_give_commands = nullptr;

struct one_file {
    const commit_record &record;
    const archived_file &file;
    std::string name; /* prefix and all */
    std::string before;
    std::string after;
};

int fail(const std::string &path) {
    int reason = errno;
    daemon_log(LOG_ERR, "putting back %s failed: %s", path.c_str(), strerror(reason));
    errno = reason;
    return -1;
}

/* Contents that are not those of the commit are worse than none: ENOENT. */
int read_kept(const file_state &state, const std::string &name, std::string &text) {
    if (state.kind == file_kind::absent) return 0;
    if (read_whole(name, text) != 0) return -1;
    const std::string digest = digest_of(text);
    if (digest == state.digest) return 0;
    errno = digest.empty() ? ENOMEM : ENOENT;
    return -1;
}

/* Others have put something in the place of the file that is none, or that nobody can read whole.
 */
bool is_no_file(int reason) {
    return reason == EISDIR || reason == EINVAL || reason == ENXIO || reason == ELOOP ||
           reason == EFBIG;
}

/* The folder of the file has gone, or has no room for such a name. */
bool is_no_place(int reason) {
    return reason == ENOENT || reason == ENOTDIR || reason == ENAMETOOLONG;
}

/* Theirs stay; the old contents are not lost. */
int keep_aside(const one_file &one, put_back_report &report) {
    const std::string aside = one.name + ".ucfgd-" + std::to_string(one.record.number);
    std::string where;
    if (one.file.before.kind == file_kind::regular) {
        const bool kept = write_state(aside, one.file.before, one.before) == 0;
        if (!kept && !is_no_place(errno)) return fail(one.file.path);
        where = "; what it was before is kept in " +
                (kept ? name_in_module(aside) : std::string{"the archive alone"});
    }
    daemon_log(LOG_WARNING, "Warning: commit %ld: %s was changed by others meanwhile and stays%s",
               one.record.number, one.file.path.c_str(), where.c_str());
    report.kept_aside.push_back(one.file.path);
    report.notes.push_back({one.file.path, "stays", "changed by others meanwhile" + where});
    return 0;
}

/* Waiting does not bring it back, and the other files do not wait for it. */
int leave_lost(const one_file &one, put_back_report &report) {
    if (errno != ENOENT) return fail(one.file.path);
    daemon_log(LOG_ERR, "commit %ld: %s stays: what it was before is lost from the archive",
               one.record.number, one.file.path.c_str());
    report.notes.push_back({one.file.path, "stays", "what it was before is lost from the archive"});
    return 0;
}

int merge_back(one_file &one, const std::string &after_name, const file_state &now,
               const std::string &present, put_back_report &report) {
    bool texts = now.kind == file_kind::regular && one.file.before.kind == file_kind::regular &&
                 one.file.after.kind == file_kind::regular;
    if (texts && read_kept(one.file.after, after_name, one.after) != 0) {
        if (errno != ENOENT) return fail(one.file.path);
        texts = false;
    }
    if (!texts) return keep_aside(one, report);
    text_merge merged = merge_texts(one.after, present, one.before);
    if (merged.result != merge_result::merged) return keep_aside(one, report);
    if (write_state(one.name, now, merged.text) != 0) return fail(one.file.path);
    daemon_log(LOG_NOTICE, "commit %ld: %s put back, merged with changes made by others",
               one.record.number, one.file.path.c_str());
    report.merged.push_back(one.file.path);
    report.notes.push_back({one.file.path, "put back", "merged with changes made by others"});
    return 0;
}

int put_back_one(one_file &one, const std::string &folder, size_t index, put_back_report &report) {
    file_state now;
    std::string present;
    const bool is_file = read_state(one.name, now, present) == 0;
    if (!is_file && !is_no_file(errno)) return fail(one.file.path);
    if (is_file && same_state(now, one.file.before)) return 0;
    if (read_kept(one.file.before, before_name(folder, index), one.before) != 0)
        return leave_lost(one, report);
    if (!is_file) return keep_aside(one, report);
    if (now.kind != one.file.after.kind || now.digest != one.file.after.digest)
        return merge_back(one, after_name(folder, index), now, present, report);
    if (write_state(one.name, one.file.before, one.before) != 0)
        return is_no_place(errno) ? keep_aside(one, report) : fail(one.file.path);
    daemon_log(LOG_NOTICE, "commit %ld: %s put back", one.record.number, one.file.path.c_str());
    report.restored.push_back(one.file.path);
    return 0;
}

/* A candidate that a crash has left beside its file. */
void remove_temporaries(const commit_record &record) {
    for (const archived_file &file : record.files)
        if (!file.path.empty()) remove_temporary(whole_path(file.path).c_str());
}

bool has_record(const std::string &folder) {
    std::error_code error;
    return std::filesystem::exists(folder + "/record", error) || error;
}

int recover(long number) {
    const std::string folder = archive_folder(number);
    if (!has_record(folder)) {
        archive_remove(number); /* what cannot be removed harms nobody */
        return 0;
    }
    commit_record record;
    if (read_record(folder, record) != 0) {
        const int reason = errno;
        daemon_log(LOG_ERR, "archive: the record of commit %ld cannot be read: %s", number,
                   strerror(reason));
        errno = reason;
        /* Damaged, it says nothing any more, and holds nobody up. */
        return reason == EINVAL ? 0 : -1;
    }
    if (record.state != commit_state::open) return 0;
    daemon_log(LOG_WARNING, "Warning: commit %ld of %s was interrupted; putting its files back",
               number, record.user.c_str());
    remove_temporaries(record);
    return end_commit(record, commit_state::failed);
}

}  // namespace

int put_back(const commit_record &record, put_back_report &report) {
    const std::string folder = archive_folder(record.number);
    int result = 0;
    int reason = 0;
    for (size_t i = record.files.size(); i-- > 0;) {
        const archived_file &file = record.files[i];
        if (file.path.empty()) {
            report.commands.push_back(i);
            continue;
        }
        one_file one{record, file, whole_path(file.path), {}, {}};
        if (put_back_one(one, folder, i, report) == 0) continue;
        result = -1;
        reason = errno;
    }
    if (result != 0) errno = reason;
    return result;
}

void put_back_set_commands(commands_back give) {
    g_give_commands = give;
}

int end_commit(commit_record &record, commit_state state) {
    put_back_report report;
    if (put_back(record, report) != 0) return -1;
    if (!report.commands.empty()) {
        if (!g_give_commands) return 0;
        g_give_commands(record, report);
    }
    record.state = state;
    record.notes.insert(record.notes.end(), report.notes.begin(), report.notes.end());
    return write_record(archive_folder(record.number), record);
}

bool archive_has_open(void) {
    std::vector<long> numbers = archive_numbers();
    /* A folder without a record is being filled, or was left by a crash; the one before it counts.
     */
    while (!numbers.empty() && !has_record(archive_folder(numbers.back())))
        numbers.pop_back();
    if (numbers.empty()) return false;
    commit_record record;
    if (read_record(archive_folder(numbers.back()), record) != 0) return errno != EINVAL;
    return record.state == commit_state::open;
}

int archive_recover(long milliseconds) {
    archive_lock lock{milliseconds};
    if (!lock.held()) {
        daemon_log(LOG_ERR, "archive: a commit of an earlier daemon does not end: %s",
                   strerror(errno));
        return -1;
    }
    const std::vector<long> numbers = archive_numbers();
    int reason = errno;
    for (long number : numbers)
        if (recover(number) != 0) reason = errno;
    archive_trim(); /* smaller bounds make room on a full disk */
    errno = reason;
    return reason == 0 ? 0 : -1;
}

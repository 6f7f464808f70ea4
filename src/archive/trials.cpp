#include "archive/trials.h"

#include <errno.h>
#include <libdaemon/dlog.h>
#include <syslog.h>

#include <algorithm>
#include <cstring>

#include "archive/archive.h"
#include "archive/file_state.h"
#include "daemon/loop.h"
#include "ucfgd/owners.h"

namespace {

constexpr char k_boot_id[] = "/proc/sys/kernel/random/boot_id";
constexpr int64_t k_milliseconds = 1000;
constexpr long k_lock_milliseconds = 1000;

/* Empty where the system does not tell: then a reboot looks like a clock that went back. */
std::string boot_id() {
    std::string text;
    errno_guard keep;
    if (read_whole(k_boot_id, text) != 0) return {};
    while (!text.empty() && text.back() == '\n')
        text.pop_back();
    return text;
}

int64_t left_of(const commit_record &record, const std::string &boot) {
    if (record.trial_boot != boot) return 0;
    int64_t left = record.trial_end - loop_now();
    /* An end further away than the whole trial is one of another clock. */
    return left > record.trial_seconds * k_milliseconds ? 0 : std::max<int64_t>(left, 0);
}

/* Changes the record of each commit of the trial. */
template <class change>
int change_all(change apply) {
    archive_lock lock{k_lock_milliseconds};
    if (!lock.held()) return -1;
    std::vector<commit_record> commits = trial_commits();
    if (commits.empty()) {
        errno = ENOENT;
        return -1;
    }
    for (commit_record &record : commits) {
        apply(record);
        if (write_record(archive_folder(record.number), record) != 0) return -1;
    }
    return 0;
}

}  // namespace

std::vector<commit_record> trial_commits(void) {
    std::vector<commit_record> commits;
    for (long number : archive_numbers()) {
        commit_record record;
        errno_guard keep;
        if (read_record(archive_folder(number), record) == 0 && record.state == commit_state::trial)
            commits.push_back(std::move(record));
    }
    return commits;
}

int64_t trial_left(void) {
    const std::vector<commit_record> commits = trial_commits();
    if (commits.empty()) return -1;
    return left_of(commits.back(), boot_id());
}

void trial_begin(commit_record &record, long seconds) {
    record.trial_seconds = seconds;
    record.trial_end = loop_now() + seconds * k_milliseconds;
    record.trial_boot = boot_id();
}

int trial_extend(long seconds) {
    return change_all([seconds](commit_record &record) { trial_begin(record, seconds); });
}

int trial_confirm(void) {
    return change_all([](commit_record &record) {
        record.state = commit_state::done;
        daemon_log(LOG_NOTICE, "commit %ld is confirmed", record.number);
    });
}

int trial_undo(std::vector<commit_record> &undone, put_back_report &report) {
    archive_lock lock{k_lock_milliseconds};
    if (!lock.held()) return -1;
    std::vector<commit_record> commits = trial_commits();
    if (commits.empty()) {
        errno = ENOENT;
        return -1;
    }
    while (!commits.empty()) {
        commit_record record = std::move(commits.back());
        commits.pop_back();
        if (end_commit(record, commit_state::undone, report) != 0) return -1;
        daemon_log(LOG_NOTICE, "commit %ld of %s is undone", record.number, record.user.c_str());
        undone.push_back(std::move(record));
    }
    return 0;
}

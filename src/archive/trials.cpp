#include "archive/trials.h"

#include <errno.h>
#include <libdaemon/dlog.h>
#include <syslog.h>

#include <algorithm>
#include <cstring>

#include "archive/archive.h"
#include "archive/file_state.h"
#include "archive/put_back.h"
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

/* The end of a trial whose undoing has begun. */
constexpr int64_t k_ending = 0;

bool is_ending(const commit_record &record) {
    return record.trial_end == k_ending;
}

/* The trial and whether a part of it is undone already, or may be. */
struct running_trial {
    std::vector<commit_record> commits; /* the newest first */
    bool half_undone = false;
};

running_trial find_trial() {
    running_trial trial;
    bool undone = false;
    const std::vector<long> numbers = archive_numbers();
    for (size_t i = numbers.size(); i-- > 0;) {
        commit_record record;
        errno_guard keep;
        if (read_record(archive_folder(numbers[i]), record) != 0) continue;
        if (record.state == commit_state::done) break;
        if (record.state == commit_state::undone) undone = true;
        if (record.state != commit_state::trial) continue;
        trial.half_undone = trial.half_undone || undone || is_ending(record);
        trial.commits.push_back(std::move(record));
    }
    return trial;
}

/* Changes the record of each commit of the trial, the oldest first. */
template <class change>
int change_all(change apply) {
    archive_lock lock{k_lock_milliseconds};
    if (!lock.held()) return -1;
    running_trial trial = find_trial();
    if (trial.commits.empty() || trial.half_undone) {
        errno = trial.commits.empty() ? ENOENT : EALREADY;
        return -1;
    }
    for (size_t i = trial.commits.size(); i-- > 0;) {
        commit_record &record = trial.commits[i];
        apply(record);
        if (write_record(archive_folder(record.number), record) != 0) return -1;
    }
    return 0;
}

}  // namespace

std::vector<commit_record> trial_commits(void) {
    std::vector<commit_record> commits = find_trial().commits;
    std::reverse(commits.begin(), commits.end());
    return commits;
}

int64_t trial_left(void) {
    const running_trial trial = find_trial();
    if (trial.commits.empty()) return -1;
    return trial.half_undone ? 0 : left_of(trial.commits.front(), boot_id());
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
    const std::vector<commit_record> commits = trial_commits();
    if (change_all([](commit_record &record) { record.state = commit_state::done; }) != 0)
        return -1;
    for (const commit_record &record : commits)
        daemon_log(LOG_NOTICE, "commit %ld of %s is confirmed", record.number, record.user.c_str());
    return 0;
}

int trial_undo(std::vector<commit_record> &undone) {
    archive_lock lock{k_lock_milliseconds};
    if (!lock.held()) return -1;
    running_trial trial = find_trial();
    if (trial.commits.empty()) {
        errno = ENOENT;
        return -1;
    }
    /* From the first file on, nothing but the end will do: whoever finds the trial now goes on. */
    for (commit_record &record : trial.commits) {
        if (is_ending(record)) continue;
        record.trial_end = k_ending;
        if (write_record(archive_folder(record.number), record) != 0) return -1;
    }
    for (commit_record &record : trial.commits) {
        if (end_commit(record, commit_state::undone) != 0) return -1;
        if (record.state == commit_state::trial) continue;
        daemon_log(LOG_NOTICE, "commit %ld of %s is undone", record.number, record.user.c_str());
        undone.push_back(std::move(record));
    }
    return 0;
}

int trial_put_back_files(long milliseconds) {
    archive_lock lock{milliseconds};
    if (!lock.held()) return -1;
    for (const commit_record &record : find_trial().commits) {
        put_back_report report;
        if (put_back(record, report) != 0) return -1;
    }
    return 0;
}

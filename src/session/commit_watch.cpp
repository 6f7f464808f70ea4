/* Commits as they come.
 *
 * What a watcher says it finds in the archive, by number, so there is no gap and no double; the
 * kernel only wakes it, when a folder appears and when a record is replaced there. It waits for the
 * newest commit only: those before it have ended, since no commit begins before. What has no record
 * then is being removed. */

#include "session/commit_watch.h"

#include <errno.h>
#include <poll.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "archive/archive.h"
#include "session/bgexec.h"
#include "ucfgd/owners.h"

namespace {

/* One that has begun and not ended is still to come. */
long first_to_come() {
    const std::vector<long> numbers = archive_numbers();
    if (numbers.empty()) return 1;
    commit_record record;
    const bool ended = read_record(archive_folder(numbers.back()), record) == 0 &&
                       record.state != commit_state::open;
    return ended ? numbers.back() + 1 : numbers.back();
}

class commit_watch {
  public:
    explicit commit_watch(long from) : next_(from) {}
    int run();

  private:
    bool wait();
    void show();
    bool show_one(long number);

    unique_fd events_;
    long next_;
    int folder_ = -1; /* the one that is watched */
};

const char *or_dash(const std::string &text) {
    return text.empty() ? "-" : text.c_str();
}

void write_line(long number, const commit_record &record) {
    printf("%ld %s %s", number, or_dash(record.user), state_text(record.state));
    for (const archived_file &file : record.files)
        printf(" %s", file.path.empty() ? file.module.c_str() : file.path.c_str());
    printf("\n");
    fflush(stdout);
}

/* False while the commit has not ended. The folder is watched before the record is read; it may be
 * another one of the same number, when a commit was given up before it had a record. */
bool commit_watch::show_one(long number) {
    const std::string folder = archive_folder(number);
    folder_ = inotify_add_watch(events_.get(), folder.c_str(), IN_MOVED_TO);
    commit_record record;
    if (read_record(folder, record) != 0) return errno == EINVAL; /* damaged: nothing to tell */
    if (record.state == commit_state::open) return false;
    write_line(number, record);
    return true;
}

void commit_watch::show() {
    const std::vector<long> numbers = archive_numbers();
    for (long number : numbers) {
        if (number < next_) continue;
        if (!show_one(number) && number == numbers.back()) return;
        inotify_rm_watch(events_.get(), folder_);
        next_ = number + 1;
    }
}

/* False when the client has gone. */
bool commit_watch::wait() {
    pollfd polled[] = {
        {events_.get(), POLLIN, 0}, {bgexec_client_line(), POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    while (poll(polled, 3, -1) < 0)
        if (errno != EINTR) return false;
    char buffer[4096];
    while (read(events_.get(), buffer, sizeof(buffer)) > 0) {}
    return polled[1].revents == 0 && polled[2].revents == 0;
}

int commit_watch::run() {
    events_.reset(inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
    if (!events_ || inotify_add_watch(events_.get(), archive_directory().c_str(), IN_CREATE) < 0)
        return -1;
    if (next_ == 0) next_ = first_to_come();
    do {
        show();
    } while (wait());
    return 0;
}

}  // namespace

int watch_commits(long from) {
    return commit_watch{from}.run();
}

/* The one way in which files are replaced and removed.
 *
 *      step                                        a crash behind it leaves
 *   1. remove a stale temporary file               the old file
 *   2. create the temporary file, mode 0600        the old file, an empty temporary one
 *   3. give it owner and mode of the new file      the same
 *   4. write the contents, sync them               the old file, a temporary one, perhaps whole
 *      1 to 4 for each file that changes
 *   5. look whether all are still the files known  the old files, temporary ones
 *   6. look again, exchange it with the file, and  the old file or the new one, whole
 *      remove the old one (exchange.cpp)
 *      for each file
 *   7. sync the folder of each                     the new files
 *   8. look again and remove each file that is     the new files, some of those that go
 *      to go (exchange.cpp)
 *   9. sync the folder of each                     the new files
 *
 * A failure in steps 1 to 5 leaves all files as they were; what fails later ends the batch where it
 * stands, so that nothing is removed whose contents may have no other place yet. The temporary file
 * is created afresh and never opened through a link, so that nobody who may write the folder can
 * point us elsewhere between the steps. One that a crash leaves is removed at the next start. */

#include "backend/files.h"

#include <errno.h>
#include <fcntl.h>
#include <libdaemon/dlog.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>
#include <new>
#include <string_view>

#include "archive/archive.h"
#include "archive/file_state.h"
#include "archive/journal.h"
#include "backend/exchange.h"
#include "backend/others.h"
#include "daemon/place.h"
#include "llconf/modules.h"
#include "ucfgd/owners.h"

namespace {

std::string temporary_of(const std::string &path) {
    return path + std::string{k_temporary_suffix};
}

int fail(const char *what, const std::string &path, int reason) {
    daemon_log(LOG_ERR, "%s %s failed: %s", what, path.c_str(), std::strerror(reason));
    return reason;
}

int fail_writing(const std::string &path, int reason) {
    return fail("writing to", temporary_of(path), reason);
}

/* Of a tree that the file cannot hold, the library says which node is to blame. */
int fail_unparsing(const std::string &path, int reason) {
    fail_writing(path, reason);
    if (reason == EINVAL) daemon_log(LOG_ERR, "%s", cnf_error_text());
    return reason;
}

/* Only a file that is missing is none: whatever else stands there, or keeps us from seeing it, is
 * not to be replaced. */
int look_at_old(const place &at, struct stat &old, bool &exists) {
    int reason = at.look(old);
    exists = reason == 0;
    if (reason != 0) return reason == ENOENT ? 0 : reason;
    if (S_ISREG(old.st_mode) || S_ISLNK(old.st_mode)) return 0;
    return S_ISDIR(old.st_mode) ? EISDIR : EINVAL;
}

mode_t default_mode() {
    mode_t mask = umask(0);
    umask(mask);
    return 0666U & ~mask;
}

/* What a file that was made like that is to have. */
owner_and_mode wished_of(const owner_and_mode &made, const owner_and_mode *old,
                         const file_attributes &wanted) {
    const bool earlier_counts = wanted.earlier && (wanted.earlier_counts_first || !old);
    owner_and_mode as = earlier_counts ? *wanted.earlier : old ? *old : made;
    if (!earlier_counts && !old && wanted.create_mode >= 0)
        as.mode = static_cast<mode_t>(wanted.create_mode);
    if (wanted.uid >= 0) as.uid = static_cast<uid_t>(wanted.uid);
    if (wanted.gid >= 0) as.gid = static_cast<gid_t>(wanted.gid);
    if (wanted.mode >= 0) as.mode = static_cast<mode_t>(wanted.mode);
    return as;
}

/* Owner before mode: a change of owner clears mode bits. What the module sets and cannot be set is
 * logged only, and the file is then less open than it should be; what the old file had must stay.
 * With an archive, a commit is all that it should be or nothing. */
int apply_attributes(int fd, const char *path, const owner_and_mode *old,
                     const file_attributes &wanted) {
    struct stat now {};
    if (fstat(fd, &now) != 0) return errno;
    const owner_and_mode as = wished_of({now.st_uid, now.st_gid, default_mode()}, old, wanted);
    bool keeps_owner =
        (wanted.uid < 0 && as.uid != now.st_uid) || (wanted.gid < 0 && as.gid != now.st_gid);
    if ((as.uid != now.st_uid || as.gid != now.st_gid) && fchown(fd, as.uid, as.gid) != 0) {
        int reason = errno;
        daemon_log(LOG_ERR, "chown('%s', %d, %d) failed: %s", path, static_cast<int>(as.uid),
                   static_cast<int>(as.gid), std::strerror(reason));
        if (keeps_owner || archive_is_on()) return reason;
    }
    if (fchmod(fd, as.mode) != 0) {
        int reason = errno;
        daemon_log(LOG_ERR, "chmod('%s', %o) failed: %s", path, static_cast<unsigned int>(as.mode),
                   std::strerror(reason));
        if (wanted.mode < 0 || archive_is_on()) return reason;
    }
    return 0;
}

int write_text(int fd, std::string_view text) {
    while (!text.empty()) {
        const ssize_t put = write(fd, text.data(), text.size());
        if (put < 0 && errno != EINTR) return errno;
        if (put > 0) text.remove_prefix(static_cast<size_t>(put));
    }
    return sync_folder(fd);
}

/* Steps 1 to 4. made: the temporary file at the end. */
int write_temporary(const std::string &path, std::string_view text,
                    const file_attributes &attributes, struct stat &made) {
    place at;
    struct stat old {};
    bool exists = false;
    int reason = find_file(path.c_str(), at);
    if (reason == 0) reason = look_at_old(at, old, exists);
    if (reason != 0) return fail_writing(path, reason);
    std::string temporary = temporary_of(at.name());
    if (unlinkat(at.folder(), temporary.c_str(), 0) != 0 && errno != ENOENT)
        return fail_writing(path, errno);
    unique_fd fd{openat(at.folder(), temporary.c_str(),
                        O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600)};
    if (!fd) return fail_writing(path, errno);
    owner_and_mode kept{old.st_uid, old.st_gid, old.st_mode & 07777U};
    bool keeps = exists && S_ISREG(old.st_mode);
    reason = apply_attributes(fd.get(), path.c_str(), keeps ? &kept : nullptr, attributes);
    if (reason != 0) return fail_writing(path, reason);
    reason = write_text(fd.get(), text);
    if (reason != 0) return fail_writing(path, reason);
    return fstat(fd.get(), &made) == 0 && fd.close_now() == 0 ? 0 : fail_writing(path, errno);
}

/* Folders in which something has changed, each once, and held open: one that cannot be opened must
 * fail before the change. */
class changed_folders {
  public:
    int add(const place &at, const std::string &path);
    int sync();

  private:
    struct folder {
        dev_t device;
        ino_t inode;
        unique_fd fd;
        std::string path;
    };
    static constexpr size_t k_most = 16;
    std::vector<folder> folders_;
};

int changed_folders::add(const place &at, const std::string &path) {
    struct stat st {};
    unique_fd fd = at.open_folder();
    if (!fd || fstat(fd.get(), &st) != 0) return fail("opening the folder of", path, errno);
    for (const folder &known : folders_)
        if (known.device == st.st_dev && known.inode == st.st_ino) return 0;
    int reason = folders_.size() == k_most ? sync() : 0;
    folders_.push_back({st.st_dev, st.st_ino, std::move(fd), path});
    return reason;
}

int changed_folders::sync() {
    int failed = 0;
    for (const folder &known : folders_) {
        int reason = sync_folder(known.fd.get());
        if (reason == 0) continue;
        failed = refuse_file(known.path, fail("syncing the folder of", known.path, reason));
    }
    folders_.clear();
    return failed;
}

/* Whether the file that was made is the one there now; its name has changed. */
bool is_file_made(const struct stat &made, const struct stat &now) {
    return made.st_dev == now.st_dev && made.st_ino == now.st_ino && made.st_size == now.st_size &&
           same_time(made.st_mtim, now.st_mtim);
}

using expected_file = std::optional<file_identity>;

expected_file expectation(const file_identity *expected) {
    return expected ? expected_file{*expected} : expected_file{};
}

/* Whether the file there is still the one that the commit knows. */
int check_expected(const std::string &path, const expected_file &expected) {
    if (!expected || same_identity(*expected, identity_at(path.c_str()))) return 0;
    return refuse_for_others(path, "at the moment of the commit");
}

/* Steps 5 and 6 of one file. now: what stands there behind them. */
int rename_one(const std::string &path, const expected_file &expected, changed_folders &folders,
               struct stat &now) {
    place at;
    int reason = find_file(path.c_str(), at);
    if (reason == 0) reason = folders.add(at, path);
    if (reason == 0) reason = check_expected(path, expected);
    if (reason != 0) return reason;
    std::string temporary = temporary_of(at.name());
    reason = exchange_file(at, temporary, expected ? &*expected : nullptr);
    if (reason == 0) {
        if (at.look(now) != 0) now = {};
        return 0;
    }
    if (reason == ESTALE) return refuse_for_others(path, "at the moment of the commit");
    daemon_log(LOG_ERR, "rename('%s', '%s') failed: %s", temporary_of(path).c_str(), path.c_str(),
               std::strerror(reason));
    return reason;
}

/* What the file at path will be when its temporary one has taken its place. 0, or -1 with errno. */
int read_temporary(const std::string &path, file_state &state, std::string &text) {
    place at;
    errno = find_file(path.c_str(), at);
    if (errno != 0) return -1;
    return read_state_at(at.folder(), temporary_of(at.name()), state, text);
}

/* Step 8 of one file. */
int remove_one(const std::string &path, const expected_file &expected, changed_folders &folders) {
    place at;
    int reason = at.find(path.c_str(), link_at_end::is_meant);
    if (reason == 0) reason = folders.add(at, path);
    if (reason == 0 && identity_at(path.c_str()).exists) reason = check_expected(path, expected);
    if (reason == ESTALE) return reason;
    if (reason == 0)
        reason = withdraw_file(at, temporary_of(at.name()), expected ? &*expected : nullptr);
    if (reason == 0) return 0;
    if (reason == ESTALE) return refuse_for_others(path, "at the moment of the commit");
    daemon_log(LOG_ERR, "unlink('%s') failed: %s", path.c_str(), std::strerror(reason));
    return reason == ENOENT ? 0 : reason;
}

}  // namespace

cnfnode *read_file(const cnfmodule *module, const char *path, file_look &look) {
    look = {};
    unique_fd fd{place_open(path, O_RDONLY | O_NOCTTY | O_NONBLOCK)};
    const bool is_open = fd && look_at(fd.get(), look) == 0;
    if (is_open)
        if (cnfnode *tree = cnfmodule_parse_fd(module, path, fd.get())) return tree;
    int reason = errno;
    daemon_log(LOG_WARNING, "parsing %s failed: %s\n", path, std::strerror(reason));
    if (is_open) {
        daemon_log(LOG_ERR, "%s", cnf_error_text());
    } else {
        daemon_log(LOG_ERR, "%s: %s", path, std::strerror(reason));
    }
    errno = reason;
    return nullptr;
}

bool is_temporary_name(const char *name) {
    return std::string_view(name).ends_with(k_temporary_suffix);
}

file_batch::~file_batch() {
    try {
        for (size_t i = renamed_; i < written_.size(); i++) {
            place at;
            if (find_file(written_[i].path.c_str(), at) != 0) continue;
            unlinkat(at.folder(), temporary_of(at.name()).c_str(), 0);
        }
    } catch (const std::bad_alloc &) {
        return; /* the next start removes them */
    }
}

int file_batch::plan(const cnfmodule *module, const char *path, const cnfnode *tree,
                     const file_attributes &attributes) {
    shared_text text;
    const int reason = text_of_tree(module, tree, text);
    if (reason != 0) return fail_unparsing(path, reason);
    struct stat st {};
    const bool exists = place_stat(path, &st) == 0;
    const owner_and_mode old{st.st_uid, st.st_gid, st.st_mode & 07777U};
    const owner_and_mode as =
        wished_of({geteuid(), getegid(), default_mode()}, exists ? &old : nullptr, attributes);
    plan_->push_back({module->name, path, false, as, "", std::string{text->view()}});
    return 0;
}

int file_batch::write(const cnfmodule *module, const char *path, const cnfnode *tree,
                      const file_attributes &attributes, const file_identity *expected) {
    if (is_plan()) return plan(module, path, tree, attributes);
    daemon_log(LOG_NOTICE, "writing file %s", path);
    member &one = written_.emplace_back();
    one = {module->name, path, expectation(expected), tree};
    int reason = text_of_tree(module, tree, one.text);
    if (reason != 0) {
        fail_unparsing(path, reason);
    } else {
        reason = write_temporary(path, one.text->view(), attributes, one.made);
    }
    if (reason == 0) return 0;
    if (reason != EINVAL) refuse_file(path, reason);
    /* Its temporary file stays, to be looked at; with an archive nothing does. */
    if (!archive_is_on()) written_.pop_back();
    reason_ = reason;
    return reason;
}

void file_batch::remove(const cnfmodule *module, const char *path, const file_identity *expected) {
    if (is_plan())
        plan_->push_back({module->name, path, true, {}, "", ""});
    else
        removed_.push_back({module->name, path, expectation(expected)});
}

int file_batch::note_written(const member &one, commit_journal &journal) const {
    file_state after{file_kind::regular, one.made.st_mode & 07777U, one.made.st_uid,
                     one.made.st_gid, ""};
    std::string text;
    if (!one.text && read_temporary(one.path, after, text) != 0)
        return fail("reading", one.path, errno);
    const std::string_view contents = one.text ? one.text->view() : text;
    return journal.add(one.module, name_in_module(one.path), after, contents) == 0 ? 0 : errno;
}

void file_batch::forget(const std::string &path) {
    const auto is_meant = [&path](const auto &one) { return one.path == path; };
    std::erase_if(written_, is_meant);
    if (plan_) std::erase_if(*plan_, is_meant);
}

int file_batch::note_in(commit_journal &journal) const {
    if (reason_ != 0) return reason_;
    for (const member &one : written_)
        if (const int reason = note_written(one, journal)) return reason;
    for (const member &one : removed_)
        if (journal.add(one.module, name_in_module(one.path), {}, "") != 0) return errno;
    return 0;
}

int file_batch::rename_all() {
    changed_folders folders;
    int reason = 0;
    while (reason == 0 && renamed_ < written_.size()) {
        const member &one = written_[renamed_];
        struct stat now {};
        reason = rename_one(one.path, one.expected, folders, now);
        if (reason != 0) {
            refuse_file(one.path, reason);
            break;
        }
        if (one.text && is_file_made(one.made, now)) tell_written(one.tree, identity_of(now));
        renamed_++;
    }
    int synced = folders.sync();
    return reason != 0 ? reason : synced;
}

int file_batch::remove_all() {
    changed_folders folders;
    int failed = 0;
    for (const member &one : removed_) {
        int reason = remove_one(one.path, one.expected, folders);
        if (reason != 0) failed = refuse_file(one.path, reason);
    }
    int synced = folders.sync();
    return failed != 0 ? failed : synced;
}

std::string file_batch::candidate(size_t index) const {
    place at;
    errno = find_file(written_[index].path.c_str(), at);
    const std::string file = errno == 0 ? real_path(at) : "";
    return file.empty() ? file : temporary_of(file);
}

void file_batch::log_merged() const {
    for (size_t i = 0; i < renamed_; i++)
        log_if_merged(written_[i].path);
}

int file_batch::look_again() {
    int refused = 0;
    for (const auto *list : {&written_, &removed_}) {
        for (const member &one : *list) {
            const bool is_gone = list == &removed_ && !identity_at(one.path.c_str()).exists;
            const int reason = is_gone ? 0 : check_expected(one.path, one.expected);
            if (reason != 0) refused = reason;
        }
    }
    return refused;
}

int file_batch::install() {
    if (reason_ == 0) reason_ = look_again();
    if (reason_ == 0) reason_ = rename_all();
    if (reason_ == 0) reason_ = remove_all();
    return reason_;
}

int replace_file(const cnfmodule *module, const char *path, const cnfnode *tree,
                 const file_attributes &attributes) {
    try {
        file_batch batch;
        batch.write(module, path, tree, attributes, nullptr);
        return batch.install();
    } catch (const std::bad_alloc &) {
        return fail("writing to", path, ENOMEM);
    }
}

int remove_file(const char *path) {
    try {
        changed_folders folders;
        int reason = remove_one(path, {}, folders);
        int synced = folders.sync();
        return reason != 0 ? reason : synced;
    } catch (const std::bad_alloc &) {
        return fail("removing", path, ENOMEM);
    }
}

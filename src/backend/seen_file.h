#ifndef UCFGD_BACKEND_SEEN_FILE_H
#define UCFGD_BACKEND_SEEN_FILE_H

#ifndef __cplusplus
#    error "seen_file.h is for the backend's own sources"
#endif

#include <sys/stat.h>

#include <memory>
#include <optional>
#include <string_view>

struct cnf_source;
struct cnfnode;

/* Which file stood under a name, and whether it has changed since. */
struct file_identity {
    bool exists = false;
    dev_t device = 0;
    ino_t inode = 0;
    off_t size = 0;
    struct timespec modified = {};
    struct timespec changed = {};
};

file_identity identity_of(const struct stat &st);

/* What stands under the name at path now; what cannot be looked at is not there. */
file_identity identity_at(const char *path);

bool same_time(const struct timespec &a, const struct timespec &b);
bool same_identity(const file_identity &a, const file_identity &b);

/* What a tree was read from, or written to. It goes with the tree from copy to copy: a session's
 * edits are based on the file as it was when the session read it, whatever has been read since. */
struct seen_file {
    file_identity identity;
    /* The clock of files is coarse: of one that had changed a moment before it was looked at, the
     * next change may not show. */
    bool settled = true;
    std::shared_ptr<const cnf_source> source; /* its text; null where that is not known */

    /* Whether this is certainly what stands there. */
    bool is_still(const file_identity &now) const;
    /* The text; none where it is not known. A file that is not there has an empty one. */
    std::optional<std::string_view> text() const;
};

using shared_seen_file = std::shared_ptr<const seen_file>;

/* A look at an open file, before it is read. */
struct file_look {
    struct stat st = {};
    bool settled = false;
};

/* fstat and place_stat. */
int look_at(int fd, file_look &look);
int look_at(const char *path, file_look &look);

/* What was read into tree (null: nothing) behind that look. May throw std::bad_alloc. */
seen_file seen_in(const file_look &look, const cnfnode *tree);

#endif

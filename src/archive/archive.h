#ifndef UCFGD_ARCHIVE_ARCHIVE_H
#define UCFGD_ARCHIVE_ARCHIVE_H

#ifndef __cplusplus
#    error "archive.h is for C++ sources"
#endif

#include <stdint.h>

#include <string>
#include <vector>

#include "archive/record.h"
#include "ucfgd/owners.h"

/* The archive: a directory with one folder a commit, named by its number.
 *
 *  1. There is none until archive_configure has been called: every function but that one may be
 *     called only when archive_is_on().
 *  2. Numbers rise and are never used twice: the newest folder is never trimmed.
 *  3. Functions return 0, or -1 with errno; what fails is logged once, here.
 */

/* Sets the directory (prefix and all), how many commits are kept, and how many bytes they may take.
 * Makes the directory when it is missing. 0; -1 after one line in the log when it cannot be used:
 * it must be a directory of the daemon's own user that nobody else may enter. The archive is on all
 * the same, and whoever needs it fails until the directory can be used. */
int archive_configure(const std::string &directory, long kept, int64_t size);

/* No archive from here on. */
void archive_forget(void);

bool archive_is_on(void);

/* Its directory, empty without one. */
const std::string &archive_directory(void);

/* The numbers of the commits that are there, the oldest first. errno is 0, or, after a line in the
 * log, tells why there may be more. */
std::vector<long> archive_numbers(void);

/* The folder of a commit. */
std::string archive_folder(long number);

/* Makes the folder of a new commit, empty, on the disk. */
int archive_new_folder(long &number);

/* Removes a commit with all its files. */
int archive_remove(long number);

/* What a process holds while it changes files through the archive, and while it changes a state:
 * the child of a commit, whoever puts back, confirms or undoes. It goes with the process. */
class archive_lock {
  public:
    /* Waits so many milliseconds at most. When another process holds it all the time, held() is
     * false and errno EAGAIN; when the directory cannot be used, that of the reason. */
    explicit archive_lock(long milliseconds);
    bool held() const { return held_; }

  private:
    unique_fd fd_;
    bool held_ = false;
};

/* Removes the oldest commits until no more are left than are kept, none of them open, a trial or
 * the newest. */
int archive_trim(void);

#endif

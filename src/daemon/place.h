#ifndef UCFGD_DAEMON_PLACE_H
#define UCFGD_DAEMON_PLACE_H

#ifndef __cplusplus
#    error "place.h is for the daemon's own sources"
#endif

#include <dirent.h>
#include <sys/stat.h>

#include <string>

#include "ucfgd/owners.h"

/* Where the files of modules are.
 *
 *  1. Paths are complete: the module files prefix stands before those that belong below it. A path
 *     below the prefix is looked up as if the prefix were the root of the system: links on the way,
 *     and "..", lead to what they mean inside of it and never out. Every other path, and each one
 *     when there is no prefix, is the kernel's to look up.
 *  2. What stands for a system call answers like it, with -1 or null and errno. Everything else
 *     answers 0 or an error number, and leaves errno undefined. Nothing throws.
 */

enum class link_at_end { is_meant, is_followed };

/* A name in a folder that is held open: what happens there happens in that folder, wherever its
 * path leads meanwhile. */
class place {
  public:
    /* Looks path up; its last component need not exist. A link that is followed there may dangle:
     * then the place is where it leads. */
    int find(const char *path, link_at_end rule);

    /* The folder, for the calls that take one; good for no more than looking names up. */
    int folder() const { return folder_.get(); }
    const std::string &name() const { return name_; }
    int look(struct stat &st) const;
    /* The folder, to be synced. */
    unique_fd open_folder() const;

  private:
    int follow(const std::string &path, int links);

    unique_fd folder_;
    std::string name_;
};

/* The place of the file that path stands for: what a link there leads to, or the link itself when
 * it leads into a folder that is not there. 0 or an error number. */
int find_file(const char *path, place &at);

/* fsync, whatever signals come; what cannot be synced needs not be. 0 or an error number. */
int sync_folder(int fd);

/* stat, lstat, readlink, open (never creating), opendir, unlink and symlink, by rule 1. */
int place_stat(const char *path, struct stat *st);
int place_lstat(const char *path, struct stat *st);
int place_readlink(const char *path, std::string &target); /* EINVAL for what is no link */
int place_open(const char *path, int flags);
DIR *place_opendir(const char *path);
int place_unlink(const char *path);
int place_symlink(const char *target, const char *path);

/* Makes path a symbolic link, in the place of the link or file that is there: at every moment there
 * is one or the other. */
int place_relink(const char *target, const char *path);

#endif

#ifndef UCFGD_BACKEND_FILES_H
#define UCFGD_BACKEND_FILES_H

#ifndef __cplusplus
#    error "files.h is for the backend's own sources"
#endif

#include <glob.h>

#include <span>

struct cnfmodule;
struct cnfnode;

/* The files below a directory that match a pattern, in glob's order. The pattern with its directory
 * has 255 characters; more is cut. complete() tells that all of the pattern was used and every
 * directory could be read: otherwise a file that is not among the matches may well exist. */
class directory_glob {
  public:
    directory_glob(const char *directory, const char *pattern);
    directory_glob(const directory_glob &) = delete;
    directory_glob &operator=(const directory_glob &) = delete;
    ~directory_glob() { globfree(&matches_); }

    std::span<char *const> paths() const { return {matches_.gl_pathv, count_}; }
    bool complete() const { return complete_; }

  private:
    glob_t matches_{};
    size_t count_ = 0;
    bool complete_ = false;
};

/* What follows "directory/" in path, or null when path does not begin with that. */
const char *name_below(const char *directory, const char *path);

/* Whether name is that of a temporary file of ours: one that a crash left behind is no
 * configuration. */
bool is_temporary_name(const char *name);

/* Whether name can be that of a file inside a directory instance: not empty, not absolute, no "."
 * or ".." in it. */
bool is_name_below(const char *name);

/* What the new file gets; negative: what the old one has. */
struct file_attributes {
    int mode;
    int uid;
    int gid;
};

/* Replaces the file at path by tree as module writes it. A symbolic link stays, and the file that
 * it leads to is replaced. 0; -1 with errno after one line in the log, and then the file is the old
 * one, whole. */
int replace_file(const cnfmodule *module, const char *path, const cnfnode *tree,
                 const file_attributes &attributes);

#endif

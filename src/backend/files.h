#ifndef UCFGD_BACKEND_FILES_H
#define UCFGD_BACKEND_FILES_H

#ifndef __cplusplus
#    error "files.h is for the daemon's own sources"
#endif

#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "archive/file_state.h"
#include "backend/prepared.h"
#include "backend/seen_file.h"

class commit_journal;
struct cnfmodule;
struct cnfnode;

/* How the files of modules are read, replaced and removed. Paths are complete and looked up as
 * place.h says. Functions answer 0 or an error number, after one line in the log. */

/* The tree of the file at path, which belongs to the caller; null with errno after lines in the
 * log. look tells which file that was, also after a failure; zero when none was opened. */
cnfnode *read_file(const cnfmodule *module, const char *path, file_look &look);

/* Whether name is that of a temporary file of ours: one that a crash left behind is no
 * configuration. */
bool is_temporary_name(const char *name);

/* Owner and mode of a file. */
struct owner_and_mode {
    uid_t uid;
    gid_t gid;
    mode_t mode;
};

/* Where a written file has its owner and mode from: what the module sets (negative: nothing), then
 * the file that it replaces, then the earlier one that it comes from, then the system's defaults. A
 * file with another one's contents has that one's, whatever it replaces. */
struct file_attributes {
    int mode = -1;
    int uid = -1;
    int gid = -1;
    int create_mode = -1; /* of a file that was never there */
    std::optional<owner_and_mode> earlier;
    bool earlier_counts_first = false;
};

/* What a commit would make of one file. */
struct planned_change {
    std::string module; /* its name */
    std::string path;   /* complete; empty for a command */
    bool removed = false;
    owner_and_mode attributes = {}; /* of a file that is written */
    std::string before;             /* of a command only */
    std::string text;
};

/* Files that change together: all new contents are on the disk before the first file is replaced,
 * and all files are replaced before the first one is removed. */
class file_batch {
  public:
    file_batch() = default;
    /* A batch for which nothing is written: it only collects what it would do. */
    explicit file_batch(std::vector<planned_change> &plan) : plan_(&plan) {}
    file_batch(const file_batch &) = delete;
    file_batch &operator=(const file_batch &) = delete;
    /* What has been written beside and not been installed is removed. */
    ~file_batch();

    /* Writes tree as module does beside the file at path. A link stays, and the file that it leads
     * to is meant; one that leads nowhere is itself replaced. expected (null: whatever it is) is
     * the file that tree takes the place of. May throw std::bad_alloc. */
    int write(const cnfmodule *module, const char *path, const cnfnode *tree,
              const file_attributes &attributes, const file_identity *expected);

    /* Notes that the file at path, one of that module, is to go; one that is gone already is no
     * failure. */
    void remove(const cnfmodule *module, const char *path, const file_identity *expected);

    /* Takes a file that has been written out again: it is about to be written anew. */
    void forget(const std::string &path);

    /* How many files have been written, and where the new contents of one stand: empty with errno.
     */
    size_t written() const { return written_.size(); }
    std::string candidate(size_t index) const;

    /* Somebody may write to the new contents of that one. */
    void doubt(size_t index) { written_[index].text = nullptr; }

    bool is_plan() const { return plan_ != nullptr; }

    /* Does it all, unless a write has failed: that one's error number then. A step that fails ends
     * it. ESTALE with the error record set where another file than expected stands. */
    int install();

    /* Whether all written files stand in their places, whatever became of the rest. */
    bool has_replaced() const { return renamed_ == written_.size(); }

    /* Logs which of the replaced files were merged with changes made by others. */
    void log_merged() const;

    /* Notes in a journal, before install, what will become of each file. 0 or an error number. May
     * throw std::bad_alloc. */
    int note_in(commit_journal &journal) const;

  private:
    struct member {
        std::string module; /* its name */
        std::string path;
        std::optional<file_identity> expected;
        const cnfnode *tree = nullptr;
        shared_text text = nullptr; /* null: a check may have changed what was written */
        struct stat made = {};      /* the file, when that had been written */
    };
    int note_written(const member &one, commit_journal &journal) const;
    int plan(const cnfmodule *module, const char *path, const cnfnode *tree,
             const file_attributes &attributes);
    int look_again();
    int rename_all();
    int remove_all();

    std::vector<planned_change> *plan_ = nullptr;
    std::vector<member> written_;
    std::vector<member> removed_;
    size_t renamed_ = 0; /* how many of those written stand in their place */
    int reason_ = 0;
};

/* A batch of one. */
int replace_file(const cnfmodule *module, const char *path, const cnfnode *tree,
                 const file_attributes &attributes);

/* Removes the file at path and syncs its folder. */
int remove_file(const char *path);

#endif

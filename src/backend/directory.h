#ifndef UCFGD_BACKEND_DIRECTORY_H
#define UCFGD_BACKEND_DIRECTORY_H

#ifndef __cplusplus
#    error "directory.h is for the backend's own sources"
#endif

#include <stdint.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>

#include "backend/files.h"
#include "backend/llconf_item.h"
#include "backend/seen_file.h"
#include "llconf/nodes.h"
#include "ucfgd/owners.h"

/* Directory instances: one tree over many files, the members, with a record for each.
 *
 *  1. The records belong to one reading of the directory and go with its tree, from copy to copy:
 *     what a session deletes are the files that its own tree once had, whatever others add
 *     meanwhile.
 *  2. A commit writes the members that have changed, and removes those that were read and are not
 *     in the tree any more. Every other file in the directory is somebody else's. */

struct item_record;

enum class member_state : unsigned char {
    read,
    unread, /* it is there, and not in the tree: nobody may take its name */
    gone    /* it was there once; its owner and mode are those of a member that takes its name */
};

struct member_record {
    member_state state = member_state::unread;
    uint64_t source = 0; /* cnfnode_source of the tree that was read from it */
    owner_and_mode attributes = {};
    seen_file seen = {};
};

class directory_record {
  public:
    /* The member of that name, or the one that a node of that source was read from; null without.
     */
    const member_record *named(const std::string &name) const;
    const std::string *name_of(uint64_t source) const;

    /* Why the directory could not be seen whole, so that nothing in it is ours to write; else 0. */
    int blocked = 0;
    std::map<std::string, member_record> members;
    std::unordered_map<uint64_t, std::string> sources;
};

using shared_record = std::shared_ptr<const directory_record>;

/* Whether name can be that of a member of a directory with this pattern. */
bool is_member_name(const char *pattern, const char *name);

/* Reads the members of an item's directory, dirpath, that match pattern; those that stand in its
 * tree as they are in their files are taken from there. Those that cannot be parsed are logged and
 * become unread; what the item's records knew besides becomes gone. 0, or ENOMEM. */
int read_directory(const item_record *item, const char *dirpath, const char *pattern,
                   owned<cnfnode, destroy_cnftree> &tree, shared_record &record);

/* Whether reading them again would find the same. */
bool same_members(const char *dirpath, const char *pattern, const directory_record &record);

/* Takes what others did to its changed members into the tree of a directory instance and its
 * records. 0 or an error number, after a line in the log. May throw std::bad_alloc. */
int merge_members(const llconf_item *lli, shared_record &record);

/* The writing of what has changed in the tree of a directory instance, read with these records
 * (null: never). */
class directory_write {
  public:
    directory_write(const llconf_item *lli, const directory_record *record);

    /* Writes beside the files what changes, and notes what goes. 0 or an error number, after a line
     * in the log. May throw std::bad_alloc. */
    int prepare(file_batch &batch);

    /* The first part of prepare: takes in what others did, and checks names. */
    int look();

    /* The records as look has left them. */
    shared_record looked() const { return std::make_shared<const directory_record>(record_); }

    /* The records of the files as they are when the batch has been installed. */
    shared_record done();

  private:
    bool is_changed(const cnfnode *member) const;
    int check(cnfnode *&member);
    int check_new(const char *name) const;
    int take_in(cnfnode *&member, member_record &known);
    int look_at_removed();
    bool is_removed(const std::string &name, const member_record &member) const;
    int write(const cnfnode *member, file_batch &batch);
    int refuse(const char *name, int reason) const;
    std::string path_of(const std::string &name) const;
    void note_written(const cnfnode *member);

    const llconf_item *lli_;
    directory_record record_;
    std::string directory_;
    std::unordered_set<std::string_view> names_;
};

/* All of it, all or nothing as far as file_batch goes; the records become those of the files as
 * they are then. 0 or an error number, after a line in the log. May throw std::bad_alloc. */
int write_directory(const llconf_item *lli, shared_record &record);

/* Removes the temporary files that a commit which was cut off left beside members; record: null for
 * a directory that was not read. */
void remove_member_temporaries(const char *dirpath, const char *pattern,
                               const directory_record *record);

#endif

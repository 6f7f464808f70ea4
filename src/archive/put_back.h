#ifndef UCFGD_ARCHIVE_PUT_BACK_H
#define UCFGD_ARCHIVE_PUT_BACK_H

#ifndef __cplusplus
#    error "put_back.h is for C++ sources"
#endif

#include <string>
#include <vector>

#include "archive/record.h"

/* The way back of a commit: each of its names becomes again what it was before, the last one first.
 *
 * What stands there now decides. Where it is what the commit made, the old state comes back; where
 * it is the old one already, nothing happens. Where somebody else has changed it meanwhile, their
 * changes and the old state are merged line by line; where both changed the same lines, theirs stay
 * and the old contents are kept beside them as PATH.ucfgd-NUMBER.
 */

struct put_back_report {
    std::vector<std::string> restored; /* paths, the prefix left out */
    std::vector<std::string> merged;
    std::vector<std::string> kept_aside;
    std::vector<commit_note> notes; /* what the record tells of these two */
    std::vector<size_t> commands;   /* indexes of command instances: the caller's to put back */
};

/* Puts the names of a commit back and logs each one that changes. 0 when
 * all is done; -1 with errno after a line in the log when a name could not be written: the others
 * are put back all the same, and the call can be repeated. The record stays as it is. */
int put_back(const commit_record &record, put_back_report &report);

/* Who gives commands their old texts: set once the modules are known. */
using commands_back = void (*)(const commit_record &record, const put_back_report &report);
void put_back_set_commands(commands_back give);

/* Puts back, commands too, and then gives the commit its new state, "undone" or "failed", with
 * notes of the files in which others' changes were found. While nobody is known who gives commands
 * their texts, a commit that has some keeps its state, and the call can be repeated. */
int end_commit(commit_record &record, commit_state state);

/* Whether a commit is open: one that runs, or one that was interrupted. */
bool archive_has_open(void);

/* What the start does before anybody may connect: puts back every open commit, removes folders that
 * a crash has left without a record, the temporary files beside the names of an open commit, and
 * commits beyond the bounds. Waits so long for the child of an earlier daemon's commit. 0, or -1
 * when something could not be put back. */
int archive_recover(long milliseconds);

#endif

#ifndef UCFGD_ARCHIVE_RECORD_H
#define UCFGD_ARCHIVE_RECORD_H

#ifndef __cplusplus
#    error "record.h is for the archive's own sources and its users in C++"
#endif

#include <stdint.h>
#include <time.h>

#include <string>
#include <vector>

#include "archive/file_state.h"

/* The record of one commit: who, when, why, what became of it, and which files it changed. It is a
 * file of the archive in the daemon's own syntax, so that a person can read it.
 *
 * Functions return 0, or -1 with errno (EINVAL for a record that does not say what it must).
 */

enum class commit_state {
    open,   /* files may have been replaced, or not: the next start puts back */
    done,   /* all files are the new ones */
    trial,  /* the same, but it is undone by itself unless it is confirmed in time */
    undone, /* it was in effect, and its files have been put back */
    failed  /* it never was in effect */
};

/* One name that the commit changed. Paths stand below the module prefix: "/etc/hosts". */
struct archived_file {
    std::string module;
    std::string path; /* empty for a command instance */
    file_state before;
    file_state after;
};

/* What a hook did. */
struct commit_note {
    std::string what;
    std::string status;
    std::string text;
};

struct commit_record {
    long number = 0;
    commit_state state = commit_state::open;
    std::string user;
    std::string listener;
    std::string peer;
    std::string session; /* tells sessions apart; not the identifier that resumes one */
    time_t time = 0;
    std::string comment;
    long trial_seconds = 0; /* 0 for a commit that is for good */
    int64_t trial_end = 0;  /* loop_now milliseconds, which count from the boot below */
    std::string trial_boot; /* the boot's identifier */
    std::vector<archived_file> files;
    std::vector<commit_note> notes;
};

/* "open", "done" ...; and back. */
const char *state_text(commit_state state);
int read_state_text(const std::string &text, commit_state &state);

/* "replaced", "created" or "removed". */
const char *change_text(const archived_file &file);

/* What the texts of two versions of a file do not tell, a line each: "# mode of NAME: 0644 ->
 * 0600", "# owner of NAME: 0:0 -> 0:33", "# created: NAME", "# removed: NAME". */
std::string attribute_changes(const std::string &name, const file_state &before,
                              const file_state &after);

/* The record in a commit's folder. Writing replaces it by one rename and syncs file and folder. */
int read_record(const std::string &folder, commit_record &record);
int write_record(const std::string &folder, const commit_record &record);

/* The names of the contents of the index-th file (from 0) in the folder. */
std::string before_name(const std::string &folder, size_t index);
std::string after_name(const std::string &folder, size_t index);

#endif

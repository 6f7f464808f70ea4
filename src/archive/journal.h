#ifndef UCFGD_ARCHIVE_JOURNAL_H
#define UCFGD_ARCHIVE_JOURNAL_H

#ifndef __cplusplus
#    error "journal.h is for C++ sources"
#endif

#include <string>
#include <string_view>

#include "archive/record.h"

/* The way of one commit through the archive:
 *
 *      step                                            a crash behind it leaves
 *   1. add, for each name that will change: its        the old files; a folder without a record,
 *      contents before and after                       which the next start removes
 *   2. seal: the record, "open"                        the old files; an open commit
 *   3. the caller replaces the files                   old and new ones; an open commit, which the
 *                                                      next start puts back
 *   4. finish: the record, "done" or "trial"           the new files
 *
 * A journal that is destroyed unsealed leaves nothing behind. One that is sealed and not finished
 * stays open, whatever becomes of the process: put_back ends it.
 *
 * Functions return 0, or -1 with errno after one line in the log.
 */
class commit_journal {
  public:
    /* The record says who, why, and for how long on trial; the rest is filled in. */
    explicit commit_journal(commit_record author) : record_(std::move(author)) {}
    commit_journal(const commit_journal &) = delete;
    commit_journal &operator=(const commit_journal &) = delete;
    ~commit_journal();

    /* Notes that path, a name of that module, will become what after and text say. */
    int add(const std::string &module, const std::string &path, file_state after,
            std::string_view text);

    /* Notes what a command put out before and what it will be given. */
    int add_command(const std::string &module, std::string_view before, std::string_view after);

    /* Step 2. Without any name added it does nothing, and finish neither. */
    int seal();

    /* Step 4. */
    int finish();

    const commit_record &record() const { return record_; }

  private:
    int start();
    int keep(archived_file file, std::string_view before, std::string_view after);

    commit_record record_;
    std::string folder_; /* empty until the first name is added */
    bool sealed_ = false;
};

/* Who commits, why, and for how long on trial: set by the session before it commits. Its number is
 * that of the last commit of this process, 0 before the first; its notes are what hooks say before
 * the record is there, which seal takes along. */
commit_record &commit_author(void);

/* Adds what a hook did to the record of a commit. */
int journal_note(long number, const commit_note &note);

#endif

#ifndef UCFGD_BACKEND_WHOLE_COMMIT_H
#define UCFGD_BACKEND_WHOLE_COMMIT_H

#ifndef __cplusplus
#    error "whole_commit.h is for C++ sources"
#endif

#include <string>
#include <vector>
#include "archive/put_back.h"

#include "backend/files.h"
#include "backend/llconf_item.h"

/* A commit of all modules together, all files or none: the way of a daemon with an archive.
 * whole_commit.cpp has the table of its steps. */

/* Writes the dirty items of a list and runs their hooks; what those edit is written as a commit of
 * its own behind it. 0; or an error number, after lines in the log and with the error record set:
 * then all files are as they were. May throw std::bad_alloc before anything has been replaced. */
int write_all_or_none(llconf_item *list);

/* What a commit right now would do. */
struct commit_plan {
    std::vector<planned_change> changes;
    std::vector<std::string> hooks; /* that would run: which and whose */
};

/* Finds that out without writing or running anything: what pre-commit hooks would edit is not in
 * it. 0; or an error number, with the error record set, for a commit that would be refused. May
 * throw std::bad_alloc. */
int plan_commit(llconf_item *list, commit_plan &plan);

/* Gives the commands of a commit that has been put back their old texts; what fails is logged. */
void put_back_commands(const commit_record &record, const put_back_report &report);

#endif

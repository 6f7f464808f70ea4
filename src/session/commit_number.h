#ifndef UCFGD_SESSION_COMMIT_NUMBER_H
#define UCFGD_SESSION_COMMIT_NUMBER_H

#ifndef __cplusplus
#    error "commit_number.h is for C++ sources"
#endif

#include "archive/record.h"

/* The record of the commit of that number, as definitions and clients write it. False when there is
 * none: the error record and the reason of the failure (param_failure.h) say so. */
bool find_commit(const char *number, commit_record &record);

#endif

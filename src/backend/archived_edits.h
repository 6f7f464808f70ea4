#ifndef UCFGD_BACKEND_ARCHIVED_EDITS_H
#define UCFGD_BACKEND_ARCHIVED_EDITS_H

#ifndef __cplusplus
#    error "archived_edits.h is for C++ sources"
#endif

#include "archive/record.h"
#include "tree/trns.h"

/* What the archive holds as edits of a transaction: to be looked at, added to and committed like
 * anything that a client has set. Contents come, and by the commit owner and mode, where the module
 * does not set them. A file that was not there is an empty tree, and removed by the commit unless
 * something is added; a member of a directory is deleted.
 *
 * 0; or -1, and the error record says why: then the caller drops the transaction, which may hold
 * some of the edits. May throw std::bad_alloc. */

/* The files of all modules as they stood after a commit, as far as commits have touched them. Those
 * whose module is no more are left out, which is logged. */
int load_after_commit(trns_ctx *ctx, const commit_record &record);

/* Takes back what one commit changed, and nothing else: the lines that others have changed since
 * stay. Refused where they are the same lines. */
int undo_commit(trns_ctx *ctx, const commit_record &record);

/* What the commit found (false) or left (true) in the files that it changed. */
int show_commit(trns_ctx *ctx, const commit_record &record, bool after);

#endif

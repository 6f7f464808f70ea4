#ifndef UCFGD_BACKEND_OTHERS_H
#define UCFGD_BACKEND_OTHERS_H

#ifndef __cplusplus
#    error "others.h is for the backend's own sources"
#endif

#include <optional>
#include <string>

#include "backend/seen_file.h"
#include "llconf/nodes.h"
#include "ucfgd/owners.h"

/* What others do to a file between the moment at which it was read and the one at which a commit
 * replaces it. Nothing of theirs gets lost: changes that do not touch each other are merged line by
 * line, all else refuses the commit. Functions answer 0 or an error number, after a line in the
 * log; ESTALE with the error record set for a refusal. */

struct cnfmodule;
struct item_record;

/* What stands in a file by now. */
struct others_work {
    std::optional<seen_file> now;           /* none: what was read still stands there */
    owned<cnfnode, destroy_cnftree> merged; /* both sides' changes, based on now; null: the tree
                                               is good as it is */
};

/* Looks at the file at path, of which tree (null: it is to be removed) is an edit; seen tells what
 * was read. May throw std::bad_alloc. */
int look_for_others(const cnfmodule *module, const std::string &path, const seen_file &seen,
                    const cnfnode *tree, others_work &work);

/* Takes what others did into the tree of an item that is about to be written, and into what it has
 * seen. May throw std::bad_alloc. */
int take_in_others(item_record *item);

/* Takes into the tree of an item what an earlier item of the same file, ahead of it in the commit,
 * makes of that file. May throw std::bad_alloc. */
int take_in_item(item_record *item, const item_record *earlier);

/* The reason, noted with the file in the error record unless there is an earlier one. */
int refuse_file(const std::string &path, int reason);

/* ESTALE: others have changed the file, where says which lines or when. The error record names it
 * behind those that were refused so before. */
int refuse_for_others(const std::string &path, const std::string &where);

/* Logs of a file that has just been written, when it is so, that it was merged. */
void log_if_merged(const std::string &path);

#endif

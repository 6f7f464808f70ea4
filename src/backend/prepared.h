#ifndef UCFGD_BACKEND_PREPARED_H
#define UCFGD_BACKEND_PREPARED_H

#ifndef __cplusplus
#    error "prepared.h is for the backend's own sources"
#endif

#include <memory>
#include <string_view>

#include "backend/seen_file.h"
#include "ucfgd/owners.h"

/* The texts of trees, and those that a commit takes through its fork. prepared.cpp tells how. */

struct cnfmodule;
struct item_record;
struct cnfnode;

struct tree_text {
    owned_str bytes;
    size_t length = 0;
    std::string_view view() const { return {bytes.get(), length}; }
};

using shared_text = std::shared_ptr<const tree_text>;

/* What module writes for a tree (null: nothing): the text that was prepared for it, where there is
 * one. 0 or an error number (EINVAL: cnf_error_text tells the node). May throw std::bad_alloc. */
int text_of_tree(const cnfmodule *module, const cnfnode *tree, shared_text &text);

/* Makes the text of a tree for the commit that is about to be forked. 0 or an error number, as
 * above. */
int prepare_text(const cnfmodule *module, const cnfnode *tree);

/* From now on prepared texts count: this is the child. */
void use_prepared_texts(void);

/* In the child: trees may have changed or gone, and nothing that was prepared counts any more. */
void doubt_prepared_texts(void);

/* In the daemon: the commit is over. */
void forget_prepared_texts(void);

/* In the child: a tree stands in the file that the daemon should find there now. */
void tell_written(const cnfnode *tree, const file_identity &file);

/* In the daemon, when the commit is over: makes an item's tree what reading its file would make, if
 * there is the very file that the child has written from it. False when it has to be read. */
bool adopt_written_tree(item_record *item, const file_look &there);

#endif

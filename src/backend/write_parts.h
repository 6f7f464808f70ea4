#ifndef UCFGD_BACKEND_WRITE_PARTS_H
#define UCFGD_BACKEND_WRITE_PARTS_H

#ifndef __cplusplus
#    error "write_parts.h is for the backend's own sources"
#endif

#include <string_view>

#include "backend/files.h"
#include "backend/items.h"

/* The parts of a write that both ways of a commit share. Functions answer 0 or an error number,
 * after a line in the log. */

/* Whether an item of the list has edits that its source lacks. */
bool any_dirty(const llconf_item *list);

/* Owner and mode that the file of an instance, or a member of it, is given. */
file_attributes attributes_of(const item_record *item, const std::string &member);

/* Writes the tree of a file instance beside its file. May throw std::bad_alloc. */
int write_beside(const item_record *item, file_batch &batch);

/* Notes, behind the writing of a file instance, what its file is now: what hooks edit next is based
 * on that. */
void note_file_written(item_record *item);

/* Evaluates an item's check, with $file, for what it has written beside in a batch from the
 * file numbered first on. ECANCELED with the error record set when one is refused. May throw
 * std::bad_alloc. */
int check_candidates(const item_record *item, file_batch &batch, size_t first);

/* Notes in a batch that the file of an instance is to go. */
int note_deletion(const item_record *item, file_batch &batch);

/* Whether the source is there, perhaps since a moment ago, but the tree does not know what it
 * holds. */
bool is_unread_source(const item_record *item);

/* Leaves an unread source as it is. That is a failure when there are edits that get lost. */
int keep_unread_source(const item_record *item);

/* Gives a command the text that it is to take. */
int pipe_text(const char *command, std::string_view text);

#endif

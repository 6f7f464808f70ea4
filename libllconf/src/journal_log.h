#ifndef LLCONF_JOURNAL_LOG_H
#define LLCONF_JOURNAL_LOG_H

#include <cstddef>

#include "node_record.h"

/* How the operations on nodes tell an open journal what they do (journal.cpp). Each asks for the
 * log of the node that it is about to change; null, the usual answer, means that nobody listens.
 *
 * log_reserve comes before the first change and may fail; the calls behind it cannot. */

struct journal_log;

/* The log that covers a node, linked or not; null when there is none. */
journal_log *log_of(node_record *node);

/* Makes room for that many records; -1 with ENOMEM. */
int log_reserve(journal_log *log, size_t records);

/* Each is called before its change; a null log is accepted. */
void log_flags(journal_log *log, node_record *node);
void log_name(journal_log *log, node_record *node);  /* the old name is the log's then */
void log_value(journal_log *log, node_record *node); /* and so is the old value */
void log_link(journal_log *log, node_record *node);
void log_unlink(journal_log *log, node_record *node);

/* Makes the log cover the tree of this top, a node without parent; held: it has just left a tree.
 * Called after its change. */
void log_adopt(journal_log *log, node_record *top, bool held);

/* True for the node that the log's journals were opened on. */
bool log_covers_root(const journal_log *log, const node_record *node);

/* Takes over the freeing of a detached tree that the log covers. True when it did; false when the
 * caller shall free it: the tree's own journals have ended then. */
bool log_destroy(journal_log *log, node_record *top);

#endif

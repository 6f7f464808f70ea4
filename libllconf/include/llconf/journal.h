#ifndef LLCONF_JOURNAL_H
#define LLCONF_JOURNAL_H

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;

/* Undo for trees: a journal remembers the edits made to a tree from its begin on, and takes them
 * back or accepts them. Its cost follows the number of edits, not the size of the tree.
 *
 * 1. A journal is opened on the top of a tree (a node without parent), which must stay one.
 * 2. Journals on one tree nest: the one opened last ends first. Journals on different trees are
 *    independent of each other. A handle is gone once it has been rolled back or kept.
 * 3. Whatever leaves the tree while a journal is open stays in memory until the outermost one ends,
 *    also when it is destroyed; edits to it are remembered too. Whatever enters the tree belongs to
 *    it: a rollback frees it, even if it has been unlinked again meanwhile.
 * 4. Parts of a tree with an open journal cannot move into a tree with another open journal
 *    (EINVAL).
 * 5. Destroying the tree itself ends its journals: their handles are gone with it.
 * 6. Borrowed texts live on while a journal is open; after a rollback the old pointers are valid
 *    again.
 */

struct cnf_journal;

/* Opens a journal. Null with EINVAL (null, or a node that has a parent) or ENOMEM. */
struct cnf_journal *cnf_journal_begin(struct cnfnode *root);

/* 1 when an edit has been made since the journal was opened, 0 otherwise. */
int cnf_journal_changed(const struct cnf_journal *journal);

/* Takes back every edit since begin: names, values, order, remembered source texts and indexes are
 * as they were. Journals opened later on the same tree end with it. Null is accepted. Never fails;
 * keeps errno. */
void cnf_journal_rollback(struct cnf_journal *journal);

/* Accepts the edits since begin; an outer journal can still take them back. Journals opened later
 * on the same tree end with it. Null is accepted. Never fails; keeps errno. */
void cnf_journal_keep(struct cnf_journal *journal);

#ifdef __cplusplus
}
#endif

#endif

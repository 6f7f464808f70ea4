#ifndef UCFGD_BACKEND_FILE_IO_H
#define UCFGD_BACKEND_FILE_IO_H

#include "backend/llconf_item.h"

/* Reading the sources of module instances into trees, and writing changed trees back.
 *
 *  1. Paths of the parse functions are complete; names in an llconf_file and the filename of
 *     llconf_write_cnftree_file get the module files prefix here. Commands are never prefixed.
 *  2. Trees that are handed out belong to the caller.
 *  3. What fails is logged here, once. errno carries the cause of a failure; a success leaves it 0
 *     where a row says so, and otherwise as it was.
 *  4. Hooks and commands run synchronously. A failing hook never stops a read or a write.
 *  5. These functions are for primary items: a shadow has no source.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;
struct fe_node;

/* A new string: the name with the module files prefix and a slash before it, or a copy when there
 * is no prefix. Null (ENOMEM) when memory is exhausted. */
char *prefix_llfilename(const char *name);

/* Evaluates a hook's expressions in a context below g_trns_fe_context whose transaction is the
 * master context. 0, or -1 when the evaluation failed or list is empty. */
int hook_function(struct fe_node *list);

/* The tree of one file, hooks run around it; null with errno when it does not parse. errno is 0
 * after success. Records the file's inode and modification time in either case. */
struct cnfnode *llconf_parse_file(llconf_item *lli, const char *path);

/* The files of a directory that match pattern, as one subtree per file, named by the file's name
 * below the directory. Files that cannot be parsed are logged, left out, and remembered: commit
 * leaves them alone. Null only when memory is exhausted. */
struct cnfnode *llconf_parse_file_pattern(llconf_item *lli, const char *dirpath,
                                          const char *pattern);

/* The tree of a command's standard output; null with errno when it cannot be run or parsed, is
 * ended by a signal or past its time, or fails without any output (ENOENT where it has run). The
 * post-read hook runs twice after a successful parse, once after another. errno is 0 after
 * success. */
struct cnfnode *llconf_parse_pipe_in(llconf_item *lli, const char *command);

/* Writes the item's tree to the standard input of its command. 0; -1 with errno after a line in the
 * log. */
int llconf_write_pipe_out(const llconf_item *lli);

/* Brings the item's tree back to its source: parses it again when the item has no tree, is dirty or
 * always reverted, or when both inode and modification time of its file have changed. 0; -1 when
 * that fails, and then the tree that the item had stays; but that of a commit which is over gives
 * way to the one before it. */
int llconf_revert_cnftree(llconf_item *lli);

/* The same for every item. The last result that was not 0, with its errno; 0 and errno 0 when there
 * was none. Items whose deletion has been carried out are released on the way. */
int llconf_revert_all_cnftrees(llconf_item *list);

/* Writes tree over the file of that name. 0, or another value with errno, and then the old file
 * still stands whole. files.cpp tells the steps. */
int llconf_write_cnftree_file(llconf_item *lli, const char *filename, struct cnfnode *tree);

/* Writes the item when it is dirty: its file, its directory, or its command; removes its file when
 * it is marked for deletion. 0 with errno 0, or another value with errno. */
int llconf_write_cnftree(llconf_item *lli);

/* Writes every item, then releases those that were marked for deletion. The last result that was
 * not 0, with its errno; 0 and errno 0 when there was none. */
int llconf_write_all_cnftrees(llconf_item *list);

#ifdef __cplusplus
}
#endif

#endif

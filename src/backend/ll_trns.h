#ifndef UCFGD_BACKEND_LL_TRNS_H
#define UCFGD_BACKEND_LL_TRNS_H

#include "backend/contexts.h"

/* The backend's part in transactions, and the service restart pass. */

#ifdef __cplusplus
extern "C" {
#endif

struct fe_def;

/* Registers the backend under k_ll_trns_id; to be called before the master context is made. Null
 * (ENOMEM) when memory is exhausted. */
trns_interface *ll_register_tctx_interface(void);

/* Tries whether the edits of a context can be written in the formats of their modules. 0; or an
 * error number with the error record set, which names the module, the node and the reason. The
 * first tries what can be tried while others wait, and keeps the texts for the commit that is
 * forked next; the third tries the rest, of which the second tells whether there is any. */
int llconf_try_ctx(trns_ctx *ctx);
int llconf_has_long_try(trns_ctx *ctx);
int llconf_try_long(trns_ctx *ctx);

/* The texts that were kept: in the child they count from now on; in the daemon, behind the revert
 * that ends the commit, they go. */
void llconf_use_tried(void);
void llconf_forget_tried(void);

/* The size of all files that modules have read. */
size_t llconf_files_size(void);

/* The serial number of the master context; -1 without one. */
int llconf_trns_ctx_serial(void);

/* Compares the trees in memory with the files on disk, takes over what changed there, and restarts
 * or stops the services that /etc/rc5.d names. Always 1.
 *
 * The item list of the master context is released: its data is null afterwards, look-ups find
 * nothing, and every copy of the context has lost its items too. Call it as the last thing in a
 * process that is about to end, such as the child that runs an "admin:" method. Commands run
 * synchronously; their results are ignored. */
int llconf_restart_dirty_mods(void);

/* How many nodes of files expressions have found so far: a value that comes from a file takes one
 * more than the same value as a default. */
unsigned long ll_nodes_found(void);

/* Appends the backend tree functions to a list of definitions; the longer list. */
struct fe_def *fe_register_llfuncs(struct fe_def *list);

#ifdef __cplusplus
}
#endif

#endif

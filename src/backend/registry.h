#ifndef UCFGD_BACKEND_REGISTRY_H
#define UCFGD_BACKEND_REGISTRY_H

#include <stddef.h>

#include "backend/contexts.h"

/* The registry of module instances: the modules file, and the hooks that feature modules add.
 *
 *  1. Registered items belong to the list of the master context g_trns_ctx.
 *  2. A field or entry that is wrong is logged and skipped; the others still count.
 *  3. An instance that cannot be made is no instance; one whose source cannot be read stays
 *     registered, empty and dirty, so that the first commit writes it.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;
struct fe_def;

/* Reads the modules file (a complete path) and registers every entry; hooks are parsed
 * against functions. 0, also when the library has no parser for it; -1 after a log line when the
 * file cannot be parsed. */
int register_llconf_all(const char *modulesfile, struct fe_def *functions);

/* Registers one entry of a modules file (already stripped) and reads its source. The item, which
 * belongs to the master context; null when it cannot be made or its source cannot be read, with
 * errno ENOENT when there is only no source. */
llconf_item *register_llconf_cn(const struct cnfnode *entry, struct fe_def *functions);

/* The name of a field of an entry, with its colon, by its number from 0 on; null behind the last.
 */
const char *llconf_module_field(size_t number);

/* Removes the temporary files that a commit which was cut off has left beside the files of an item.
 * Only while no commit is under way. */
void llconf_remove_leftovers(const llconf_item *lli);

/* Adds the hooks of a feature module; each child of hooks is named after an instance. 0, or -1 when
 * the master context has no backend. */
int register_llconf_hooks_cn(struct fe_def *functions, const struct cnfnode *hooks);

#ifdef __cplusplus
}
#endif

#endif

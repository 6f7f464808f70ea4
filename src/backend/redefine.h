#ifndef UCFGD_BACKEND_REDEFINE_H
#define UCFGD_BACKEND_REDEFINE_H

#ifndef __cplusplus
#    error "redefine.h is for C++ sources"
#endif

#include "backend/contexts.h"

/* Modules that are defined anew while sessions go on.
 *
 * Between begin and end every module that is registered from a file is compared with the one that
 * has its name. One with the same source stays where it is, with its tree and the shadows that
 * sessions have of it, and takes over hooks, checks, flags, mode and owner. Another takes its
 * place, and what has not been defined again goes at the end. Modules that an expression has made
 * stay.
 *
 * No commit may run or wait. Shadows of what goes are dropped; who holds them is asked before. */

/* Called with a module before it goes. */
using module_goes = void (*)(const llconf_item *primary);

void llconf_redefine_begin(module_goes tell);
void llconf_redefine_end();

/* For the registry: the registered item that takes over from a new one, which is destroyed then;
 * null when the new one is to be registered. Outside of a redefinition it notes the name. May throw
 * std::bad_alloc. */
llconf_item *llconf_redefined(llconf_item *made);

/* Whether a context holds changes of a primary item. */
bool llconf_is_edited(trns_ctx *ctx, const llconf_item *primary);

#endif

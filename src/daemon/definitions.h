#ifndef UCFGD_DAEMON_DEFINITIONS_H
#define UCFGD_DAEMON_DEFINITIONS_H

#ifndef __cplusplus
#    error "definitions.h is for C++ sources"
#endif

#include <new>

#include "backend/redefine.h"
#include "daemon/config.h"

/* What the definition files make: functions, modules, types and both trees. The start reads them
 * step by step; a running daemon reads them all anew.
 *
 * What is wrong in a file is logged and left out. Throws std::bad_alloc where memory is missing. */

/* What nothing goes on without. */
template <class made>
made *needed(made *thing) {
    if (!thing) throw std::bad_alloc{};
    return thing;
}

/* The steps of the start, in this order. A dump reads no modules. */
void definitions_read_functions(const config_files &files, bool dumping);
void definitions_read_modules(const config_files &files, bool dumping);
void definitions_read_trees(const config_files &files, bool dumping);

/* Tells the log that a step is done. */
void definitions_step_done();

/* Puts what the files say now in the place of what they said before; `tell` hears of each module
 * that goes. While no request is executed, and no commit runs or waits. When memory runs out,
 * functions, types and trees are as they were, and modules perhaps the new ones. */
void definitions_read_anew(const config_files &files, module_goes tell);

#endif

#ifndef UCFGD_SESSION_ARGUMENTS_H
#define UCFGD_SESSION_ARGUMENTS_H

#ifndef __cplusplus
#    error "arguments.h is for C++ sources"
#endif

#include "ucfgd/lines.h"
#include "ucfgd/owners.h"

using owned_lines = owned<line, destroy_line_list>;

/* Takes up to size - 1 characters of each further word of args, unescaped, into a new list, which
 * is null for none. False (errno ENOMEM) when memory is exhausted. */
bool session_arg_list(const char *args, size_t size, owned_lines &arguments);

#endif

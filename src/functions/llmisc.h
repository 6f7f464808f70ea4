#ifndef UCFGD_FUNCTIONS_LLMISC_H
#define UCFGD_FUNCTIONS_LLMISC_H

/* The native functions of the option-string, file and event family, registered by
 * fe_register_llmiscfuncs (functions/functions.h) from the table in llmisc.cpp.
 *
 * Each takes the evaluation context and its own call, and answers new nodes that belong to the
 * caller. The table has checked the number of arguments: a wrong one is a failure. A null answer is
 * a failure, too, whose reason is told with fe_fail. */

#ifndef __cplusplus
#    error "llmisc.h is for C++ sources"
#endif

#include "tree/arguments.h"

/* The number that a text is: digits, perhaps with a "-" before them. False for any other text, and
 * for a number that has no place in a long. */
bool read_whole_number(const char *text, long &number);

/* options.cpp */
fe_node *llmisc_shoptions(const call_arguments &arguments);
fe_node *llmisc_makeshoptions(const call_arguments &arguments);
fe_node *llmisc_getopt(const call_arguments &arguments);
fe_node *llmisc_setopt(const call_arguments &arguments);
fe_node *llmisc_delopt(const call_arguments &arguments);
fe_node *llmisc_get_nonoptarg(const call_arguments &arguments);
fe_node *llmisc_set_nonoptarg(const call_arguments &arguments);

/* commands.cpp */
fe_node *llmisc_system(const call_arguments &arguments);
fe_node *llmisc_readlinespipe(const call_arguments &arguments);
fe_node *llmisc_print(const call_arguments &arguments);
fe_node *llmisc_writeevt(const call_arguments &arguments);

/* encoding.cpp */
fe_node *llmisc_slashify(const call_arguments &arguments);
fe_node *llmisc_escapename(const call_arguments &arguments);
fe_node *llmisc_urlencode(const call_arguments &arguments);
fe_node *llmisc_urldecode(const call_arguments &arguments);
fe_node *llmisc_hexencode(const call_arguments &arguments);
fe_node *llmisc_hexdecode(const call_arguments &arguments);

/* files.cpp */
fe_node *llmisc_isfile(const call_arguments &arguments);
fe_node *llmisc_issymlink(const call_arguments &arguments);
fe_node *llmisc_isdir(const call_arguments &arguments);
fe_node *llmisc_iswritable(const call_arguments &arguments);
fe_node *llmisc_readlink(const call_arguments &arguments);
fe_node *llmisc_unlink(const call_arguments &arguments);
fe_node *llmisc_symlink(const call_arguments &arguments);
fe_node *llmisc_setlink(const call_arguments &arguments);
fe_node *llmisc_fnmatch(const call_arguments &arguments);
fe_node *llmisc_readlines(const call_arguments &arguments);
fe_node *llmisc_writelines(const call_arguments &arguments);

#endif

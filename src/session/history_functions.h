#ifndef UCFGD_SESSION_HISTORY_FUNCTIONS_H
#define UCFGD_SESSION_HISTORY_FUNCTIONS_H

/* Expression functions about commits that have been: for the nodes commits.history and for hooks.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct fe_def;

/* Adds the functions behind the definitions built so far; returns the longer list. */
struct fe_def *fe_register_history_functions(struct fe_def *list);

#ifdef __cplusplus
}
#endif

#endif

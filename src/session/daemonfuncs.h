#ifndef UCFGD_SESSION_DAEMONFUNCS_H
#define UCFGD_SESSION_DAEMONFUNCS_H

/* Expression functions about the daemon itself: its limits, sessions and jobs. */

#ifdef __cplusplus
extern "C" {
#endif

struct fe_def;

/* Adds the functions behind the definitions built so far; returns the longer list. */
struct fe_def *fe_register_daemonfuncs(struct fe_def *list);

/* What the function reloadstatus answers from now on. Throws std::bad_alloc. */
void daemonfuncs_note_reload(const char *result);

#ifdef __cplusplus
}
#endif

#endif

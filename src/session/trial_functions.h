#ifndef UCFGD_SESSION_TRIAL_FUNCTIONS_H
#define UCFGD_SESSION_TRIAL_FUNCTIONS_H

#include "fe/fe.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Adds the functions of commits on trial, and the one that watches commits, to a list of
 * definitions and returns it. */
fe_def *fe_register_trialfuncs(fe_def *list);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_BACKEND_LL_TRNS_H
#define UCFGD_BACKEND_LL_TRNS_H

#include "backend/llconf_item.h"
#include "tree/trns.h"

#ifdef __cplusplus
extern "C" {
#endif

struct fe_def;

enum { k_ll_trns_id = 0x4C4C };

trns_interface *ll_register_tctx_interface(void);
llconf_item *lli_list_from_trns_ctx(trns_ctx *tctx);
int llconf_trns_ctx_serial(void);
int llconf_restart_dirty_mods(void);

/* The backend tree functions. */
struct fe_def *fe_register_llfuncs(struct fe_def *list);

#ifdef __cplusplus
}
#endif

#endif

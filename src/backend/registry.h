#ifndef UCFGD_BACKEND_REGISTRY_H
#define UCFGD_BACKEND_REGISTRY_H

#include "backend/llconf_item.h"

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;
struct fe_def;

int register_llconf_all(const char *modulesfile, struct fe_def *functions);
llconf_item *register_llconf_cn(const struct cnfnode *entry, struct fe_def *functions);
int register_llconf_hooks_cn(struct fe_def *functions, const struct cnfnode *hooks);
int register_llconf_module(llconf_item *lli);
int unregister_llconf_module(llconf_item *lli);

#ifdef __cplusplus
}
#endif

#endif

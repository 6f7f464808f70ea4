#ifndef UCFGD_BACKEND_FILE_IO_H
#define UCFGD_BACKEND_FILE_IO_H

#include "backend/llconf_item.h"

#ifdef __cplusplus
extern "C" {
#endif

struct fe_node;

int hook_function(struct fe_node *list);
struct cnfnode *llconf_parse_file(llconf_item *lli, const char *path);
struct cnfnode *llconf_parse_file_pattern(llconf_item *lli, const char *dirpath,
                                          const char *pattern);
struct cnfnode *llconf_parse_pipe_in(llconf_item *lli, const char *command);
int llconf_revert_cnftree(llconf_item *lli);
int llconf_revert_all_cnftrees(llconf_item *list);
int llconf_write_cnftree_file(llconf_item *lli, const char *filename, struct cnfnode *tree);
int llconf_write_cnftree(llconf_item *lli);
int llconf_write_all_cnftrees(llconf_item *list);

#ifdef __cplusplus
}
#endif

#endif

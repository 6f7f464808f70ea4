#ifndef UCFGD_TREE_CCDTREE_H
#define UCFGD_TREE_CCDTREE_H

#include "tree/types.h"

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;
struct fe_def;
struct fe_node;

/* One node of the parameter tree or of the management tree: its methods, no value. */
typedef struct ccdtree_node {
    struct ccdtree_node *next;
    struct ccdtree_node *first_child;
    struct ccdtree_node *parent;
    char *name;
    struct fe_node *func_common;
    struct fe_node *func_get;
    struct fe_node *func_set;
    struct fe_node *func_add;
    struct fe_node *func_del;
    struct fe_node *func_move;
    struct fe_node *func_list;
    struct fe_node *func_admin;
    struct fe_node *func_info;
    struct fe_node *func_sanity;
    struct fe_node *func_choices;
    struct fe_node *func_help;
    struct fe_node *func_flags;
    struct fe_node *func_access;
    ccd_type *type;
    int len;
} ccdtree_node;

extern ccdtree_node *g_ccdtree;
extern ccdtree_node *g_mgmttree;

ccdtree_node *create_ccdtree(void);
void destroy_ccdtree(ccdtree_node *root);
ccdtree_node *create_ccdtree_node(const char *name);
void destroy_ccdtree_node(ccdtree_node *node);
void append_ccdtree_node(ccdtree_node *parent, ccdtree_node *node);
void unlink_ccdtree_node(ccdtree_node *node);
char *get_ccdtree_path(const ccdtree_node *node);
char *get_ccdtree_path_for_cnfnode(const struct cnfnode *cn);
ccdtree_node *find_or_create_ccdtree_child(ccdtree_node *parent, const char *name);
ccdtree_node *find_or_create_ccdtree_path(ccdtree_node *root, const char *path);
void ccdtree_readconf(ccdtree_node *root, const char *filename, struct fe_def *fed_list);
int ccdtree_readconf_functions(const char *filename, struct fe_def *fed_list);
void ccdtree_postprocess(ccdtree_node *root, int is_mgmt, int have_access);
void dump_ccdtree(struct cnfnode *parent, const ccdtree_node *node);

#ifdef __cplusplus
}
#endif

#endif

#ifndef UCFGD_TREE_TYPES_H
#define UCFGD_TREE_TYPES_H

#ifdef __cplusplus
extern "C" {
#endif

struct fe_context;
struct fe_def;
struct fe_node;

typedef struct ccd_type {
    struct ccd_type *next;
    char *name;
    struct fe_node *func_validation;
    int len;
    struct fe_node *func_choices;
    const char *parent_type_name;
    struct ccd_type *parent_type;
    int flags;
} ccd_type;

extern ccd_type *g_types;

ccd_type *create_ccd_type(const char *name);
void destroy_ccd_type(ccd_type *type);
void destroy_ccd_type_list(ccd_type *list);
ccd_type *append_ccd_type(ccd_type *list, ccd_type *type);
ccd_type *types_readconf(const char *filename, struct fe_def *fed_list);
ccd_type *find_ccd_type(ccd_type *list, const char *name);
struct fe_node *get_type_validation_func(const ccd_type *type);
struct fe_node *get_type_choices_func(const ccd_type *type);
int get_type_len(const ccd_type *type);
int is_type(struct fe_context *ctx, const ccd_type *type, const char *value);
struct fe_node *fe_func_istype(struct fe_context *ctx, struct fe_node *call);
struct fe_def *fe_register_typefuncs(struct fe_def *list);

#ifdef __cplusplus
}
#endif

#endif

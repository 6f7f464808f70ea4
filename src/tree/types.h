#ifndef UCFGD_TREE_TYPES_H
#define UCFGD_TREE_TYPES_H

/* Types: named descriptions of acceptable values that tree nodes refer to.
 *
 *  1. A type owns its name and its expressions. `parent_type` is borrowed: it points into the
 *     list that the type itself is in.
 *  2. `parent_type_name` is set only while the types file is being read.
 *  3. A null type is accepted everywhere and describes nothing: no limit, no expression, no value
 *     belongs to it.
 *  4. Lengths are bytes here; the check of a node's own limit counts characters (param_ops.h).
 *  5. Chains of parents may be circular. Nothing walks one for ever.
 */

#ifdef __cplusplus
extern "C" {
#endif

struct fe_context;
struct fe_def;
struct fe_node;

enum { k_type_case_insensitive = 1 }; /* bit of `flags` */

typedef struct ccd_type {
    struct ccd_type *next;
    char *name;
    struct fe_node *func_validation; /* null: the parent's holds */
    int len;                         /* 0: no limit; never inherited */
    struct fe_node *func_choices;    /* null: the parent's holds */
    const char *parent_type_name;
    struct ccd_type *parent_type;
    int flags;                 /* never inherited */
    struct fe_node *func_help; /* null: the parent's holds */
} ccd_type;

/* The types read at start-up, in the order of their file; they live until exit. */
extern ccd_type *g_types;

/* A zeroed type with a copy of name; null (errno ENOMEM) when memory is exhausted. */
ccd_type *create_ccd_type(const char *name);

/* Frees the name and the expressions. Null is accepted. */
void destroy_ccd_type(ccd_type *type);
void destroy_ccd_type_list(ccd_type *list);

/* Links type behind the last one and returns the list's head. Walks: a reader of long lists keeps
 * its tail instead. */
ccd_type *append_ccd_type(ccd_type *list, ccd_type *type);

/* Reads a types file; the caller destroys the list. Null when the file cannot be read, and when it
 * defines nothing. An expression that does not parse is left out. */
ccd_type *types_readconf(const char *filename, struct fe_def *fed_list);

/* The first type of exactly that name, or null with errno as it was. */
ccd_type *find_ccd_type(ccd_type *list, const char *name);

/* The expression of the type itself or of its nearest ancestor that has one, or null. Borrowed from
 * the type that owns it. */
struct fe_node *get_type_validation_func(const ccd_type *type);
struct fe_node *get_type_choices_func(const ccd_type *type);
struct fe_node *get_type_help_func(const ccd_type *type);

/* The type's own limit in bytes; 0 for none. */
int get_type_len(const ccd_type *type);

/* 1 when the value is of the type, otherwise 0. The validation runs in a fresh context below ctx,
 * which may be null, in its transaction, with the value in "_". */
int is_type(struct fe_context *ctx, const ccd_type *type, const char *value);

/* istype(value, name): "1" or "0"; never fails. The result belongs to the caller. */
struct fe_node *fe_func_istype(struct fe_context *ctx, struct fe_node *call);

/* typehelp(name): what the type says about its values, or the empty text. */
struct fe_node *fe_func_typehelp(struct fe_context *ctx, struct fe_node *call);

/* Adds "istype" and "typehelp" and returns the longer list. */
struct fe_def *fe_register_typefuncs(struct fe_def *list);

#ifdef __cplusplus
}
#endif

#endif

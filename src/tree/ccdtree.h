#ifndef UCFGD_TREE_CCDTREE_H
#define UCFGD_TREE_CCDTREE_H

#include <stdint.h>

#include "tree/types.h"

/* The parameter tree and the management tree: what they are made of, and how they are read from
 * their definition files.
 *
 *  1. A node owns its name, its expressions and its children, not its type.
 *  2. Children keep the order of their definition. Add and remove them with the functions below
 *     only: a node with many children keeps an index of them.
 *  3. Names are bytes, compared exactly, and stand in the tree as they are; only paths are escaped.
 *  4. A name that begins with "*" is a wildcard: it answers to every name that no sibling has.
 *  5. The root is called "(root)". No path reaches it; of its methods only "access:" is used.
 *  6. Trees are read at start-up and do not change afterwards.
 *  7. Files go through the root prefix of the daemon (daemon/dirs.h).
 *  8. What is wrong in a file is logged and left out; reading goes on. What cannot be allocated
 *     gives null with errno ENOMEM.
 */

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
    /* chains of expressions, evaluated one behind the other */
    struct fe_node *func_common;
    struct fe_node *func_get;
    struct fe_node *func_set;
    struct fe_node *func_add;
    struct fe_node *func_del;
    struct fe_node *func_move;
    /* single expressions */
    struct fe_node *func_list;
    struct fe_node *func_admin;
    struct fe_node *func_info;
    struct fe_node *func_sanity;
    struct fe_node *func_choices;
    struct fe_node *func_help;
    struct fe_node *func_flags;
    struct fe_node *func_access;
    ccd_type *type;
    int len;                   /* "len:"; 0: not set */
    struct fe_node *func_args; /* single */
    /* private */
    struct ccdtree_node *prev;
    struct ccdtree_node *last_child;
    struct ccdtree_index *children; /* null while there are few */
    unsigned int child_count;
    int lacks_type; /* its "type:" names none that is defined: no value passes */
} ccdtree_node;

/* The roots. Made by the start-up code with create_ccdtree and destroyed at exit. */
extern ccdtree_node *g_ccdtree;
extern ccdtree_node *g_mgmttree;

/* Grows whenever a node of any tree is linked, unlinked, destroyed or given a method: what was
 * found out about a tree before may not hold any more. */
extern uint64_t g_ccdtree_changes;

/* A new root without children. */
ccdtree_node *create_ccdtree(void);

/* Destroys a node and everything below it. Null is accepted; a node that is still in a tree is
 * taken out of it first. */
void destroy_ccdtree(ccdtree_node *root);

/* A zeroed node with a copy of name, in no tree. */
ccdtree_node *create_ccdtree_node(const char *name);

/* Frees one node with its name and its methods, but not its children, which nobody owns then. Null
 * is accepted. */
void destroy_ccdtree_node(ccdtree_node *node);

/* Appends the node, and those chained behind it through `next`, to the children of parent, which
 * owns them from then on. */
void append_ccdtree_node(ccdtree_node *parent, ccdtree_node *node);

/* Takes the node with its subtree out of its parent; the caller owns it then. A node without parent
 * stays as it is. */
void unlink_ccdtree_node(ccdtree_node *node);

/* The first child of that name, or null, errno as it was. */
ccdtree_node *find_ccdtree_child(const ccdtree_node *parent, const char *name);

/* The child that a path component names: the first of that name or, without one, the first
 * wildcard; null, errno as it was, when there is neither. */
ccdtree_node *match_ccdtree_child(const ccdtree_node *parent, const char *name);

/* The first child of that name, made and appended when there is none. */
ccdtree_node *find_or_create_ccdtree_child(ccdtree_node *parent, const char *name);

/* Walks an escaped, dotted path below root, makes what is missing and returns the last node
 * reached: root itself for the empty path, and the node reached so far at an empty component. A
 * component is cut at 255 characters, and the walk ends there. */
ccdtree_node *find_or_create_ccdtree_path(ccdtree_node *root, const char *path);

/* The names from below the root down to the node, joined with "." and not escaped; empty for the
 * root. New; the caller frees it. */
char *get_ccdtree_path(const ccdtree_node *node);

/* The same for a node of a parsed file: where in the file it stands. For messages. */
char *get_ccdtree_path_for_cnfnode(const struct cnfnode *cn);

/* Reads a definition file into the tree below root, whose methods its top-level keys become.
 * Expressions may call what fed_list holds. */
void ccdtree_readconf(ccdtree_node *root, const char *filename, struct fe_def *fed_list);

/* Reads a file of user functions into fed_list. 0, or -1 when it cannot be read. */
int ccdtree_readconf_functions(const char *filename, struct fe_def *fed_list);

/* Warns of nodes that nothing guards, and at debug levels above 0 of those that check nothing.
 * have_access says that something above root guards it already. */
void ccdtree_postprocess(ccdtree_node *root, int is_mgmt, int have_access);

/* Appends to parent what the node has (method names, type, length) and, each in a node of its own,
 * its children. Expressions are not written. A null node appends nothing. */
void dump_ccdtree(struct cnfnode *parent, const ccdtree_node *node);

#ifdef __cplusplus
}
#endif

#endif

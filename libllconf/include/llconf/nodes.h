#ifndef LLCONF_NODES_H
#define LLCONF_NODES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Configuration files as trees of named nodes.
 *
 * 1. Ownership: a node belongs to its parent; a node without one belongs to whoever made or
 *    unlinked it and is freed with destroy_cnftree. Names and values are copied in.
 * 2. Borrowed texts (the fields name and value, and what cnfnode_getname and cnfnode_getval return)
 *    live until that name or value is set again or the node is destroyed.
 * 3. The fields of a node may be read freely and are never written directly: the operations below
 *    keep the child index, the remembered source text and open journals true to the tree.
 * 4. Null: operations on a null node do nothing; those that return something answer null or -1.
 * 5. errno: operations that return -1 or null for a failure set it (ENOMEM, EINVAL); those that
 *    succeed, or find nothing, leave it as it was.
 * 6. Texts are bytes ending in NUL, in no particular encoding.
 * 7. A tree is used by one thread at a time, and so are all trees that share a source (a tree and
 *    its clones).
 * 8. No operation recurses: a tree may be as deep as memory allows.
 *
 * Every entry that a parser read remembers the text it was read from, and is written back as that
 * text until something at or below it changes: a value, a name, a child added, removed or moved.
 * Setting what is there already is no change.
 */

/* One node. The record goes on behind these fields: only the operations below make one. */
struct cnfnode {
    struct cnfnode *next; /* following sibling */
    char *name;           /* never null */
    char *value;          /* null when the node has none */
    struct cnfnode *first_child;
    struct cnfnode *parent; /* null for the top of a tree */
};

/* A new node without value and children; null with ENOMEM, or EINVAL for a null name. The top of a
 * tree is named "(root)". */
struct cnfnode *create_cnfnode(const char *name);

/* Frees a node and all below it; a linked node is unlinked first. Null is accepted. Keeps errno.
 * Under an open journal (journal.h) the memory is kept until the journal ends. */
void destroy_cnftree(struct cnfnode *node);

/* A deep copy without next and parent; null with ENOMEM. The copy remembers the source texts as the
 * original does, and shares them. */
struct cnfnode *clone_cnftree(const struct cnfnode *node);

const char *cnfnode_getname(const struct cnfnode *node);
const char *cnfnode_getval(const struct cnfnode *node);
/* Both return 0, or -1 (ENOMEM; EINVAL for a null name). A null value clears the value. */
int cnfnode_setname(struct cnfnode *node, const char *name);
int cnfnode_setval(struct cnfnode *node, const char *value);

/* Makes child the last child of parent. A child that is linked elsewhere moves. Returns 0, or -1
 * with EINVAL (a null argument, or a child that is parent or stands above it) or ENOMEM. */
int append_node(struct cnfnode *parent, struct cnfnode *child);

/* Puts node before the sibling position; a linked node moves. Returns 0, or -1: for a null position
 * or one without parent (EINVAL; nothing happens), and as append_node does. */
int insert_node_before(struct cnfnode *position, struct cnfnode *node);

/* Takes node out of its parent, clears next and parent; the node belongs to the caller then.
 * A node without parent stays as it is. Returns 0, or -1 with ENOMEM (only under a journal). */
int unlink_node(struct cnfnode *node);

/* The sibling before node, or null; the last child of node, or null. */
struct cnfnode *cnfnode_prev(const struct cnfnode *node);
struct cnfnode *cnfnode_last_child(const struct cnfnode *node);

/* The first node of that name among first_sibling and those behind it, or null. Costs no walk when
 * first_sibling is its parent's first child, or follows one of that name. */
struct cnfnode *find_node(const struct cnfnode *first_sibling, const char *name);

/* 0 when names, values and children are the same, in the same order; otherwise not 0. Two null
 * nodes are the same. */
int compare_cnftree(const struct cnfnode *a, const struct cnfnode *b);
/* The same for the children alone; a null side counts as no children. */
int compare_cnftree_children(const struct cnfnode *a, const struct cnfnode *b);

/* 1 for a node that stands for layout only: ".comment" (value: the text behind the comment sign),
 * ".empty" (a blank line) and ".unparsed" (value: a line that the parser could not read). */
int cnfnode_is_formatting(const struct cnfnode *node);

/* 1 when node, or anything below it, has changed since a parser read it, or was never read; 0 when
 * it would be written back byte for byte. A new name for a tree that a parse returned is no change.
 */
int cnfnode_is_changed(const struct cnfnode *node);

/* Grows with every edit: whenever a node of any tree is linked, taken out, named or given a value,
 * also by an undo. While it stays, a tree says what it said before. */
uint64_t cnf_edit_count(void);

/* The number of the text that node was read from, the same for all nodes of one parse and for their
 * clones, and never used again; 0 for a node that no parser read. */
uint64_t cnfnode_source(const struct cnfnode *node);

/* That text itself, whole, held until it is released, whatever becomes of the tree. Null for a node
 * that no parser read, and for null. */
struct cnf_source;
struct cnf_source *cnfnode_hold_source(const struct cnfnode *node);
/* Its bytes, *length of them, without a NUL behind them; valid while it is held. */
const char *cnf_source_text(const struct cnf_source *source, size_t *length);
void cnf_release_source(struct cnf_source *source);

/* A place in a file; both numbers count from 1, the column in characters. */
struct cnf_place {
    size_t line;
    size_t column;
};

/* Where in its text a node begins, whatever has become of the tree since. For a file of the parser
 * "tavconf", value_at from 0 on is the number of a byte of the value as it was read, and the place
 * is that of this byte. 0, or -1 (EINVAL) for a node that no parser read. Reads the text up to
 * there. */
int cnfnode_place(const struct cnfnode *node, long value_at, struct cnf_place *place);

/* Removes every formatting node below root, at every depth. */
void strip_cnftree(struct cnfnode *root);

/* About how many bytes of memory a tree takes. The text of its file, which clones share, is not
 * counted. 0 for null. Costs a walk through the tree. */
size_t cnftree_size(const struct cnfnode *root);

/* Prints a tree for debugging on standard output, indent blanks from the margin. */
void dump_nodes(const struct cnfnode *tree, int indent);

#ifdef __cplusplus
}
#endif

#endif

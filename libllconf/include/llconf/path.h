#ifndef LLCONF_PATH_H
#define LLCONF_PATH_H

#ifdef __cplusplus
extern "C" {
#endif

struct cnfnode;

/* Paths: places in a tree, as text.
 *
 * A path is a list of components separated by "/". The empty path and "." are the node itself.
 *
 *   name            the children of that name; where one node is wanted, the first
 *   name[2]         the third child of that name, counted from 0
 *   name[key=text]  the children of that name with a child `key` of exactly that value
 *   \c              the character c itself
 *
 * 1. At every step all matches are followed: "a/b" is the b below the second a if the first a has
 *    none.
 * 2. What is no path (an open bracket, a stray "]", an empty component, a backslash at the end)
 *    matches nothing.
 * 3. In a name, "/", "[" and "]" need a backslash; inside brackets "]" does, and "=" in a key.
 * 4. Results are borrowed nodes; they live as long as the tree leaves them alone.
 * 5. errno: ENOENT for nothing found, EINVAL for what cannot be created, ENOMEM. Success keeps it.
 */

/* The first match in tree order, or null with ENOENT. "*" and "?" are ordinary characters. Does not
 * allocate for short paths. */
struct cnfnode *cnf_get_node(const struct cnfnode *node, const char *path);

/* The value of that node (borrowed), or null: errno is ENOENT when there is no such node, and
 * unchanged when there is one without a value. */
const char *cnf_get_entry(const struct cnfnode *node, const char *path);

struct cnfresult {
    struct cnfresult *next;
    char *path;              /* escaped, relative to the node searched from; see cnf_find_entry */
    struct cnfnode *cnfnode; /* borrowed */
};

/* Every match in tree order, or null (nothing found: errno is unchanged; ENOMEM). In names "*"
 * stands for any text and "?" for any character; they never match a formatting node. The path of a
 * result leads cnf_get_node to that very node: it is escaped, with "[n]" behind a name that a
 * sibling before it has as well; the path of the node itself is ".". The list belongs to the
 * caller. */
struct cnfresult *cnf_find_entry(const struct cnfnode *node, const char *path);

/* Frees results, not nodes. */
void destroy_cnfresult_list(struct cnfresult *list);

/* Creates a node: uses the nodes that lead there as far as they exist, creates the others, and
 * always creates the last. A new `name[key=text]` gets that child; a new `name[n]` must be the n-th
 * of its name. Returns the last node, or null: EINVAL for what is no path, the empty one included,
 * and nothing is created then; ENOMEM. */
struct cnfnode *cnf_add_branch(struct cnfnode *node, const char *path);

/* Removes the first match with its subtree. Returns 0, or -1 with ENOENT (also for the node itself,
 * which has no parent to leave). */
int cnf_del_branch(struct cnfnode *node, const char *path);

/* name as one component of a path, escaped; "" for an empty name. Freed by the caller; null with
 * ENOMEM. */
char *cnf_escape_name(const char *name);

#ifdef __cplusplus
}
#endif

#endif

#ifndef LLCONF_CHILD_INDEX_H
#define LLCONF_CHILD_INDEX_H

#include <string_view>

#include "node_record.h"

/* Children by name. A parent of few children is walked; the first look-up that would walk further
 * builds a hash table of its children, which link_node, take_out and renaming keep up to date. The
 * table is a cache: when memory runs out it is dropped, and look-ups walk. */

/* The first child of that name, or null. */
node_record *first_named(const node_record *parent, std::string_view name);
/* The next sibling of the same name, or null. */
node_record *next_named(const node_record *node);

/* Makes the table, if it is not there and pays; false when there is none. */
bool index_children(node_record *parent);
/* The sibling of the same name before this one, or null. Only where the parent has its table. */
node_record *earlier_named(const node_record *node);

/* The bytes of the table. */
size_t index_size(const node_record *parent);

/* For the operations that change a tree. index_add comes after the node is linked, index_remove
 * before it is unlinked; both under the name that it bears. */
void index_add(node_record *node);
void index_remove(node_record *node);
void index_drop(node_record *parent);

#endif

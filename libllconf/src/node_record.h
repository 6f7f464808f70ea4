#ifndef LLCONF_NODE_RECORD_H
#define LLCONF_NODE_RECORD_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "llconf/nodes.h"

/* What a node really is. Internal to the library; the rules of nodes.h hold.
 *
 * A node is one piece of memory: the record, the reference to its source text if it has one, then
 * its name and value as it was made. A name or value that is set later has memory of its own, so
 * that an undo can put the old pointer back. */

struct cnf_parser;
struct child_index;
struct journal_log;
class node_maker;

/* The text of a file, shared by all entries that were read from it and their clones. */
struct cnf_source {
    size_t references;
    uint64_t number; /* its own, never used again */
    const cnf_parser *parser;
    cnfnode *options; /* of the module that read it; owned */
    char *text;       /* owned */
    uint32_t length;
    bool crlf;             /* the first line ends so */
    bool no_final_newline; /* not empty, and the last line has no end */
};

cnf_source *create_source(const cnf_parser *parser, const cnfnode *options, char *text,
                          size_t length); /* takes text over, also when it fails (ENOMEM) */
void source_release(cnf_source *source);

/* The part of a source that a node was read from. A section's text is its head, the texts of its
 * children, and its tail. */
struct source_text {
    cnf_source *source;
    uint32_t offset;
    uint32_t length;
    uint32_t head; /* the whole length where the node is no section */
    uint32_t tail;
};

enum node_flag : uint32_t {
    k_has_text = 1U << 0,    /* a source_text stands behind the record */
    k_static_name = 1U << 1, /* the name is a constant */
    k_heap_name = 1U << 2,
    k_heap_value = 1U << 3,
    k_changed = 1U << 4,     /* at or below this node; all above have it as well */
    k_own_changed = 1U << 5, /* name or value of this node */
    k_file_root = 1U << 6,   /* a parse returned it */
    k_logged = 1U << 7,      /* a journal's log knows it as the top of a tree (journal.cpp) */
    k_held = 1U << 8,        /* it has left a tree while a journal was open */
    k_in_block = 1U << 9,    /* its memory is part of a block (node_memory.h) */
    k_related = 1U << 10,    /* a shared line says something about it (parser.h) */
    /* by a clone */
    k_inherited = k_static_name | k_changed | k_own_changed | k_file_root | k_related,
};

struct node_record : cnfnode {
    node_record *prev;
    node_record *last_child;
    union {
        node_record *next_same; /* siblings of one name, kept while the parent has an index */
        journal_log *log;       /* of a node without parent that has k_logged */
    };
    node_record *prev_same; /* that of the first one is the last one */
    child_index *index;     /* of the children; null until it pays */
    uint32_t flags;
    uint8_t text_kind; /* cnf_piece_kind and level of the source text */
    uint16_t text_level;

    node_record *next_node() const { return static_cast<node_record *>(next); }
    node_record *first() const { return static_cast<node_record *>(first_child); }
    node_record *up() const { return static_cast<node_record *>(parent); }
    bool has(uint32_t flag) const { return (flags & flag) != 0; }
    source_text *text() {
        return has(k_has_text) ? reinterpret_cast<source_text *>(this + 1) : nullptr;
    }
    const source_text *text() const { return const_cast<node_record *>(this)->text(); }
};

static_assert(sizeof(node_record) % alignof(source_text) == 0);

inline node_record *record(cnfnode *node) {
    return static_cast<node_record *>(node);
}
inline const node_record *record(const cnfnode *node) {
    return static_cast<const node_record *>(node);
}
/* Looking a child up may build the index of a tree that is otherwise left alone. */
inline node_record *mutable_record(const cnfnode *node) {
    return static_cast<node_record *>(const_cast<cnfnode *>(node));
}

inline node_record *top_of(node_record *node) {
    while (node->parent != nullptr)
        node = node->up();
    return node;
}

/* The node behind this one in a walk through everything below top: children first. Null at the end.
 * skip: leave out what is below node. */
template <class node_type>
node_type *next_in_tree(node_type *node, const cnfnode *top, bool skip = false) {
    if (!skip && node->first_child != nullptr) return static_cast<node_type *>(node->first_child);
    while (node != top && node->next == nullptr)
        node = static_cast<node_type *>(node->parent);
    return node == top ? nullptr : static_cast<node_type *>(node->next);
}

struct node_texts {
    std::string_view name;
    bool static_name; /* name ends in NUL and lives for good */
    std::string_view value;
    bool has_value;
};

/* A node with the given flags (of k_inherited and k_has_text); null with ENOMEM. Its source text,
 * if it shall have one, is zero. maker: for one of many; null: a single node. */
node_record *allocate_node(const node_texts &texts, uint32_t flags, node_maker *maker = nullptr);

/* A copy of a node without its children, linked nowhere; null with ENOMEM. */
node_record *clone_alone(const node_record *node);

/* Frees a detached tree without a look at journals. */
void free_tree(node_record *top);

/* What cnf_edit_count answers: counted by whatever touches a name, a value or a link. */
extern uint64_t g_edit_count;

/* Link and unlink without journal or marks; the index follows. position null: at the end. */
void link_node(node_record *parent, node_record *node, node_record *position);
void take_out(node_record *node);

#endif

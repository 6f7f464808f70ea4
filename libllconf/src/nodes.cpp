#include "llconf/nodes.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "child_index.h"
#include "journal_log.h"
#include "node_memory.h"
#include "node_record.h"
#include "ucfgd/owners.h"

/* Trees of nodes, and how they remember their files.
 *
 * A parser's entry carries a source_text: where in the file's text it was read from. The text
 * itself is one buffer, shared by all entries and clones. A node that has changed, at or below
 * itself, is marked k_changed, and so is everything above it; no other rule decides what is written
 * anew. That mark is why every edit goes through this file, and why marking an ancestor stops at
 * the first one that has it: what is above has it, too. k_own_changed says that it was the name or
 * value of the node itself, in which case the head of a section is no longer true.
 *
 * The source text of a changed entry is not thrown away: it shows the parser which blanks and which
 * comment stood there.
 *
 * What may never happen: a change that goes past mark_changed (the file would be written with the
 * old text), past the index of the parent (names would not be found), or past an open journal (undo
 * would find another tree than it left). Each operation therefore has three steps: find the log and
 * reserve room in it, the only step that may fail; tell the log; change and mark. */

static_assert(offsetof(cnfnode, next) == 0);

uint64_t g_edit_count = 0;

namespace {

char *copy_text(char *to, std::string_view text) {
    if (!text.empty()) std::memcpy(to, text.data(), text.size());
    to[text.size()] = '\0';
    return to;
}

/* How many flags records marking a node will take at most. */
size_t marks_needed(const node_record *node) {
    size_t count = 1;
    for (; node != nullptr && !node->has(k_changed); node = node->up())
        count++;
    return count;
}

void mark_changed(journal_log *log, node_record *node, uint32_t flags) {
    g_edit_count++;
    if (node == nullptr) return;
    bool marked_above = node->has(k_changed);
    if ((node->flags & flags) != flags) {
        log_flags(log, node);
        node->flags |= flags;
    }
    if (marked_above) return;
    for (node = node->up(); node != nullptr && !node->has(k_changed); node = node->up()) {
        log_flags(log, node);
        node->flags |= k_changed;
    }
}

/* The name of a file's root is no part of the file. */
node_record *marked_for_name(node_record *node) {
    return node->has(k_file_root) ? node->up() : node;
}

/* Gives a node that stands nowhere to a parent. The only place that links for callers. */
int link_new(node_record *parent, node_record *node, node_record *position) {
    journal_log *log = log_of(parent);
    journal_log *of_node = log_of(node);
    if (log_covers_root(of_node, node) || (log && of_node && log != of_node)) {
        errno = EINVAL;
        return -1;
    }
    bool adopts = log == nullptr && of_node != nullptr;
    if (adopts) log = of_node;
    if (log_reserve(log, 2 + marks_needed(parent)) < 0) return -1;
    if (adopts) log_adopt(log, top_of(parent), false);
    log_link(log, node);
    link_node(parent, node, position);
    mark_changed(log, parent, k_changed);
    return 0;
}

/* True when node is parent or stands above it. */
bool would_be_circle(const node_record *parent, const node_record *node) {
    if (parent == node) return true;
    if (node->first_child == nullptr) return false;
    for (const node_record *up = parent; up != nullptr; up = up->up()) {
        if (up == node) return true;
    }
    return false;
}

int place_node(node_record *parent, node_record *node, node_record *position) {
    if (would_be_circle(parent, node)) {
        errno = EINVAL;
        return -1;
    }
    if (node->parent != nullptr) {
        journal_log *from = log_of(node);
        journal_log *to = log_of(parent);
        if (from && to && from != to) {
            errno = EINVAL;
            return -1;
        }
        /* For both steps: between them the node stands nowhere, and nobody would have it. */
        size_t records = 4 + marks_needed(node->up()) + marks_needed(parent);
        if (log_reserve(from ? from : to, records) < 0 || unlink_node(node) < 0) return -1;
    }
    return link_new(parent, node, position);
}

node_record *clone_node(const node_record *node, node_maker *maker) {
    node_texts texts{node->name, node->has(k_static_name),
                     node->value != nullptr ? std::string_view{node->value} : std::string_view{},
                     node->value != nullptr};
    node_record *copy = allocate_node(texts, node->flags & (k_inherited | k_has_text), maker);
    if (copy == nullptr) return nullptr;
    copy->text_kind = node->text_kind;
    copy->text_level = node->text_level;
    if (const source_text *text = node->text()) {
        *copy->text() = *text;
        text->source->references++;
    }
    return copy;
}

void free_node(node_record *node, node_releaser &releaser) {
    // The flags tell what has memory of its own. NOLINTBEGIN(clang-analyzer-unix.Malloc)
    if (node->has(k_heap_name)) std::free(node->name);
    if (node->has(k_heap_value)) std::free(node->value);
    // NOLINTEND(clang-analyzer-unix.Malloc)
    if (node->index != nullptr) index_drop(node);
    if (source_text *text = node->text()) source_release(text->source);
    if (node->has(k_in_block)) {
        releaser.release(node);
    } else {
        std::free(node);
    }
}

}  // namespace

node_record *allocate_node(const node_texts &texts, uint32_t flags, node_maker *maker) {
    size_t head = sizeof(node_record) + ((flags & k_has_text) != 0 ? sizeof(source_text) : 0);
    size_t size = head;
    if (!texts.static_name) size += texts.name.size() + 1;
    if (texts.has_value) size += texts.value.size() + 1;
    bool in_block = false;
    char *memory = static_cast<char *>(maker ? maker->allocate(size, in_block) : std::malloc(size));
    if (memory == nullptr) return nullptr;
    std::memset(memory, 0, head);
    auto *node = new (memory) node_record;
    char *behind = memory + head;
    node->flags = flags | (in_block ? uint32_t{k_in_block} : 0);
    if (texts.static_name) {
        node->flags |= k_static_name;
        node->name = const_cast<char *>(texts.name.data());
    } else {
        node->flags &= ~uint32_t{k_static_name};
        node->name = copy_text(behind, texts.name);
        behind += texts.name.size() + 1;
    }
    if (texts.has_value) node->value = copy_text(behind, texts.value);
    return node;
}

node_record *clone_alone(const node_record *node) {
    return clone_node(node, nullptr);
}

/* Children before their parents, and without a write to any of them (node_memory.h). */
void free_tree(node_record *top) {
    node_releaser releaser;
    node_record *node = top;
    bool down = true;
    while (true) {
        while (down && node->first_child != nullptr)
            node = node->first();
        node_record *next = node->next_node();
        node_record *parent = node->up();
        bool last = node == top;
        free_node(node, releaser);
        if (last) return;
        down = next != nullptr;
        node = down ? next : parent;
    }
}

void link_node(node_record *parent, node_record *node, node_record *position) {
    g_edit_count++;
    node_record *before = position != nullptr ? position->prev : parent->last_child;
    node->parent = parent;
    node->prev = before;
    node->next = position;
    if (before != nullptr) {
        before->next = node;
    } else {
        parent->first_child = node;
    }
    if (position != nullptr) {
        position->prev = node;
    } else {
        parent->last_child = node;
    }
    index_add(node);
}

void take_out(node_record *node) {
    g_edit_count++;
    node_record *parent = node->up();
    node_record *next = node->next_node();
    index_remove(node);
    if (node->prev != nullptr) {
        node->prev->next = next;
    } else {
        parent->first_child = next;
    }
    if (next != nullptr) {
        next->prev = node->prev;
    } else {
        parent->last_child = node->prev;
    }
    node->parent = nullptr;
    node->next = nullptr;
    node->prev = nullptr;
}

cnfnode *create_cnfnode(const char *name) {
    if (name == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    return allocate_node({name, false, {}, false}, k_changed | k_own_changed);
}

void destroy_cnftree(cnfnode *node) {
    if (node == nullptr) return;
    errno_guard keep;
    node_record *top = record(node);
    if (unlink_node(top) < 0) return;
    journal_log *log = log_of(top);
    if (log == nullptr || !log_destroy(log, top)) free_tree(top);
}

cnfnode *clone_cnftree(const cnfnode *node) {
    if (node == nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    const node_record *from = record(node);
    node_maker maker;
    owned<node_record, free_tree> top{clone_node(from, &maker)};
    if (!top) return nullptr;
    node_record *to = top.get();
    while (true) {
        if (from->first_child != nullptr) {
            from = from->first();
        } else {
            while (from != node && from->next == nullptr) {
                from = from->up();
                to = to->up();
            }
            if (from == node) return top.release();
            from = from->next_node();
            to = to->up();
        }
        node_record *copy = clone_node(from, &maker);
        if (copy == nullptr) return nullptr;
        link_node(to, copy, nullptr);
        to = copy;
    }
}

const char *cnfnode_getname(const cnfnode *node) {
    return node != nullptr ? node->name : nullptr;
}

const char *cnfnode_getval(const cnfnode *node) {
    return node != nullptr ? node->value : nullptr;
}

int cnfnode_setname(cnfnode *node, const char *name) {
    if (node == nullptr || name == nullptr) {
        errno = EINVAL;
        return -1;
    }
    node_record *self = record(node);
    if (std::strcmp(self->name, name) == 0) return 0;
    owned_str copy = dup_str(name);
    if (!copy) return -1;
    journal_log *log = log_of(self);
    if (log_reserve(log, 2 + marks_needed(self)) < 0) return -1;
    if (self->parent != nullptr) index_remove(self);
    if (log != nullptr) {
        log_name(log, self);
    } else if (self->has(k_heap_name)) {
        std::free(self->name);
    }
    self->name = copy.release();
    self->flags = (self->flags & ~uint32_t{k_static_name}) | k_heap_name;
    if (self->parent != nullptr) index_add(self);
    mark_changed(log, marked_for_name(self), k_changed | k_own_changed);
    return 0;
}

int cnfnode_setval(cnfnode *node, const char *value) {
    if (node == nullptr) {
        errno = EINVAL;
        return -1;
    }
    node_record *self = record(node);
    bool same = self->value == nullptr || value == nullptr ? self->value == value
                                                           : std::strcmp(self->value, value) == 0;
    if (same) return 0;
    owned_str copy;
    if (value != nullptr && !(copy = dup_str(value))) return -1;
    journal_log *log = log_of(self);
    if (log_reserve(log, 2 + marks_needed(self)) < 0) return -1;
    if (log != nullptr) {
        log_value(log, self);
    } else if (self->has(k_heap_value)) {
        std::free(self->value);
    }
    self->value = copy.release();
    self->flags &= ~uint32_t{k_heap_value};
    if (self->value != nullptr) self->flags |= k_heap_value;
    mark_changed(log, self, k_changed | k_own_changed);
    return 0;
}

int append_node(cnfnode *parent, cnfnode *child) {
    if (parent == nullptr || child == nullptr) {
        errno = EINVAL;
        return -1;
    }
    return place_node(record(parent), record(child), nullptr);
}

int insert_node_before(cnfnode *position, cnfnode *node) {
    if (position == nullptr || node == nullptr || position->parent == nullptr) {
        errno = EINVAL;
        return -1;
    }
    if (position == node || position == node->next) return 0;
    return place_node(record(position)->up(), record(node), record(position));
}

int unlink_node(cnfnode *node) {
    if (node == nullptr) {
        errno = EINVAL;
        return -1;
    }
    node_record *self = record(node);
    node_record *parent = self->up();
    if (parent == nullptr) return 0;
    journal_log *log = log_of(self);
    if (log_reserve(log, 2 + marks_needed(parent)) < 0) return -1;
    mark_changed(log, parent, k_changed);
    log_unlink(log, self);
    take_out(self);
    log_adopt(log, self, true);
    return 0;
}

cnfnode *cnfnode_prev(const cnfnode *node) {
    return node != nullptr ? record(node)->prev : nullptr;
}

cnfnode *cnfnode_last_child(const cnfnode *node) {
    return node != nullptr ? record(node)->last_child : nullptr;
}

cnfnode *find_node(const cnfnode *first_sibling, const char *name) {
    if (first_sibling == nullptr || name == nullptr) return nullptr;
    const node_record *first = record(first_sibling);
    if (first->parent != nullptr && first->prev == nullptr) return first_named(first->up(), name);
    if (first->prev != nullptr && std::strcmp(first->prev->name, name) == 0) {
        return next_named(first->prev);
    }
    for (node_record *node = mutable_record(first); node != nullptr; node = node->next_node()) {
        if (std::strcmp(node->name, name) == 0) return node;
    }
    return nullptr;
}

uint64_t cnf_edit_count(void) {
    return g_edit_count;
}

int cnfnode_is_changed(const cnfnode *node) {
    return node != nullptr && record(node)->has(k_changed) ? 1 : 0;
}

uint64_t cnfnode_source(const cnfnode *node) {
    const source_text *text = node != nullptr ? record(node)->text() : nullptr;
    return text != nullptr && text->source != nullptr ? text->source->number : 0;
}

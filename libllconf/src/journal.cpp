#include "llconf/journal.h"

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <new>
#include <vector>

#include "child_index.h"
#include "journal_log.h"
#include "ucfgd/owners.h"

/* Undo without a copy of the tree.
 *
 * Every tree with an open journal has one log: a list of small records, one for each step of an
 * edit, with what it takes to undo it. A journal is a position in that list. Rolling back undoes
 * the records behind the position, last one first; since each of them then finds the tree exactly
 * as it left it, an old sibling or an old text pointer is all that it needs to remember. Keeping
 * does nothing while an outer journal is open; the outermost one frees what the log held on to.
 *
 * Memory that goes out of use is held as long as the log lives: old names and values belong to
 * their record, destroyed trees to a `destroyed` record. What has been unlinked may be edited,
 * destroyed or linked again, so the log covers it as it covers the tree: its top is marked k_logged
 * and points to the log. k_held marks what has ever left the tree; a node that is linked without it
 * is new, and is freed when its linking is undone.
 *
 * The usual case, no journal anywhere, costs one look at a counter per edit. */

enum class step { flags, name, value, linked, unlinked, adopted, destroyed };

struct edit {
    step what;
    uint32_t flags; /* before */
    node_record *node;
    node_record *parent; /* unlinked: where it stood */
    union {
        node_record *next; /* unlinked: the sibling behind it */
        char *text;        /* name, value: the old one */
    };
};

struct cnf_journal {
    journal_log *log;
    size_t mark;
};

struct journal_log {
    node_record *root;
    std::vector<edit> edits;
    std::vector<std::unique_ptr<cnf_journal>> open;
};

namespace {

constexpr uint32_t k_journal_flags = k_logged | k_held;

int g_open_logs = 0;

void undo_text(edit &e, uint32_t heap_flag, char *&text) {
    if (e.node->has(heap_flag)) std::free(text);
    text = e.text;
}

void undo_name(edit &e) {
    bool linked = e.node->parent != nullptr;
    if (linked) index_remove(e.node);
    undo_text(e, k_heap_name, e.node->name);
    e.node->flags = (e.node->flags & ~(k_heap_name | k_static_name)) | e.flags;
    if (linked) index_add(e.node);
}

/* Takes one step back. Returns a tree that nobody has a use for any more, or null. */
node_record *undo(journal_log *log, edit &e) {
    g_edit_count++;
    node_record *node = e.node;
    switch (e.what) {
        case step::flags:
            node->flags = (node->flags & ~(k_changed | k_own_changed)) | e.flags;
            break;
        case step::name:
            undo_name(e);
            break;
        case step::value:
            undo_text(e, k_heap_value, node->value);
            node->flags = (node->flags & ~uint32_t{k_heap_value}) | e.flags;
            break;
        case step::linked:
            take_out(node);
            if (node->has(k_logged)) node->log = log;
            return (e.flags & k_held) != 0 ? nullptr : node;
        case step::unlinked:
            link_node(e.parent, node, e.next);
            break;
        case step::adopted:
            node->flags = (node->flags & ~k_journal_flags) | e.flags;
            break;
        case step::destroyed: /* what has been in the tree goes back there, or was new (linked) */
            return (e.flags & k_held) != 0 ? nullptr : node;
    }
    return nullptr;
}

/* Nothing more can be undone: frees what the records hold. */
void forget(std::vector<edit> &edits) {
    for (edit &e : edits) {
        if (e.what == step::name && (e.flags & k_heap_name) != 0) std::free(e.text);
        if (e.what == step::value && (e.flags & k_heap_value) != 0) std::free(e.text);
        if (e.what == step::adopted) e.node->flags &= ~k_journal_flags;
    }
    for (edit &e : edits) {
        if (e.what == step::destroyed) free_tree(e.node);
    }
    edits.clear();
}

void close_log(journal_log *log) {
    forget(log->edits);
    log->root->flags &= ~k_journal_flags;
    g_open_logs--;
    delete log;
}

/* Ends a journal and those opened later on the same tree; the log with the last of them. */
void end_journal(cnf_journal *journal) {
    journal_log *log = journal->log;
    bool last = false;
    while (!last && !log->open.empty()) {
        last = log->open.back().get() == journal;
        log->open.pop_back();
    }
    if (log->open.empty()) close_log(log);
}

void record_step(journal_log *log, const edit &e) {
    log->edits.push_back(e);  // log_reserve has made the room
}

edit step_of(step what, node_record *node, uint32_t flags) {
    return edit{what, node->flags & flags, node, nullptr, {nullptr}};
}

journal_log *open_log(node_record *root) {
    auto log = std::make_unique<journal_log>();
    log->root = root;
    root->log = log.get();
    root->flags |= k_logged;
    g_open_logs++;
    return log.release();
}

}  // namespace

cnf_journal *cnf_journal_begin(cnfnode *root) {
    if (root == nullptr || root->parent != nullptr) {
        errno = EINVAL;
        return nullptr;
    }
    node_record *top = record(root);
    journal_log *log = nullptr;
    bool opened = false;
    try {
        log = log_of(top);
        if (log != nullptr && log->root != top) {
            errno = EINVAL;
            return nullptr;
        }
        opened = log == nullptr;
        if (opened) log = open_log(top);
        auto journal = std::make_unique<cnf_journal>(cnf_journal{log, log->edits.size()});
        cnf_journal *handle = journal.get();
        log->open.push_back(std::move(journal));
        return handle;
    } catch (const std::bad_alloc &) {
        if (opened && log != nullptr) close_log(log);
        errno = ENOMEM;
        return nullptr;
    }
}

int cnf_journal_changed(const cnf_journal *journal) {
    return journal != nullptr && journal->log->edits.size() > journal->mark ? 1 : 0;
}

void cnf_journal_rollback(cnf_journal *journal) {
    if (journal == nullptr) return;
    std::vector<edit> &edits = journal->log->edits;
    node_record *unused = nullptr;
    while (edits.size() > journal->mark) {
        node_record *node = undo(journal->log, edits.back());
        edits.pop_back();
        if (node == nullptr) continue;
        /* Freed at the end: an earlier step may still have to take a part of it out. */
        node->next = unused;
        unused = node;
    }
    while (unused != nullptr) {
        node_record *node = unused;
        unused = node->next_node();
        node->next = nullptr;
        free_tree(node);
    }
    end_journal(journal);
}

void cnf_journal_keep(cnf_journal *journal) {
    if (journal != nullptr) end_journal(journal);
}

journal_log *log_of(node_record *node) {
    if (g_open_logs == 0) return nullptr;
    node_record *top = top_of(node);
    return top->has(k_logged) ? top->log : nullptr;
}

int log_reserve(journal_log *log, size_t records) {
    if (log == nullptr) return 0;
    size_t needed = log->edits.size() + records;
    if (needed <= log->edits.capacity()) return 0;
    try {
        log->edits.reserve(needed * 2);
        return 0;
    } catch (const std::bad_alloc &) {
        errno = ENOMEM;
        return -1;
    }
}

void log_flags(journal_log *log, node_record *node) {
    if (log != nullptr) record_step(log, step_of(step::flags, node, k_changed | k_own_changed));
}

void log_name(journal_log *log, node_record *node) {
    edit e = step_of(step::name, node, k_heap_name | k_static_name);
    e.text = node->name;
    record_step(log, e);
}

void log_value(journal_log *log, node_record *node) {
    edit e = step_of(step::value, node, k_heap_value);
    e.text = node->value;
    record_step(log, e);
}

void log_link(journal_log *log, node_record *node) {
    if (log != nullptr) record_step(log, step_of(step::linked, node, k_held));
}

void log_unlink(journal_log *log, node_record *node) {
    if (log == nullptr) return;
    edit e = step_of(step::unlinked, node, 0);
    e.parent = node->up();
    e.next = node->next_node();
    record_step(log, e);
}

void log_adopt(journal_log *log, node_record *top, bool held) {
    if (log == nullptr) return;
    uint32_t flags = k_logged | (held ? uint32_t{k_held} : 0);
    if ((top->flags & flags) != flags) {
        record_step(log, step_of(step::adopted, top, k_journal_flags));
        top->flags |= flags;
    }
    top->log = log;
}

bool log_covers_root(const journal_log *log, const node_record *node) {
    return log != nullptr && log->root == node;
}

bool log_destroy(journal_log *log, node_record *top) {
    if (log->root != top) {
        errno_guard keep;
        if (log_reserve(log, 1) == 0) record_step(log, step_of(step::destroyed, top, k_held));
        return true;
    }
    end_journal(log->open.front().get());
    return false;
}

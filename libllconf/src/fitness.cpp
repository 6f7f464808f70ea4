#include <array>
#include <cerrno>
#include <new>

#include "engine.h"
#include "ucfgd/owners.h"

/* Whether an entry can be written as it stands. Nothing but writing it tells for sure, so that is
 * what happens here: the entry is put into a file of its own, below copies of its sections' heads
 * and between copies of its neighbours, and that file is written and read again. What is further
 * away has no part in it: an entry reaches no further than to those beside it, and a section does
 * not look into its children.
 *
 * Where entries of several lines follow each other without sections that holds no longer: a quote
 * that is never closed, or a line that several entries share (parser.h), reaches any place of the
 * file. Those files are small, and are tried as a whole.
 *
 * A neighbour that is itself unfinished does not count; the question comes back when it has been
 * finished.
 */

namespace {

using owned_node = owned<node_record, free_tree>;

bool is_layout_only(const node_record *node) {
    return node->name == k_empty_name || node->name == k_comment_name;
}

/* A node that has been added and waits for what it shall hold. */
bool is_new_leaf(const node_record *node) {
    return node->first_child == nullptr && node->value == nullptr && !node->has(k_has_text);
}

node_record *neighbour(const node_record *node, bool before) {
    auto step = [before](const node_record *at) { return before ? at->prev : at->next_node(); };
    node_record *at = step(node);
    while (at != nullptr && is_layout_only(at))
        at = step(at);
    return at;
}

class entry_trial {
  public:
    entry_trial(const cnfmodule *module, const node_record *root, const node_record *node)
        : module_(module), root_(root), entry_(entry_of(node)) {}

    cnf_fitness run(std::string &why);
    cnf_fitness run_in_file(std::string &why);

  private:
    using neighbours = std::array<const node_record *, 3>;

    bool is_section(const node_record *node) const {
        return is_section_kind(written_kind(module_, node));
    }
    const node_record *entry_of(const node_record *node) const;
    owned_node copy_of(const node_record *node) const;
    owned_node file_with(const neighbours &nodes) const;
    bool writes(const node_record *file);
    bool writes(const neighbours &nodes) { return writes(file_with(nodes).get()); }
    bool is_begun();

    const cnfmodule *module_;
    const node_record *root_;
    const node_record *entry_;
    refusal refused_;
};

/* The highest node above, or node, that is no section: what its text is about. */
const node_record *entry_trial::entry_of(const node_record *node) const {
    const node_record *entry = node;
    for (const node_record *at = node; at != root_; at = at->up()) {
        if (at != node && !is_section(at)) entry = at;
    }
    return entry;
}

owned_node checked(node_record *node) {
    if (node == nullptr) throw std::bad_alloc{};
    return owned_node{node};
}

/* An entry whole, a section without what is in it. */
owned_node entry_trial::copy_of(const node_record *node) const {
    if (!is_section(node)) return checked(record(clone_cnftree(node)));
    owned_node copy = checked(clone_alone(node));
    copy->flags |= k_changed;
    return copy;
}

owned_node entry_trial::file_with(const neighbours &nodes) const {
    owned_node top;
    for (const node_record *above = entry_->up();; above = above->up()) {
        owned_node copy = checked(clone_alone(above));
        copy->flags |= k_changed;
        if (top == nullptr) {
            for (const node_record *node : nodes) {
                if (node != nullptr) link_node(copy.get(), copy_of(node).release(), nullptr);
            }
        } else {
            link_node(copy.get(), top.release(), nullptr);
        }
        top = std::move(copy);
        if (above == root_) return top;
    }
}

bool entry_trial::writes(const node_record *file) {
    written_text out;
    refused_ = {};
    if (write_tree(module_, file, out, refused_)) return true;
    if (errno == ENOMEM) throw std::bad_alloc{};
    return false;
}

/* Whether the entry fits without its nodes that have no value yet. */
bool entry_trial::is_begun() {
    if (refused_.unfinished) return true;
    owned_node file = file_with({nullptr, entry_, nullptr});
    node_record *entry = file.get();
    for (const node_record *at = entry_; at != root_; at = at->up())
        entry = entry->first();
    bool changed = false;
    for (node_record *node = entry; node != nullptr;) {
        bool bare = node != entry && node->first_child == nullptr && node->value == nullptr;
        node_record *next = next_in_tree(node, static_cast<const node_record *>(entry));
        if (bare) {
            take_out(node);
            free_tree(node);
            changed = true;
        }
        node = next;
    }
    return is_new_leaf(entry) || (changed && writes(file.get()));
}

cnf_fitness entry_trial::run(std::string &why) {
    bool alone = syntax{module_}.by_lines();
    const node_record *before = alone ? nullptr : neighbour(entry_, true);
    const node_record *behind = alone ? nullptr : neighbour(entry_, false);
    if (writes({before, entry_, behind})) return CNF_FIT;
    why = "'" + std::string{entry_->name} + "' cannot stand where it does in this file";
    if (!writes({nullptr, entry_, nullptr})) {
        why = refused_.why;
        return is_begun() ? CNF_UNFINISHED : CNF_UNFIT;
    }
    if (before != nullptr && !writes({before, nullptr, nullptr})) before = nullptr;
    if (behind != nullptr && !writes({nullptr, nullptr, behind})) behind = nullptr;
    if (writes({before, entry_, behind})) return CNF_FIT;
    return is_new_leaf(entry_) ? CNF_UNFINISHED : CNF_UNFIT;
}

/* Tries the file as a whole; that may fail for an entry elsewhere that is unfinished. */
cnf_fitness entry_trial::run_in_file(std::string &why) {
    if (writes(root_)) return CNF_FIT;
    std::string whole = refused_.why;
    cnf_fitness fitness = run(why);
    if (fitness != CNF_FIT) return fitness;
    for (const node_record *node = root_->first(); node != nullptr; node = node->next_node()) {
        std::string ignored;
        if (node != entry_ && entry_trial{module_, root_, node}.run(ignored) == CNF_UNFINISHED)
            return CNF_FIT;
    }
    why = whole;
    return CNF_UNFIT;
}

}  // namespace

cnf_fitness fitness_of(const cnfmodule *module, const node_record *root, const node_record *node,
                       std::string &why) {
    why.clear();
    syntax s{module};
    if (node == root || s.whole_file()) return CNF_FIT;
    bool reaches_far = !s.by_lines() && !s.nested();
    entry_trial trial{module, root, node};
    cnf_fitness fitness = reaches_far ? trial.run_in_file(why) : trial.run(why);
    for (char &c : why)
        c = static_cast<unsigned char>(c) < ' ' || c == '\x7f' ? '?' : c;
    return fitness;
}

#include "path_search.h"

#include <cerrno>
#include <string>

#include "child_index.h"
#include "ucfgd/owners.h"

namespace {

using owned_node = owned<node_record, free_tree>;

bool fits(const node_record *node, const path_component &part) {
    return cnfnode_is_formatting(node) == 0 && matches_pattern(part.name, node->name);
}

/* Of the right name, whatever the selector says. */
node_record *from_here(node_record *node, const path_component &part) {
    while (node != nullptr && !fits(node, part))
        node = node->next_node();
    return node;
}

node_record *first_candidate(const node_record *parent, const path_component &part) {
    return part.wildcard ? from_here(parent->first(), part) : first_named(parent, part.name);
}

node_record *next_candidate(const node_record *node, const path_component &part) {
    return part.wildcard ? from_here(node->next_node(), part) : next_named(node);
}

bool has_key(const node_record *node, const path_component &part) {
    for (const node_record *child = first_named(node, part.key); child != nullptr;
         child = next_named(child)) {
        if (child->value != nullptr && part.text == child->value) return true;
    }
    return false;
}

node_record *with_key(node_record *node, const path_component &part) {
    if (part.select != selector::key) return node;
    while (node != nullptr && !has_key(node, part))
        node = next_candidate(node, part);
    return node;
}

node_record *first_match(const node_record *parent, const path_component &part) {
    node_record *node = first_candidate(parent, part);
    if (part.select != selector::index) return with_key(node, part);
    for (size_t i = 0; node != nullptr && i < part.index; i++)
        node = next_candidate(node, part);
    return node;
}

node_record *next_match(const node_record *node, const path_component &part) {
    if (part.select == selector::index) return nullptr;
    return with_key(next_candidate(node, part), part);
}

size_t count_named(const node_record *parent, std::string_view name) {
    size_t count = 0;
    for (const node_record *child = first_named(parent, name); child != nullptr;
         child = next_named(child)) {
        count++;
    }
    return count;
}

owned_node new_node(std::string_view name) {
    return owned_node{allocate_node({name, false, {}, false}, k_changed | k_own_changed)};
}

/* The node of one component; parent: where it will stand, or null below a new one. */
owned_node node_of(const path_component &part, const node_record *parent) {
    size_t place = part.select == selector::index && parent ? count_named(parent, part.name) : 0;
    if (part.name.empty() || (part.select == selector::index && part.index != place)) {
        errno = EINVAL;
        return nullptr;
    }
    owned_node node = new_node(part.name);
    if (!node || part.select != selector::key) return node;
    owned_node key{allocate_node({part.key, false, part.text, true}, k_changed | k_own_changed)};
    if (!key) return nullptr;
    link_node(node.get(), key.release(), nullptr);
    return node;
}

}  // namespace

const path_component &path_search::part(size_t level) {
    while (known_ <= level) {
        path_component next = reader_.next();
        if (known_ < k_inline_parts) {
            parts_[known_] = next;
        } else {
            more_parts_.push_back(next);
        }
        known_++;
    }
    return level < k_inline_parts ? parts_[level] : more_parts_[level - k_inline_parts];
}

bool path_search::is_last(size_t level) {
    return level + 1 == known_ && reader_.at_end();
}

/* From a candidate below parent, or null when there is none left, to the next match. */
node_record *path_search::settle(node_record *candidate, node_record *parent) {
    while (true) {
        if (candidate == nullptr) {
            if (level_ == 0) return nullptr;
            level_--;
            candidate = next_match(parent, part(level_));
            parent = parent->up();
        } else if (is_last(level_)) {
            return candidate;
        } else {
            level_++;
            parent = candidate;
            candidate = first_match(parent, part(level_));
        }
    }
}

node_record *path_search::first() {
    level_ = 0;
    return settle(first_match(base_, part(0)), base_);
}

node_record *path_search::next(node_record *found) {
    return settle(next_match(found, part(level_)), found->up());
}

node_record *path_search::branch_point() {
    node_record *best = base_;
    size_t best_level = 0;
    node_record *parent = base_;
    level_ = 0;
    while (true) {
        const path_component &here = part(level_);
        if (level_ > best_level) {
            best = parent;
            best_level = level_;
        }
        if (is_last(level_)) break;
        node_record *candidate = first_match(parent, here);
        while (candidate == nullptr && level_ > 0) {
            level_--;
            candidate = next_match(parent, part(level_));
            parent = parent->up();
        }
        if (candidate == nullptr) break;
        parent = candidate;
        level_++;
    }
    level_ = best_level;
    return best;
}

size_t count_same_before(const node_record *node) {
    if (node->parent == nullptr) return 0;
    size_t count = 0;
    for (const node_record *other = first_named(node->up(), node->name); other != node;
         other = next_named(other)) {
        count++;
    }
    return count;
}

bool make_branch(node_record *node, const char *path, branch &made) {
    if (path_reader::is_self(path) || !path_reader::is_path(path)) {
        errno = EINVAL;
        return false;
    }
    path_search search{node, path, false};
    made.parent = search.branch_point();
    owned_node top;
    node_record *last = nullptr;
    for (size_t level = search.level();; level++) {
        const path_component &part = search.part(level);
        owned_node fresh = node_of(part, last == nullptr ? made.parent : nullptr);
        if (!fresh) return false;
        node_record *below = fresh.get();
        if (last == nullptr) {
            top = std::move(fresh);
        } else {
            link_node(last, fresh.release(), nullptr);
        }
        last = below;
        if (search.is_last(level)) break;
    }
    made.top = top.release();
    made.last = last;
    return true;
}

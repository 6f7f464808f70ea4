#include "child_index.h"

#include <sys/random.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "ucfgd/owners.h"

struct child_slot {
    uint32_t hash;
    node_record *head; /* first of its name; null: free */
};

struct child_index {
    size_t mask;
    size_t used;

    child_slot *slots() { return reinterpret_cast<child_slot *>(this + 1); }
};

namespace {

constexpr int k_walk_limit = 16;
constexpr size_t k_first_size = 64;

/* Names come from files and clients, so the hash has a secret key: nobody can choose names that
 * meet in one slot. SipHash with one round a word and three at the end. */
struct hash_state {
    uint64_t v0, v1, v2, v3;

    void round() {
        v0 += v1;
        v1 = std::rotl(v1, 13) ^ v0;
        v0 = std::rotl(v0, 32);
        v2 += v3;
        v3 = std::rotl(v3, 16) ^ v2;
        v0 += v3;
        v3 = std::rotl(v3, 21) ^ v0;
        v2 += v1;
        v1 = std::rotl(v1, 17) ^ v2;
        v2 = std::rotl(v2, 32);
    }
    void add(uint64_t word) {
        v3 ^= word;
        round();
        v0 ^= word;
    }
};

const std::array<uint64_t, 2> &hash_key() {
    static const std::array<uint64_t, 2> key = [] {
        std::array<uint64_t, 2> fresh{};
        errno_guard keep;
        if (getrandom(fresh.data(), sizeof fresh, GRND_NONBLOCK) != ssize_t{sizeof fresh}) {
            fresh[0] = static_cast<uint64_t>(time(nullptr)) * 0x9e3779b97f4a7c15U;
            fresh[1] = reinterpret_cast<uintptr_t>(&fresh);
        }
        return fresh;
    }();
    return key;
}

uint32_t hash_name(std::string_view name) {
    const std::array<uint64_t, 2> &key = hash_key();
    hash_state state{key[0] ^ 0x736f6d6570736575U, key[1] ^ 0x646f72616e646f6dU,
                     key[0] ^ 0x6c7967656e657261U, key[1] ^ 0x7465646279746573U};
    const char *at = name.data();
    size_t left = name.size();
    for (; left >= 8; left -= 8, at += 8) {
        uint64_t word = 0;
        std::memcpy(&word, at, 8);
        state.add(word);
    }
    uint64_t last = uint64_t{name.size()} << 56;
    for (size_t i = 0; i < left; i++)
        last |= uint64_t{static_cast<unsigned char>(at[i])} << (8 * i);
    state.add(last);
    state.v2 ^= 0xff;
    for (int i = 0; i < 3; i++)
        state.round();
    return static_cast<uint32_t>(state.v0 ^ state.v1 ^ state.v2 ^ state.v3);
}

bool named(const node_record *node, std::string_view name) {
    return std::strncmp(node->name, name.data(), name.size()) == 0 &&
           node->name[name.size()] == '\0';
}

child_index *allocate_index(size_t size) {
    errno_guard keep;
    void *memory = std::calloc(1, sizeof(child_index) + size * sizeof(child_slot));
    auto *index = static_cast<child_index *>(memory);
    if (index != nullptr) index->mask = size - 1;
    return index;
}

/* The slot of that name, or the free one where it belongs. */
child_slot *slot_of(child_index *index, std::string_view name, uint32_t hash) {
    for (size_t i = hash & index->mask;; i = (i + 1) & index->mask) {
        child_slot *slot = index->slots() + i;
        if (slot->head == nullptr) return slot;
        if (slot->hash == hash && named(slot->head, name)) return slot;
    }
}

bool grow(node_record *parent) {
    child_index *old = parent->index;
    child_index *bigger = allocate_index((old->mask + 1) * 2);
    if (bigger == nullptr) return false;
    for (size_t i = 0; i <= old->mask; i++) {
        const child_slot &slot = old->slots()[i];
        if (slot.head == nullptr) continue;
        size_t to = slot.hash & bigger->mask;
        while (bigger->slots()[to].head != nullptr)
            to = (to + 1) & bigger->mask;
        bigger->slots()[to] = slot;
    }
    bigger->used = old->used;
    std::free(old);
    parent->index = bigger;
    return true;
}

/* Frees a slot; what stands behind it moves up so that no chain of probes is cut. */
void free_slot(child_index *index, size_t hole) {
    for (size_t i = (hole + 1) & index->mask; index->slots()[i].head != nullptr;
         i = (i + 1) & index->mask) {
        size_t home = index->slots()[i].hash & index->mask;
        if (((i - home) & index->mask) < ((i - hole) & index->mask)) continue;
        index->slots()[hole] = index->slots()[i];
        hole = i;
    }
    index->slots()[hole] = {};
    index->used--;
}

void chain_after(node_record *before, node_record *node, node_record *head) {
    node->prev_same = before;
    node->next_same = before->next_same;
    before->next_same = node;
    (node->next_same != nullptr ? node->next_same : head)->prev_same = node;
}

/* Puts a node that stands in the midst of its siblings into the chain of its name: looks in both
 * directions for the nearest one. */
void chain_in_order(child_slot *slot, node_record *node) {
    node_record *back = node->prev;
    node_record *forth = node->next_node();
    while (true) {
        if (back != nullptr && named(back, node->name)) return chain_after(back, node, slot->head);
        if (forth != nullptr && named(forth, node->name)) break;
        if (back != nullptr) back = back->prev;
        if (forth != nullptr) forth = forth->next_node();
    }
    if (forth != slot->head) return chain_after(forth->prev_same, node, slot->head);
    node->next_same = forth;
    node->prev_same = forth->prev_same;
    forth->prev_same = node;
    slot->head = node;
}

/* Large enough for all children, so that it need not grow at once: large tables are dear to move.
 */
size_t first_size(const node_record *parent) {
    size_t children = 0;
    for (const cnfnode *child = parent->first_child; child != nullptr; child = child->next)
        children++;
    return std::max(k_first_size, std::bit_ceil(children + children / 4));
}

void build_index(node_record *parent) {
    parent->index = allocate_index(first_size(parent));
    if (parent->index == nullptr) return;
    node_record *end = nullptr;
    /* Each child is added as if it were the last one so far. */
    for (node_record *child = parent->first(); child != end; child = child->next_node()) {
        cnfnode *next = child->next;
        child->next = nullptr;
        index_add(child);
        child->next = next;
        if (parent->index == nullptr) return;
    }
}

}  // namespace

node_record *first_named(const node_record *parent, std::string_view name) {
    if (parent->index == nullptr) {
        int steps = 0;
        for (node_record *child = parent->first(); child != nullptr; child = child->next_node()) {
            if (named(child, name)) return child;
            if (++steps == k_walk_limit) {
                build_index(mutable_record(parent));
                if (parent->index != nullptr) break;
            }
        }
        if (parent->index == nullptr) return nullptr;
    }
    return slot_of(parent->index, name, hash_name(name))->head;
}

node_record *next_named(const node_record *node) {
    node_record *parent = node->up();
    if (parent == nullptr) return nullptr;
    int steps = 0;
    for (node_record *other = node->next_node(); parent->index == nullptr && other != nullptr;
         other = other->next_node()) {
        if (std::strcmp(other->name, node->name) == 0) return other;
        if (++steps == k_walk_limit) build_index(parent);
    }
    return parent->index != nullptr ? node->next_same : nullptr;
}

bool index_children(node_record *parent) {
    int count = 0;
    for (const cnfnode *child = parent->first_child; parent->index == nullptr && child != nullptr;
         child = child->next) {
        if (++count < k_walk_limit) continue;
        build_index(parent);
        break;
    }
    return parent->index != nullptr;
}

node_record *earlier_named(const node_record *node) {
    return node->prev_same->next_same == node ? node->prev_same : nullptr;
}

void index_add(node_record *node) {
    node_record *parent = node->up();
    if (parent->index == nullptr) return;
    size_t size = parent->index->mask + 1;
    if (parent->index->used >= size - size / 8 && !grow(parent)) return index_drop(parent);
    uint32_t hash = hash_name(node->name);
    child_slot *slot = slot_of(parent->index, node->name, hash);
    if (slot->head == nullptr) {
        *slot = {hash, node};
        parent->index->used++;
        node->next_same = nullptr;
        node->prev_same = node;
    } else if (node->next == nullptr) {
        chain_after(slot->head->prev_same, node, slot->head);
    } else {
        chain_in_order(slot, node);
    }
}

void index_remove(node_record *node) {
    node_record *parent = node->up();
    if (parent->index == nullptr) return;
    child_slot *slot = slot_of(parent->index, node->name, hash_name(node->name));
    node_record *next = node->next_same;
    if (slot->head != node) {
        node->prev_same->next_same = next;
        (next != nullptr ? next : slot->head)->prev_same = node->prev_same;
    } else if (next != nullptr) {
        next->prev_same = node->prev_same;
        slot->head = next;
    } else {
        free_slot(parent->index, static_cast<size_t>(slot - parent->index->slots()));
    }
}

size_t index_size(const node_record *parent) {
    const child_index *index = parent->index;
    return index ? sizeof(*index) + (index->mask + 1) * sizeof(child_slot) : 0;
}

void index_drop(node_record *parent) {
    std::free(parent->index);
    parent->index = nullptr;
}

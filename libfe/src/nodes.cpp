// Nodes and where they come from. A node and its text are one block; the two commonest sizes are
// recycled, because an evaluation makes and drops a few nodes for every call.
#include "fe/nodes.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "internal.h"

static_assert(offsetof(fe_node, next) == 0);
static_assert(offsetof(fe_def, next) == 0);

namespace fe {

namespace {

struct kept_blocks {
    fe_node *first;
    unsigned int room;  // for further ones
};
constexpr std::array<size_t, 3> k_block_sizes = {64, 128, 512};
std::array<kept_blocks, k_block_sizes.size()> g_kept = {
    {{nullptr, 1024}, {nullptr, 256}, {nullptr, 64}}};
constexpr unsigned char k_own_block = 255;  // class of nodes that are too long to be recycled

size_t g_bytes_in_use = 0;

constexpr unsigned short k_deepest_copy = 2000;

unsigned char class_of(size_t bytes) {
    for (size_t i = 0; i < k_block_sizes.size(); ++i) {
        if (bytes <= k_block_sizes[i]) return static_cast<unsigned char>(i);
    }
    return k_own_block;
}

size_t block_size(const fe_node *node) {
    if (node->private_class != k_own_block) return k_block_sizes[node->private_class];
    return sizeof(fe_node) + node->private_length + 1;
}

fe_node *new_block(size_t bytes) {
    if (reserve_bytes(bytes) != 0) return nullptr;
    auto *node = static_cast<fe_node *>(malloc(bytes));
    if (node == nullptr) release_bytes(bytes);
    return node;
}

fe_node *take_kept(unsigned char class_index) {
    kept_blocks &kept = g_kept[class_index];
    fe_node *node = kept.first;
    if (node == nullptr) return nullptr;
    kept.first = node->next;
    ++kept.room;
    g_bytes_in_use += k_block_sizes[class_index];
    return node;
}

fe_node *take_block(size_t bytes, unsigned char class_index) {
    if (class_index == k_own_block) return new_block(bytes);
    fe_node *node = take_kept(class_index);
    return node != nullptr ? node : new_block(k_block_sizes[class_index]);
}

void fill_node(fe_node *node, fe_def *fed, size_t length, unsigned char class_index) {
    *node = {nullptr,     fed, node_text(node), nullptr, static_cast<unsigned int>(length), 1,
             class_index, 0};
    node_text(node)[length] = '\0';
}

bool keep_block(fe_node *node, unsigned char class_index) {
    kept_blocks &kept = g_kept[class_index];
    if (!k_recycle || kept.room == 0) return false;
    --kept.room;
    node->next = kept.first;
    kept.first = node;
    g_bytes_in_use -= k_block_sizes[class_index];
    return true;
}

void give_block_back(fe_node *node) {
    if (node->private_class != k_own_block && keep_block(node, node->private_class)) return;
    release_bytes(block_size(node));
    free(node);
}

void release_node(fe_node *node) {
    if (node->fed->private_kind == k_kind_variable) {
        release_symbol(symbol_of_name(node->text));
    } else if ((node->private_flags & k_flag_own_body) == 0) {
        release_definition(node->fed);
    }
    give_block_back(node);
}

// Without recursion: a tree that was built call by call may be of any depth.
[[gnu::noinline]] void destroy_trees(fe_node *first) {
    while (first != nullptr) {
        fe_node *next = first->next;
        if (fe_node *child = first->first_child) {
            fe_node *last = child;
            while (last->next != nullptr)
                last = last->next;
            last->next = next;
            next = child;
        }
        release_node(first);
        first = next;
    }
}

fe_node *copy_tree(const fe_node *node, unsigned int depth) {
    if (depth > k_deepest_copy) return fail_with(ELOOP);
    node_list copy(copy_fe_node(node));
    if (copy == nullptr) return nullptr;
    result_list children;
    for (const fe_node *child = node->first_child; child != nullptr; child = child->next) {
        fe_node *child_copy = copy_tree(child, depth + 1);
        if (child_copy == nullptr) return nullptr;
        children.append(child_copy);
    }
    copy->first_child = children.release();
    return copy.release();
}

}  // namespace

int reserve_bytes(size_t bytes) {
    if (bytes > k_max_memory || g_bytes_in_use > k_max_memory - bytes) {
        if (g_run.active) stop_run("an expression was stopped: more than 256 MiB of texts", ENOMEM);
        errno = ENOMEM;
        return -1;
    }
    g_bytes_in_use += bytes;
    return 0;
}

void release_bytes(size_t bytes) {
    g_bytes_in_use -= bytes;
}

fe_node *allocate_node(fe_def *fed, size_t length) {
    if (length > k_max_text) return fail_with(ENOMEM);
    const size_t bytes = sizeof(fe_node) + length + 1;
    const unsigned char class_index = class_of(bytes);
    fe_node *node = take_block(bytes, class_index);
    if (node == nullptr) {
        stop_out_of_memory();
        return nullptr;
    }
    fill_node(node, fed, length, class_index);
    retain_definition(fed);
    return node;
}

fe_node *allocate_const(size_t length) {
    fe_node *node = sizeof(fe_node) + length < k_block_sizes[0] ? take_kept(0) : nullptr;
    if (node == nullptr) return allocate_node(&g_def_const, length);
    fill_node(node, &g_def_const, length, 0);
    return node;
}

fe_node *new_const(std::string_view text) {
    fe_node *node = allocate_const(text.size());
    if (node != nullptr) copy_text(node_text(node), text);
    return node;
}

fe_node *create_variable_node(std::string_view name) {
    symbol_ptr symbol = acquire_symbol(name);
    if (symbol == nullptr) return nullptr;
    fe_node *node = allocate_node(&g_def_variable, 0);
    if (node == nullptr) {
        release_symbol(symbol);
        return nullptr;
    }
    node->text = symbol->name;
    return node;
}

}  // namespace fe

extern "C" {

using namespace fe;

fe_node *create_fe_node(fe_def *fed, const char *text) {
    if (text != nullptr) return create_fe_node_n(fed, text, strlen(text));
    fe_node *node = allocate_node(fed, 0);
    if (node != nullptr && fed->private_kind != k_kind_const) node->text = nullptr;
    return node;
}

fe_node *create_fe_node_n(fe_def *fed, const char *text, size_t length) {
    if (fed == &g_def_const) return new_const({text, length});
    fe_node *node = allocate_node(fed, length);
    if (node != nullptr) memcpy(node_text(node), text, length);
    return node;
}

fe_node *create_fe_node_with_func(fe_def *list, const char *name) {
    fe_def *fed = find_fe_def(list, name);
    if (fed == nullptr) return fail_with(EINVAL);
    return create_fe_node(fed, nullptr);
}

fe_node *copy_fe_node(const fe_node *node) {
    if (node->fed->private_kind == k_kind_variable) {
        return create_variable_node({node->text, symbol_of_name(node->text)->length});
    }
    if (node->text == nullptr) return create_fe_node(node->fed, nullptr);
    return create_fe_node_n(node->fed, node->text, node->private_length);
}

fe_node *copy_fe_node_tree(const fe_node *node) {
    return copy_tree(node, 0);
}

fe_node *copy_fe_node_list(const fe_node *first) {
    result_list copies;
    for (; first != nullptr; first = first->next) {
        fe_node *copy = copy_tree(first, 0);
        if (copy == nullptr) return nullptr;
        copies.append(copy);
    }
    return copies.release();
}

void destroy_fe_node_tree(fe_node *node) {
    if (node == nullptr) return;
    node->next = nullptr;
    destroy_fe_node_list(node);
}

// What an evaluation drops is most often a short constant, which goes back to where the next one is
// taken from.
void destroy_fe_node_list(fe_node *first) {
    while (first != nullptr) {
        fe_node *next = first->next;
        if (first->fed != &g_def_const || first->private_class != 0 ||
            first->first_child != nullptr || !keep_block(first, 0)) {
            destroy_trees(first);
            return;
        }
        first = next;
    }
}

fe_node *append_fe_node_list(fe_node *list, fe_node *more) {
    if (list == nullptr) return more;
    fe_node *last = list;
    while (last->next != nullptr)
        last = last->next;
    last->next = more;
    return list;
}

int fe_argc(const fe_node *list) {
    int count = 0;
    for (; list != nullptr; list = list->next)
        ++count;
    return count;
}

int fe_node_is_const_true(const fe_node *node) {
    return node != nullptr && node->fed == g_fed_const && fe_istrue(node->text);
}

int fe_istrue(const char *text) {
    return text != nullptr && text[0] == '1' && text[1] == '\0';
}

const char *fe_last_text(const fe_node *list) {
    if (list == nullptr) return nullptr;
    while (list->next != nullptr)
        list = list->next;
    return list->text;
}
}

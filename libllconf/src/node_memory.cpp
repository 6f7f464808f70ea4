#include "node_memory.h"

#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <new>

#include "node_record.h"
#include "ucfgd/owners.h"

/* Stands at the front of its block. Blocks begin at multiples of k_alignment, whatever their size,
 * so that a node leads to its block. */
struct node_block {
    std::atomic<uint32_t> nodes; /* that have not been given back; k_open more while it is filled */
    uint32_t size;
};

namespace {

/* The size of a large page, which the last block size fills: taking it costs one fault instead of
 * hundreds, and so does writing to it after a fork. */
constexpr size_t k_alignment = size_t{2} << 20;
constexpr size_t k_first_size = size_t{64} << 10;
constexpr size_t k_largest_node = 4096;
constexpr unsigned int k_single_nodes = 256;
constexpr uint32_t k_open = 1U << 31;

#ifdef __SANITIZE_ADDRESS__
constexpr bool k_share_blocks = false; /* so that the sanitizer sees every use after release */
#else
constexpr bool k_share_blocks = true;
#endif

size_t rounded(size_t size) {
    constexpr size_t k_unit = alignof(node_record);
    return (size + k_unit - 1) & ~(k_unit - 1);
}

node_block *block_of(const void *node) {
    return reinterpret_cast<node_block *>(reinterpret_cast<uintptr_t>(node) & ~(k_alignment - 1));
}

/* Maps more than the size, and keeps the part that is aligned. */
char *map_aligned(size_t size) {
    size_t mapped = size + k_alignment;
    void *all = mmap(nullptr, mapped, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (all == MAP_FAILED) return nullptr;
    auto *begin = static_cast<char *>(all);
    size_t before = (k_alignment - reinterpret_cast<uintptr_t>(begin) % k_alignment) % k_alignment;
    if (before > 0) munmap(begin, before);
    munmap(begin + before + size, mapped - before - size);
    return begin + before;
}

/* Asks for a block's pages in one go, and for a large page where it fills one. A system that cannot
 * do that brings them in one by one. */
void bring_in(char *block, size_t size) {
    errno_guard keep;
#ifdef MADV_HUGEPAGE
    if (size == k_alignment) madvise(block, size, MADV_HUGEPAGE);
#endif
#ifdef MADV_POPULATE_WRITE
    madvise(block, size, MADV_POPULATE_WRITE);
#endif
}

void give_back(node_block *block, uint32_t count) {
    if (block->nodes.fetch_sub(count, std::memory_order_acq_rel) != count) return;
    errno_guard keep;
    munmap(block, block->size);
}

}  // namespace

node_maker::~node_maker() {
    close_block();
}

void *node_maker::allocate(size_t size, bool &in_block) {
    size = rounded(size);
    in_block = k_share_blocks && made_ >= k_single_nodes && size <= k_largest_node;
    if (in_block && (block_ == nullptr || size > block_->size - used_)) in_block = open_block();
    if (!in_block) {
        made_++;
        return std::malloc(size);
    }
    char *node = reinterpret_cast<char *>(block_) + used_;
    used_ += size;
    nodes_++;
    return node;
}

/* Each block is twice as large as the one before, so that no tree wastes more than its own size. */
bool node_maker::open_block() {
    size_t size =
        block_ == nullptr ? k_first_size : std::min(2 * size_t{block_->size}, k_alignment);
    close_block();
    char *memory = map_aligned(size);
    if (memory == nullptr) return false;
    bring_in(memory, size);
    block_ = new (memory) node_block{k_open, static_cast<uint32_t>(size)};
    used_ = rounded(sizeof(node_block));
    nodes_ = 0;
    return true;
}

void node_maker::close_block() {
    if (block_ == nullptr) return;
    give_back(block_, k_open - nodes_);
    block_ = nullptr;
}

void node_releaser::release(const void *node) {
    node_block *block = block_of(node);
    if (block != block_) flush();
    block_ = block;
    count_++;
}

void node_releaser::flush() {
    if (block_ != nullptr) give_back(block_, count_);
    block_ = nullptr;
    count_ = 0;
}

#ifndef LLCONF_NODE_MEMORY_H
#define LLCONF_NODE_MEMORY_H

#include <cstddef>
#include <cstdint>

/* Where nodes live. A single node is one malloc. The nodes of a parse or a copy, which come by the
 * hundred thousand and mostly go together, share large blocks: handing one out moves a pointer, and
 * giving one back counts it and leaves its page alone. That matters most around a fork, which has
 * fewer pages to copy, and behind which the first write to each page of a tree costs a fault.
 *
 * A block goes when its last node has gone; until then what is given back is not used again. So
 * only makers of whole trees take from blocks, and only beyond a number of nodes that small files
 * never reach. The counts are atomic: trees of one origin may be used by different threads. */

struct node_block;

/* The nodes that one parse or one copy makes. */
class node_maker {
  public:
    node_maker() = default;
    node_maker(const node_maker &) = delete;
    node_maker &operator=(const node_maker &) = delete;
    ~node_maker();

    /* Memory for a node; in_block tells which kind. Null with ENOMEM. */
    void *allocate(size_t size, bool &in_block);

  private:
    bool open_block();
    void close_block();

    unsigned int made_ = 0;
    node_block *block_ = nullptr;
    size_t used_ = 0;    /* bytes of the block */
    uint32_t nodes_ = 0; /* in the block so far */
};

/* Gives back nodes that stand in blocks, many at a time. */
class node_releaser {
  public:
    node_releaser() = default;
    node_releaser(const node_releaser &) = delete;
    node_releaser &operator=(const node_releaser &) = delete;
    ~node_releaser() { flush(); }

    void release(const void *node);

  private:
    void flush();

    node_block *block_ = nullptr;
    uint32_t count_ = 0;
};

#endif

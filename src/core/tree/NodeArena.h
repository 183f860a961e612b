#pragma once

#include <cstddef>
#include <cstdint>

namespace brenvo {

// Memory for tree nodes. A home folder gives millions of nodes, so they are bump-allocated from large
// blocks instead of one heap allocation each. Blocks are aligned to their size, which lets a node find
// its block's header from its own address alone; the header counts the live nodes in the block and the
// block goes back to the system when that count reaches zero. A node's id is derived from its offset in
// the block and a process-wide base reserved for the block, so ids cost no bytes and are never reused.
//
// Each thread allocates from a block of its own; any thread may free. Allocation never reuses the space of
// freed nodes within a block: a block is released whole once all its nodes are gone.
class NodeArena {
public:
    static constexpr size_t kBlockSize = size_t{256} * 1024;
    static constexpr size_t kAlignment = 8;

    static void* allocate(size_t bytes);
    static void release(void* node, size_t bytes);
    static uint64_t idOf(const void* node);

    // Nodes alive in the whole process; counted only in builds with BRENVO_COUNT_NODES, -1 otherwise.
    static long long liveNodes();
    // Blocks mapped in the whole process, for measuring what the tree costs.
    static long long liveBlocks();
};

} // namespace brenvo

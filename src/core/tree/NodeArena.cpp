#include "tree/NodeArena.h"

#include "util/Checked.h"

#include <atomic>
#include <sys/mman.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/asan_interface.h>
#define BRENVO_POISON(p, n) ASAN_POISON_MEMORY_REGION(p, n)
#define BRENVO_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION(p, n)
#else
#define BRENVO_POISON(p, n) ((void)(p), (void)(n))
#define BRENVO_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace brenvo {

namespace {

struct BlockHeader {
    std::atomic<int64_t> live; // nodes in the block, plus one while a thread still allocates from it
    uint64_t idBase;
};

constexpr size_t kHeader = (sizeof(BlockHeader) + NodeArena::kAlignment - 1) & ~(NodeArena::kAlignment - 1);

std::atomic<uint64_t> nextIdBase{NodeArena::kBlockSize / NodeArena::kAlignment};
std::atomic<long long> liveBlockCount{0};
#ifdef BRENVO_COUNT_NODES
std::atomic<long long> liveNodeCount{0};
#endif

BlockHeader* headerOf(const void* p) {
    return reinterpret_cast<BlockHeader*>(reinterpret_cast<uintptr_t>(p) & ~(NodeArena::kBlockSize - 1));
}

void dropReference(BlockHeader* block) {
    if (block->live.fetch_sub(1, std::memory_order_acq_rel) == 1) {
        block->~BlockHeader();
        BRENVO_UNPOISON(block, NodeArena::kBlockSize);
        munmap(block, NodeArena::kBlockSize);
        liveBlockCount.fetch_sub(1, std::memory_order_relaxed);
    }
}

BlockHeader* mapBlock() {
    const size_t size = NodeArena::kBlockSize;
    // Map twice the size and trim, so the block starts on a multiple of its size.
    void* raw = mmap(nullptr, 2 * size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (raw == MAP_FAILED) fatalError("out of memory for the file tree");
    auto start = reinterpret_cast<uintptr_t>(raw);
    uintptr_t aligned = (start + size - 1) & ~(size - 1);
    if (aligned > start) munmap(raw, aligned - start);
    uintptr_t end = start + 2 * size;
    if (end > aligned + size) munmap(reinterpret_cast<void*>(aligned + size), end - (aligned + size));
    BRENVO_UNPOISON(reinterpret_cast<void*>(aligned), size);
    auto* block = new (reinterpret_cast<void*>(aligned)) BlockHeader{};
    block->live.store(1, std::memory_order_relaxed);
    block->idBase = nextIdBase.fetch_add(size / NodeArena::kAlignment, std::memory_order_relaxed);
    BRENVO_POISON(reinterpret_cast<char*>(aligned) + kHeader, size - kHeader);
    liveBlockCount.fetch_add(1, std::memory_order_relaxed);
    return block;
}

// The block this thread bumps into. Its extra reference is dropped when the thread moves on or ends.
struct ThreadBlock {
    BlockHeader* block = nullptr;
    size_t used = 0;
    ~ThreadBlock() {
        if (block) dropReference(block);
    }
};

thread_local ThreadBlock current;

} // namespace

void* NodeArena::allocate(size_t bytes) {
    bytes = (bytes + kAlignment - 1) & ~(kAlignment - 1);
    if (bytes > kBlockSize - kHeader) fatalError("tree node too large");
    if (!current.block || current.used + bytes > kBlockSize) {
        if (current.block) dropReference(current.block);
        current.block = mapBlock();
        current.used = kHeader;
    }
    char* p = reinterpret_cast<char*>(current.block) + current.used;
    current.used += bytes;
    current.block->live.fetch_add(1, std::memory_order_relaxed);
#ifdef BRENVO_COUNT_NODES
    liveNodeCount.fetch_add(1, std::memory_order_relaxed);
#endif
    BRENVO_UNPOISON(p, bytes);
    return p;
}

void NodeArena::release(void* node, size_t bytes) {
    bytes = (bytes + kAlignment - 1) & ~(kAlignment - 1);
    BRENVO_POISON(node, bytes);
#ifdef BRENVO_COUNT_NODES
    liveNodeCount.fetch_sub(1, std::memory_order_relaxed);
#endif
    dropReference(headerOf(node));
}

uint64_t NodeArena::idOf(const void* node) {
    auto offset = reinterpret_cast<uintptr_t>(node) & (kBlockSize - 1);
    return headerOf(node)->idBase + offset / kAlignment;
}

long long NodeArena::liveBlocks() { return liveBlockCount.load(); }

long long NodeArena::liveNodes() {
#ifdef BRENVO_COUNT_NODES
    return liveNodeCount.load();
#else
    return -1;
#endif
}

} // namespace brenvo

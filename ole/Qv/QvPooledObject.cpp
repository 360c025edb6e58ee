// Built with -mcx16: the stack head is swapped with cmpxchg16b.

#include <ole/Qv/QvPooledObject.h>

#include <ole/platform/OS.h>

#include <atomic>

namespace Qv {

// Each block carries the link of the free stack in a header of its own, before the caller's bytes, so
// that reading the link of a block another thread has just popped never touches that thread's object.
// The header's fields are atomic: a thread popping from the stack may read them while the block's owner
// writes them. A full cache hands kHandBack blocks back as one chain whose first block names its last; a
// thread whose cache runs empty takes such a chain whole, so blocks freed on one thread and allocated on
// another cross with one swap per chain rather than one per block. The other blocks of the chain name the
// block kLookAhead further down instead (tagged with the low bit), which allocation fetches early: taking
// a long run of cold blocks one link at a time would otherwise wait for each in turn.
struct BlockPool::Block {
    Block* next;
    uintptr_t mark;  // the chain's last block, a tagged look-ahead, or 0

    Block* link() const noexcept { return __atomic_load_n(&next, __ATOMIC_RELAXED); }
    void link(Block* to) noexcept { __atomic_store_n(&next, to, __ATOMIC_RELAXED); }
    Block* end() const noexcept {
        const uintptr_t m = __atomic_load_n(&mark, __ATOMIC_RELAXED);
        return m & 1 ? nullptr : reinterpret_cast<Block*>(m);
    }
    void end(Block* last) noexcept {
        __atomic_store_n(&mark, reinterpret_cast<uintptr_t>(last), __ATOMIC_RELAXED);
    }
    Block* ahead() const noexcept {
        const uintptr_t m = __atomic_load_n(&mark, __ATOMIC_RELAXED);
        return m & 1 ? reinterpret_cast<Block*>(m - 1) : nullptr;
    }
    void ahead(Block* b) noexcept {
        __atomic_store_n(&mark, reinterpret_cast<uintptr_t>(b) | 1, __ATOMIC_RELAXED);
    }
};

namespace {

constexpr uint64_t kTagStep = uint64_t(1) << 32;

using Word = unsigned __int128;

Word pack(void* top, uint64_t tagAndCount) {
    return Word(reinterpret_cast<uintptr_t>(top)) | (Word(tagAndCount) << 64);
}

// The per-thread caches: one slot for each of the first kCacheSlots pools made in the process.
constexpr uint32_t kCacheSlots = 24;
constexpr uint32_t kCacheLimit = 128;              // blocks a thread keeps per pool
constexpr uint32_t kHandBack = 64;                 // blocks a full cache returns to the stack at once
constexpr uint32_t kLookAhead = 16;                // how far down a chain a block's look-ahead points
constexpr std::size_t kLine = 64;                  // a cache line
constexpr std::size_t kRunBlockBytes = 2 * kLine;  // blocks up to this size (with header) are made in runs

// A chain of free blocks linked through their headers. `room` is how many more it may take; both are
// zero until the thread first uses the slot, and again once the thread has ended.
struct Cache {
    void* top;
    uint32_t room;
};

enum ThreadState : unsigned char { kUnregistered, kCaching, kEnded };

// Initial-exec: reached with one offset from the thread pointer, no call. Zero-initialised and trivially
// destructible, so touching them never runs code.
__attribute__((tls_model("initial-exec"))) thread_local Cache tCaches[kCacheSlots];
__attribute__((tls_model("initial-exec"))) thread_local ThreadState tState;

std::atomic<uint32_t> gSlotsTaken{0};
std::atomic<BlockPool*> gCachedPools[kCacheSlots];

// Hands the thread's caches back when the thread ends (or, for the main thread, when the process exits).
struct ThreadEnd {
    void (*const hand)() noexcept;
    ~ThreadEnd() { hand(); }
};

}  // namespace

BlockPool::BlockPool(std::size_t blockSize, PopHook onPop)
    : head_{nullptr, 0},
      blockSize_((blockSize + kAlignment - 1) / kAlignment * kAlignment),
      onPop_(onPop),
      cacheSlot_(onPop ? kCacheSlots : gSlotsTaken.fetch_add(1, std::memory_order_relaxed)) {
    static_assert(sizeof(Head) == 16 && sizeof(Block) == kAlignment, "one 128-bit head, aligned blocks");
    if (cacheSlot_ < kCacheSlots) gCachedPools[cacheSlot_].store(this, std::memory_order_release);
}

void* BlockPool::allocate() {
    if (cacheSlot_ < kCacheSlots) {
        Cache& cache = tCaches[cacheSlot_];
        if (Block* top = static_cast<Block*>(cache.top)) {
            cache.top = top->link();
            __builtin_prefetch(cache.top, 1);
            if (Block* soon = top->ahead()) __builtin_prefetch(soon, 1);
            ++cache.room;
            return top + 1;
        }
    }
    return allocateSlow();
}

void BlockPool::free(void* object) noexcept {
    if (!object) return;
    Block* block = static_cast<Block*>(object) - 1;
    if (cacheSlot_ < kCacheSlots) {
        Cache& cache = tCaches[cacheSlot_];
        if (cache.room) {
            block->link(static_cast<Block*>(cache.top));
            cache.top = block;
            --cache.room;
            return;
        }
    }
    freeSlow(block);
}

// The calling thread's cache for `slot`, ready for use; null when the pool is not cached or the thread is
// ending. The first call of a thread arranges for its caches to be handed back when it ends.
static Cache* threadCache(uint32_t slot, void (*handBack)() noexcept) {
    if (slot >= kCacheSlots || tState == kEnded) return nullptr;
    if (tState == kUnregistered) {
        static thread_local ThreadEnd atEnd{handBack};
        (void)&atEnd;
        tState = kCaching;
    }
    Cache& cache = tCaches[slot];
    if (!cache.top && !cache.room) cache.room = kCacheLimit;  // first use of the slot by this thread
    return &cache;
}

void* BlockPool::allocateSlow() {
    Block* last = nullptr;
    Block* block = pop(last);
    const bool fresh = !block;
    if (fresh) block = make(last);
    if (last) {  // the rest of a chain: into the cache, or back to the stack if there is no room
        Block* rest = block->link();
        Cache* cache = threadCache(cacheSlot_, &BlockPool::threadEnded);
        if (cache && !cache->top && cache->room >= kHandBack - 1) {
            last->link(nullptr);
            cache->top = rest;
            cache->room -= kHandBack - 1;
        } else {
            pushChain(rest, last, kHandBack - 1);
        }
    }
    block->end(nullptr);
    if (onPop_) onPop_(*this, block + 1, fresh);
    return block + 1;
}

// Takes new blocks from the heap. Small blocks of a cached pool come kHandBack at a time, linked like a
// chain handed back (`last` names its last block), each starting a cache line: a queue node then costs
// one line rather than two, and a run of them is one span of memory. Otherwise one block is made.
BlockPool::Block* BlockPool::make(Block*& last) {
    const std::size_t bytes = sizeof(Block) + blockSize_;
    last = nullptr;
    if (bytes > kRunBlockBytes || cacheSlot_ >= kCacheSlots) {
        __atomic_add_fetch(&made_, 1, __ATOMIC_RELAXED);
        auto* block = static_cast<Block*>(OS()->allocator()->allocate(bytes));
        block->link(nullptr);
        return block;
    }
    const std::size_t stride = (bytes + kLine - 1) / kLine * kLine;
    const uintptr_t raw =
        reinterpret_cast<uintptr_t>(OS()->allocator()->allocate(kHandBack * stride + kLine - 1));
    const auto blockAt = [start = (raw + kLine - 1) & ~uintptr_t(kLine - 1), stride](uint32_t i) {
        return reinterpret_cast<Block*>(start + i * stride);
    };
    for (uint32_t i = 0; i < kHandBack; ++i) {
        Block* block = blockAt(i);
        block->link(i + 1 < kHandBack ? blockAt(i + 1) : nullptr);
        if (i + kLookAhead < kHandBack)
            block->ahead(blockAt(i + kLookAhead));
        else
            block->end(nullptr);
    }
    __atomic_add_fetch(&made_, kHandBack, __ATOMIC_RELAXED);
    last = blockAt(kHandBack - 1);
    return blockAt(0);
}

void BlockPool::freeSlow(Block* block) noexcept {
    Cache* cache = threadCache(cacheSlot_, &BlockPool::threadEnded);
    if (!cache) return pushChain(block, block, 1);
    if (!cache->room) {  // full: the most recent kHandBack blocks go back to the stack as one chain
        Block* first = static_cast<Block*>(cache->top);
        Block* last = first;
        Block* behind[kLookAhead] = {};
        for (uint32_t i = 1; i < kHandBack; ++i) {
            behind[i % kLookAhead] = last;
            last = last->link();
            if (Block* b = behind[(i + 1) % kLookAhead]) b->ahead(last);
        }
        cache->top = last->link();
        cache->room = kHandBack;
        first->end(last);
        pushChain(first, last, kHandBack);
    }
    block->link(static_cast<Block*>(cache->top));
    cache->top = block;
    --cache->room;
}

// Pops the top block, or returns null when the stack is empty. When the top starts a chain the whole chain
// is taken and `last` names its last block; otherwise `last` is null.
BlockPool::Block* BlockPool::pop(Block*& last) noexcept {
    Word* head = reinterpret_cast<Word*>(&head_);
    // The two halves are read one at a time; a torn read only makes the swap below fail and retry.
    uint64_t tagAndCount = __atomic_load_n(&head_.tagAndCount, __ATOMIC_ACQUIRE);
    Block* top = __atomic_load_n(&head_.top, __ATOMIC_ACQUIRE);
    while (top) {
        // `top` may be popped and reused by now; its header is still readable (blocks are never freed)
        // and a stale value is caught by the tag.
        last = top->end();
        Block* const next = last ? last->link() : top->link();
        const uint64_t taken = last ? kHandBack : 1;
        const Word expected = pack(top, tagAndCount);
        const Word seen =
            __sync_val_compare_and_swap(head, expected, pack(next, tagAndCount + kTagStep - taken));
        if (seen == expected) return top;
        top = reinterpret_cast<Block*>(uintptr_t(seen));
        tagAndCount = uint64_t(seen >> 64);
    }
    last = nullptr;
    return nullptr;
}

// Pushes the chain first..last of `count` blocks with one swap.
void BlockPool::pushChain(Block* first, Block* last, uint32_t count) noexcept {
    Word* head = reinterpret_cast<Word*>(&head_);
    uint64_t tagAndCount = __atomic_load_n(&head_.tagAndCount, __ATOMIC_ACQUIRE);
    Block* top = __atomic_load_n(&head_.top, __ATOMIC_ACQUIRE);
    for (;;) {
        last->link(top);
        const Word expected = pack(top, tagAndCount);
        const Word seen =
            __sync_val_compare_and_swap(head, expected, pack(first, tagAndCount + kTagStep + count));
        if (seen == expected) return;
        top = reinterpret_cast<Block*>(uintptr_t(seen));
        tagAndCount = uint64_t(seen >> 64);
    }
}

// From here on the thread's frees go straight to the stacks.
void BlockPool::threadEnded() noexcept {
    tState = kEnded;
    for (uint32_t slot = 0; slot < kCacheSlots; ++slot) {
        Cache& cache = tCaches[slot];
        if (Block* first = static_cast<Block*>(cache.top)) {
            Block* last = first;
            uint32_t count = 1;
            for (Block* next; (next = last->link()); ++count) last = next;
            gCachedPools[slot].load(std::memory_order_acquire)->pushChain(first, last, count);
        }
        cache = Cache{nullptr, 0};
    }
}

uint32_t BlockPool::freeBlocks() const noexcept {
    return uint32_t(__atomic_load_n(&head_.tagAndCount, __ATOMIC_ACQUIRE));
}

uint64_t BlockPool::blocksMade() const noexcept {
    return __atomic_load_n(&made_, __ATOMIC_RELAXED);
}

}  // namespace Qv

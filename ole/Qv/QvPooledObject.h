#pragma once

/// @file
/// Per-type pools of fixed-size blocks for the small objects that are made and dropped at a high rate
/// (queue nodes, command representations). A class T derives from QvPooledObject<T> and its new and delete
/// then take blocks from T's pool and give them back.
///
/// A pool is a lock-free stack of free blocks: allocation pops a block, or takes a new one from the heap
/// when the stack is empty (small blocks of a cached pool are made 64 at a time, each starting a cache
/// line, and the rest wait in the thread's cache); freeing pushes it back. Blocks are never returned to the
/// heap, so a pool is as large as the most blocks ever in use at once, rounded up to whole runs (plus what
/// the thread caches below hold). The stack head is a pointer paired with a 64-bit word of change tag and
/// free-block count, all replaced by one 128-bit compare-and-swap: the tag changes on every push and pop, so
/// a thread that was delayed between reading the head and swapping it cannot succeed on a head that was
/// popped and pushed back meanwhile (the ABA problem).
///
/// In front of the stack each thread keeps a small cache of free blocks per pool, used without atomics:
/// freeing puts the block in the cache, allocation takes the most recently freed one. A thread goes to the
/// stack only when its cache is empty (it then takes one block, or a whole batch that another thread handed
/// back) or full (it hands a batch back with one swap). A thread that ends hands its whole cache back, so
/// no block is lost. The first 24 pools made in the process are cached; later ones, and logging pools, use
/// the stack for every block.
///
/// Every pool of the process is found by its type's name in the registry of named objects, so all users of
/// T in the process share one pool. Pools are never destroyed. All operations are thread-safe.

#include <ole/platform/export.h>
#include <ole/Qv/QvLokiSingleton.h>

#include <cstddef>
#include <cstdint>
#include <new>

namespace Qv {

/// The type-independent part: a lock-free stack of free blocks of one size, with per-thread caches.
class OLE_API BlockPool {
public:
    /// Told of each block a logging pool hands out: `fresh` when it was just taken from the heap.
    using PopHook = void (*)(const BlockPool& pool, const void* block, bool fresh);

    /// A pool with `onPop` calls it on every allocation, and keeps no thread caches so that it sees them all.
    explicit BlockPool(std::size_t blockSize, PopHook onPop = nullptr);
    BlockPool(const BlockPool&) = delete;
    BlockPool& operator=(const BlockPool&) = delete;

    /// A block of blockSize() bytes aligned to 16; never null.
    void* allocate();
    /// Returns a block that allocate() gave, from any thread; null is ignored.
    void free(void* block) noexcept;

    std::size_t blockSize() const noexcept { return blockSize_; }
    /// Blocks on the shared free stack. Blocks freed into a thread's cache are not counted: they belong to
    /// that thread until its cache overflows or the thread ends, and then come back to the stack.
    uint32_t freeBlocks() const noexcept;
    /// Blocks ever taken from the heap.
    uint64_t blocksMade() const noexcept;

    /// Largest alignment a block guarantees.
    static constexpr std::size_t kAlignment = 16;

private:
    struct Block;
    struct alignas(16) Head {
        Block* top;
        uint64_t tagAndCount;  // change tag in the high 32 bits, free-block count in the low 32
    };

    void* allocateSlow();
    Block* make(Block*& last);
    void freeSlow(Block* block) noexcept;
    Block* pop(Block*& last) noexcept;
    void pushChain(Block* first, Block* last, uint32_t count) noexcept;
    static void threadEnded() noexcept;

    Head head_;  ///< changed only by 128-bit compare-and-swap
    const std::size_t blockSize_;
    uint64_t made_ = 0;  ///< atomic
    const PopHook onPop_;
    const uint32_t cacheSlot_;  ///< index of this pool's cache in every thread; out of range for none
};

}  // namespace Qv

/// The pool of blocks of T's size that T's allocations share.
template <class T>
struct QvPoolOf : Qv::BlockPool {
    QvPoolOf() : Qv::BlockPool(sizeof(T)) {}
};

/// Base of pooled classes: `class Node : public QvPooledObject<Node>`. Objects of classes derived from T
/// whose size differs from T's, and over-aligned types, come from the heap as usual. `Pool` is the pool
/// type registered for T (a logging pool, for instance).
template <class T, class Pool = QvPoolOf<T>>
class QvPooledObject {
public:
    static Qv::BlockPool& pool() { return QvLokiSingleton<Pool>::instance(); }

    static void* operator new(std::size_t size) {
        return pooled(size) ? pool().allocate() : ::operator new(size);
    }
    static void operator delete(void* object, std::size_t size) noexcept {
        if (!object) return;
        if (pooled(size))
            pool().free(object);
        else
            ::operator delete(object);
    }

private:
    static bool pooled(std::size_t size) noexcept {
        return size == sizeof(T) && alignof(T) <= Qv::BlockPool::kAlignment;
    }
};

/// A standard allocator that takes single objects from their type's pool, for node-based containers.
template <class T>
struct QvPoolAllocator {
    using value_type = T;
    QvPoolAllocator() noexcept = default;
    template <class U>
    QvPoolAllocator(const QvPoolAllocator<U>&) noexcept {}

    T* allocate(std::size_t n) {
        if (n == 1 && alignof(T) <= Qv::BlockPool::kAlignment)
            return static_cast<T*>(QvLokiSingleton<QvPoolOf<T>>::instance().allocate());
        return static_cast<T*>(::operator new(n * sizeof(T)));
    }
    void deallocate(T* p, std::size_t n) noexcept {
        if (n == 1 && alignof(T) <= Qv::BlockPool::kAlignment)
            QvLokiSingleton<QvPoolOf<T>>::instance().free(p);
        else
            ::operator delete(p);
    }
    template <class U>
    bool operator==(const QvPoolAllocator<U>&) const noexcept {
        return true;
    }
    template <class U>
    bool operator!=(const QvPoolAllocator<U>&) const noexcept {
        return false;
    }
};

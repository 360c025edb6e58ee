// Built with -mcx16: the stack head is swapped with cmpxchg16b.

#include <ole/Qv/QvPooledObject.h>

#include <ole/platform/OS.h>

namespace Qv {

// Each block carries the link of the free stack in a header of its own, before the caller's bytes, so
// that reading the link of a block another thread has just popped never touches that thread's object.
struct BlockPool::Block {
    Block* next;  // atomic
    uint64_t pad;
};

namespace {

constexpr uint64_t kTagStep = uint64_t(1) << 32;

using Word = unsigned __int128;

Word pack(void* top, uint64_t tagAndCount) {
    return Word(reinterpret_cast<uintptr_t>(top)) | (Word(tagAndCount) << 64);
}

}  // namespace

BlockPool::BlockPool(std::size_t blockSize)
    : head_{nullptr, 0}, blockSize_((blockSize + kAlignment - 1) / kAlignment * kAlignment) {
    static_assert(sizeof(Head) == 16 && sizeof(Block) == kAlignment, "one 128-bit head, aligned blocks");
}

void* BlockPool::allocate() {
    Word* head = reinterpret_cast<Word*>(&head_);
    // The two halves are read one at a time; a torn read only makes the swap below fail and retry.
    uint64_t tagAndCount = __atomic_load_n(&head_.tagAndCount, __ATOMIC_ACQUIRE);
    Block* top = __atomic_load_n(&head_.top, __ATOMIC_ACQUIRE);
    while (top) {
        // `top` may be popped and reused by now; its link is still readable (blocks are never freed) and
        // a stale value is caught by the tag.
        Block* next = __atomic_load_n(&top->next, __ATOMIC_RELAXED);
        const Word expected = pack(top, tagAndCount);
        const Word seen = __sync_val_compare_and_swap(head, expected, pack(next, tagAndCount + kTagStep - 1));
        if (seen == expected) return top + 1;
        top = reinterpret_cast<Block*>(uintptr_t(seen));
        tagAndCount = uint64_t(seen >> 64);
    }
    __atomic_add_fetch(&made_, 1, __ATOMIC_RELAXED);
    Block* fresh = static_cast<Block*>(OS()->allocator()->allocate(sizeof(Block) + blockSize_));
    return fresh + 1;
}

void BlockPool::free(void* object) noexcept {
    if (!object) return;
    Block* block = static_cast<Block*>(object) - 1;
    Word* head = reinterpret_cast<Word*>(&head_);
    uint64_t tagAndCount = __atomic_load_n(&head_.tagAndCount, __ATOMIC_ACQUIRE);
    Block* top = __atomic_load_n(&head_.top, __ATOMIC_ACQUIRE);
    for (;;) {
        __atomic_store_n(&block->next, top, __ATOMIC_RELAXED);
        const Word expected = pack(top, tagAndCount);
        const Word seen =
            __sync_val_compare_and_swap(head, expected, pack(block, tagAndCount + kTagStep + 1));
        if (seen == expected) return;
        top = reinterpret_cast<Block*>(uintptr_t(seen));
        tagAndCount = uint64_t(seen >> 64);
    }
}

uint32_t BlockPool::freeBlocks() const noexcept {
    return uint32_t(__atomic_load_n(&head_.tagAndCount, __ATOMIC_ACQUIRE));
}

uint64_t BlockPool::blocksMade() const noexcept {
    return __atomic_load_n(&made_, __ATOMIC_RELAXED);
}

}  // namespace Qv

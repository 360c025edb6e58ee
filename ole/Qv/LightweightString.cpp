#include <ole/Qv/LightweightString.h>

#include <strings.h>

namespace Qv {
namespace StringBlocks {

uint32_t powerOfTwoAbove(uint32_t need) noexcept {
    // Past 2^31 no power of two fits in 32 bits; such a block takes the largest capacity there is.
    if (need >= 0x80000000u) return 0xFFFFFFFFu;
    uint32_t capacity = 2;
    while (capacity <= need) capacity *= 2;
    return capacity;
}

void* allocate(std::size_t headerBytes, std::size_t charBytes, uint32_t capacity) {
    return OS()->allocator()->allocate(headerBytes + charBytes * std::size_t(capacity));
}

void release(void* block) noexcept {
    OS()->allocator()->free(block);
}

}  // namespace StringBlocks

}  // namespace Qv

bool Qv::caseInsensitiveCompare::operator()(const LightweightString<char>& a,
                                            const LightweightString<char>& b) const noexcept {
    return ::strcasecmp(a.c_str(), b.c_str()) < 0;
}

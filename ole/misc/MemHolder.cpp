#include <ole/misc/MemHolder.h>

iMemHolder::~iMemHolder() = default;

MemHolder::MemHolder(const void* data, std::size_t length) {
    if (data && length) {
        const uint8_t* bytes = static_cast<const uint8_t*>(data);
        bytes_.assign(bytes, bytes + length);
    }
}

MemHolder::~MemHolder() = default;

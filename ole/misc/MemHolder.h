#pragma once

/// @file
/// iMemHolder: a shared, reference-counted block of bytes whose meaning the holder does not know (a layer
/// read as uninterpreted data, a buffer handed between families). MemHolder is the plain heap-owned kind:
/// it holds its own copy of the bytes. The bytes are read-only once made; a holder may be shared between
/// threads for reading.

#include <ole/platform/export.h>
#include <ole/Qv/Ptr.h>

#include <cstddef>
#include <cstdint>
#include <vector>

/// A shared, reference-counted, read-only block of bytes.
class OLE_API iMemHolder : public iObject {
public:
    ~iMemHolder() override;
    virtual const uint8_t* data() const = 0;
    virtual std::size_t size() const = 0;
};

/// A block of bytes that holds its own heap copy.
class OLE_API MemHolder : public iMemHolder {
public:
    MemHolder() = default;
    /// A copy of `length` bytes (null data gives an empty block).
    MemHolder(const void* data, std::size_t length);
    ~MemHolder() override;

    const uint8_t* data() const override { return bytes_.data(); }
    std::size_t size() const override { return bytes_.size(); }

private:
    std::vector<uint8_t> bytes_;
};

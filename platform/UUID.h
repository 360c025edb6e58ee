#pragma once

/// @file
/// Qv::UUID: a 16-byte universally unique identifier on libuuid. The default value is the nil UUID, which
/// is not valid(). The text form is 36 characters, 8-4-4-4-12 upper-case hexadecimal digits; parsing
/// accepts either letter case and reads exactly 36 characters (anything after them is ignored). Text that
/// is not a UUID gives the nil value.

#include <ole/platform/export.h>

#include <cstdint>

namespace Qv {

/// A 16-byte universally unique identifier; the default value is the nil UUID.
class OLE_API UUID {
public:
    static constexpr int kTextLength = 36;

    UUID() noexcept : bytes_{} {}
    explicit UUID(const char* text) noexcept;
    explicit UUID(const wchar_t* text) noexcept;

    static UUID generate() noexcept;

    /// True for every value but the nil UUID.
    bool valid() const noexcept;
    /// Writes exactly 36 characters followed by a terminator (37 in all).
    void asString(char* out) const noexcept;
    void asWString(wchar_t* out) const noexcept;

    const uint8_t* bytes() const noexcept { return bytes_; }
    uint8_t* bytes() noexcept { return bytes_; }

    /// Byte-wise (memcmp) ordering.
    bool operator<(const UUID& other) const noexcept;
    bool operator==(const UUID& other) const noexcept;
    bool operator!=(const UUID& other) const noexcept { return !(*this == other); }

private:
    uint8_t bytes_[16];
};

}  // namespace Qv

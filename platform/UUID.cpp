#include <ole/platform/UUID.h>

#include <cstring>
#include <uuid/uuid.h>

namespace Qv {

namespace {

// The value of a hexadecimal digit in either case, or -1.
inline int hexValue(char c) noexcept {
    if (c >= '0' && c <= '9') return c - '0';
    const char lower = char(c | 0x20);
    if (lower >= 'a' && lower <= 'f') return lower - 'a' + 10;
    return -1;
}

}  // namespace

UUID::UUID(const char* text) noexcept : bytes_{} {
    if (!text) return;
    // The 8-4-4-4-12 form libuuid reads, decoded here without its per-field strtoul; the text may go on
    // after the 36 characters (a cookie holds one inside a longer text).
    uint8_t bytes[16];
    int at = 0;
    for (int i = 0; i < kTextLength; i += 2) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return;
            ++i;
        }
        const int high = hexValue(text[i]);
        const int low = high < 0 ? -1 : hexValue(text[i + 1]);
        if (low < 0) return;
        bytes[at++] = uint8_t(high << 4 | low);
    }
    std::memcpy(bytes_, bytes, sizeof bytes_);
}

UUID::UUID(const wchar_t* text) noexcept : bytes_{} {
    if (!text) return;
    char narrow[kTextLength + 1];
    for (int i = 0; i < kTextLength; ++i) {
        if (!text[i] || uint32_t(text[i]) > 0x7F) return;  // wchar_t is signed: compare unsigned
        narrow[i] = char(text[i]);
    }
    narrow[kTextLength] = '\0';
    *this = UUID(narrow);
}

UUID UUID::generate() noexcept {
    UUID id;
    uuid_generate(id.bytes_);
    return id;
}

bool UUID::valid() const noexcept {
    return !uuid_is_null(bytes_);
}

void UUID::asString(char* out) const noexcept {
    uuid_unparse_upper(bytes_, out);
}

void UUID::asWString(wchar_t* out) const noexcept {
    char narrow[kTextLength + 1];
    asString(narrow);
    for (int i = 0; i <= kTextLength; ++i) out[i] = wchar_t(narrow[i]);
}

bool UUID::operator<(const UUID& other) const noexcept {
    return std::memcmp(bytes_, other.bytes_, 16) < 0;
}

bool UUID::operator==(const UUID& other) const noexcept {
    return std::memcmp(bytes_, other.bytes_, 16) == 0;
}

}  // namespace Qv

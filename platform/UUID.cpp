#include <ole/platform/UUID.h>

#include <cstring>
#include <uuid/uuid.h>

namespace Qv {

UUID::UUID(const char* text) noexcept : bytes_{} {
    if (!text) return;
    // libuuid wants exactly 36 characters; the text may go on (a cookie holds one inside a longer text).
    char copy[kTextLength + 1];
    for (int i = 0; i < kTextLength; ++i) {
        if (!text[i]) return;
        copy[i] = text[i];
    }
    copy[kTextLength] = '\0';
    if (uuid_parse(copy, bytes_) != 0) std::memset(bytes_, 0, sizeof bytes_);
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

bool UUID::valid() const noexcept { return !uuid_is_null(bytes_); }

void UUID::asString(char* out) const noexcept { uuid_unparse_upper(bytes_, out); }

void UUID::asWString(wchar_t* out) const noexcept {
    char narrow[kTextLength + 1];
    asString(narrow);
    for (int i = 0; i <= kTextLength; ++i) out[i] = wchar_t(narrow[i]);
}

bool UUID::operator<(const UUID& other) const noexcept { return std::memcmp(bytes_, other.bytes_, 16) < 0; }

bool UUID::operator==(const UUID& other) const noexcept { return std::memcmp(bytes_, other.bytes_, 16) == 0; }

}  // namespace Qv

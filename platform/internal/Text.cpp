#include "Text.h"

#include <utf8.h>

#include <cstdint>
#include <cstdlib>
#include <cwchar>
#include <iterator>

namespace Qv {
namespace platform {

std::string narrow(const wchar_t* text, std::size_t length) {
    std::string out;
    out.reserve(length);
    for (std::size_t i = 0; i < length; ++i) {
        const uint32_t c = uint32_t(text[i]);
        const bool encodable = c < 0xD800 || (c > 0xDFFF && c <= 0x10FFFF);
        utf8::unchecked::append(encodable ? c : 0xFFFDu, std::back_inserter(out));
    }
    return out;
}

std::string narrow(const wchar_t* text) {
    return text ? narrow(text, std::wcslen(text)) : std::string();
}

std::wstring wide(const char* text, std::size_t length) {
    std::wstring out;
    if (!text) return out;
    std::string valid;
    utf8::replace_invalid(text, text + length, std::back_inserter(valid));
    out.reserve(valid.size());
    utf8::unchecked::utf8to32(valid.begin(), valid.end(), std::back_inserter(out));
    return out;
}

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace platform
}  // namespace Qv

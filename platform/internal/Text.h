#pragma once

// Conversions shared by the platform sources and the runtime pieces built on them; not installed.

#include <string>

namespace Qv {
namespace platform {

// UTF-32 <-> UTF-8, replacing invalid input with U+FFFD.
std::string narrow(const wchar_t* text);
std::string narrow(const wchar_t* text, std::size_t length);
std::wstring wide(const char* text, std::size_t length);
inline std::wstring wide(const std::string& text) {
    return wide(text.data(), text.size());
}

// The value of an environment variable, or "" when unset.
std::string environment(const char* name);

}  // namespace platform
}  // namespace Qv

#include <ole/runtime/Strings.h>

#include "platform/internal/Text.h"

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cwctype>
#include <iterator>

using Qv::platform::narrow;
using Qv::platform::wide;

LightweightString<char> toUTF8(const wchar_t* text) {
    const std::string utf8 = narrow(text);
    return LightweightString<char>(utf8.c_str(), unsigned(utf8.size()));
}

LightweightString<char> toUTF8(const LightweightString<wchar_t>& text) {
    const std::string utf8 = narrow(text.c_str(), text.size());
    return LightweightString<char>(utf8.c_str(), unsigned(utf8.size()));
}

LightweightString<wchar_t> fromUTF8(const char* text) {
    if (!text) return LightweightString<wchar_t>();
    const std::wstring w = wide(text, std::strlen(text));
    return LightweightString<wchar_t>(w.c_str(), unsigned(w.size()));
}

LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text) {
    const std::wstring w = wide(text.c_str(), text.size());
    return LightweightString<wchar_t>(w.c_str(), unsigned(w.size()));
}

const char* BoolAsString(bool value) {
    return value ? "true" : "false";
}

bool isEssentiallyEmpty(const LightweightString<char>& text) {
    for (char c : text)
        if (!std::isspace(static_cast<unsigned char>(c))) return false;
    return true;
}

bool isEssentiallyEmpty(const LightweightString<wchar_t>& text) {
    for (wchar_t c : text)
        if (!std::iswspace(wint_t(c))) return false;
    return true;
}

static LightweightString<char> vformat(const char* format, va_list args) {
    va_list copy;
    va_copy(copy, args);
    const int needed = std::vsnprintf(nullptr, 0, format, copy);
    va_end(copy);
    LightweightString<char> out;
    if (needed <= 0) return out;
    out.resizeFor(unsigned(needed));
    // The block has room for the terminator that vsnprintf writes.
    std::vsnprintf(const_cast<char*>(out.c_str()), std::size_t(needed) + 1, format, args);
    return out;
}

LightweightString<char> stringPrintf(const char* format, ...) {
    va_list args;
    va_start(args, format);
    LightweightString<char> out = vformat(format, args);
    va_end(args);
    return out;
}

LightweightString<char> StringFromFloat(double value, int precision) {
    return stringPrintf("%.*f", precision, value);
}

// The product's resource table: the few texts this library shows.
LightweightString<wchar_t> resourceStrW(int id) {
    switch (id) {
        case 10007:
            return L"Unknown";
        default:
            return LightweightString<wchar_t>();
    }
}

namespace Qv {

template <class CharT, class Fold>
static bool endsWithImpl(const LightweightString<CharT>& text, const CharT* suffix, bool caseSensitive,
                         Fold fold) {
    if (!suffix) return true;
    const std::size_t n = StringBlocks::textLength(suffix);
    if (n > text.size()) return false;
    const CharT* tail = text.c_str() + (text.size() - n);
    for (std::size_t i = 0; i < n; ++i) {
        const bool same = caseSensitive ? tail[i] == suffix[i] : fold(tail[i]) == fold(suffix[i]);
        if (!same) return false;
    }
    return true;
}

bool endsWith(const LightweightString<char>& text, const char* suffix, bool caseSensitive) {
    return endsWithImpl(text, suffix, caseSensitive,
                        [](char c) { return std::tolower(static_cast<unsigned char>(c)); });
}

bool endsWith(const LightweightString<wchar_t>& text, const wchar_t* suffix, bool caseSensitive) {
    return endsWithImpl(text, suffix, caseSensitive, [](wchar_t c) { return std::towlower(wint_t(c)); });
}

int IntFromWString(const LightweightString<wchar_t>& text) {
    return int(std::wcstol(text.c_str(), nullptr, 10));
}

std::vector<LightweightString<char>> splitIf(const LightweightString<char>& text, char separator) {
    std::vector<LightweightString<char>> pieces;
    unsigned start = 0;
    for (unsigned i = 0; i <= text.size(); ++i) {
        if (i == text.size() || text[i] == separator) {
            pieces.push_back(text.substr(start, i - start));
            start = i + 1;
        }
    }
    return pieces;
}

LightweightString<char> trim(const LightweightString<char>& text) {
    unsigned first = 0, last = text.size();
    while (first < last && std::isspace(static_cast<unsigned char>(text[first]))) ++first;
    while (last > first && std::isspace(static_cast<unsigned char>(text[last - 1]))) --last;
    return text.substr(first, last - first);
}

LightweightString<wchar_t> widen(const char* text) {
    LightweightString<wchar_t> out;
    if (!text) return out;
    for (const char* p = text; *p; ++p) out.push_back(wchar_t(static_cast<unsigned char>(*p)));
    return out;
}

LightweightString<char> escapeLine(const LightweightString<char>& text) {
    std::string out;
    for (char c : text) {
        if (c == '\\')
            out += "\\\\";
        else if (c == '\n')
            out += "\\n";
        else if (c == '\r')
            out += "\\r";
        else
            out += c;
    }
    return LightweightString<char>(out.c_str(), unsigned(out.size()));
}

LightweightString<char> unescapeLine(const char* p, const char* end) {
    std::string out;
    for (; p < end; ++p) {
        if (*p == '\\' && p + 1 < end) {
            ++p;
            out += *p == 'n' ? '\n' : *p == 'r' ? '\r' : *p;
        } else {
            out += *p;
        }
    }
    return LightweightString<char>(out.c_str(), unsigned(out.size()));
}

}  // namespace Qv

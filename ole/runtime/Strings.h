#pragma once

/// @file
/// String helpers of the core runtime, on the library's shared strings. None of them throws: malformed
/// UTF-8 is decoded with U+FFFD in place of each bad sequence, and numbers that do not parse give 0.

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>

#include <vector>

using WString = LightweightString<wchar_t>;
using NString = LightweightString<char>;

/// Wide text as UTF-8.
///@{
OLE_API LightweightString<char> toUTF8(const LightweightString<wchar_t>& text);
OLE_API LightweightString<char> toUTF8(const wchar_t* text);
///@}
/// UTF-8 text as wide text; each malformed sequence becomes U+FFFD.
///@{
OLE_API LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text);
OLE_API LightweightString<wchar_t> fromUTF8(const char* text);
///@}

/// "true" or "false".
OLE_API const char* BoolAsString(bool value);
/// True when the text is empty or holds only white space.
///@{
OLE_API bool isEssentiallyEmpty(const LightweightString<char>& text);
OLE_API bool isEssentiallyEmpty(const LightweightString<wchar_t>& text);
///@}
/// The number in decimal, with `precision` digits after the point ("%.*f").
OLE_API LightweightString<char> StringFromFloat(double value, int precision = 6);
/// printf into a new string.
OLE_API LightweightString<char> stringPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

/// Text of the product's resource table; an unknown id gives the empty string.
OLE_API LightweightString<wchar_t> resourceStrW(int id);

namespace Qv {

/// True when `text` ends with `suffix`, compared with or without regard to case.
///@{
OLE_API bool endsWith(const LightweightString<char>& text, const char* suffix, bool caseSensitive = true);
OLE_API bool endsWith(const LightweightString<wchar_t>& text, const wchar_t* suffix,
                      bool caseSensitive = true);
///@}
/// The leading decimal integer of the text (wcstol), 0 when there is none.
OLE_API int IntFromWString(const LightweightString<wchar_t>& text);
/// Splits at every `separator`; empty pieces are kept, so "a,,b" gives "a", "", "b" and "" gives one "".
OLE_API std::vector<LightweightString<char>> splitIf(const LightweightString<char>& text, char separator);
/// Leading and trailing white space removed.
OLE_API LightweightString<char> trim(const LightweightString<char>& text);
/// The text kept on one line of a settings file: a backslash becomes `\\`, a line feed `\n` and a carriage
/// return `\r`.
OLE_API LightweightString<char> escapeLine(const LightweightString<char>& text);
/// Undoes escapeLine on the characters from `begin` to `end`; a backslash before any other character
/// stands for that character, and a lone backslash at the end is kept.
OLE_API LightweightString<char> unescapeLine(const char* begin, const char* end);
/// ASCII widening of a narrow text (bytes above 127 kept as their values).
OLE_API LightweightString<wchar_t> widen(const char* text);

}  // namespace Qv

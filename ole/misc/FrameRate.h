#pragma once

/// @file
/// Qv::FrameRate names every frame rate the editor knows: media, projects and outputs all carry one. This
/// header holds the enumeration and its three text forms:
///   - the display string, for people ("29.97 fps"), wide;
///   - the persistable string, written into files ("30M"), narrow;
///   - the plain string, digits only ("2997"), narrow.
/// The numeric facts of a rate (ticks, true frames per second, groups and families) are in ProjectRate.h.
///
/// Several rates share a display or plain string (a 48 fps rate decimated by 2 shows as "24 fps"); reading
/// text back always gives the lowest rate with that text. Values outside the table are tolerated
/// everywhere: they display as the resource text for an unknown rate, and their persistable string is
/// empty (after the library's assertion line). Parsing never throws; text that names no rate gives
/// FRInvalid. All functions are pure and thread-safe.

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Parsed.h>

#include <cstdint>

namespace Qv {

/// Stored as a 32-bit value in files and records. "M" marks the 1.001 (NTSC-style) variant of a rate, "D2"
/// and "D3" a rate decimated by 2 or 3 (every second or third frame kept), "F" a film rate.
enum FrameRate : int32_t {
    FRInvalid = 0,
    FR24 = 1,
    FR24M = 2,
    FR25 = 3,
    FR30 = 4,
    FR30M = 5,
    FR48 = 6,
    FR48M = 7,
    FR50 = 8,
    FR60 = 9,
    FR60M = 10,
    FR24D2 = 11,
    FR24MD2 = 12,
    FR25D2 = 13,
    FR30D2 = 14,
    FR30MD2 = 15,
    FR48D2 = 16,
    FR48MD2 = 17,
    FR50D2 = 18,
    FR60D2 = 19,
    FR60MD2 = 20,
    FR24D3 = 21,
    FR24MD3 = 22,
    FR25D3 = 23,
    FR30D3 = 24,
    FR30MD3 = 25,
    FR48D3 = 26,
    FR48MD3 = 27,
    FR50D3 = 28,
    FR60D3 = 29,
    FR60MD3 = 30,
    FR24F = 31,
    FR25F = 32,
    FR30F = 33,
    FR48F = 34,
    FR12 = 35,
    FR12M = 36,
    FR12_5 = 37,
    FR15 = 38,
    FR15M = 39,
    FR20 = 40,
    FR80 = 41,
    FR90 = 42,
    FR100 = 43,
    FR120 = 44,
    FR120M = 45,
    FR240 = 46,
    FR240M = 47,
};

/// The lowest and highest valid values.
constexpr FrameRate kFirstFrameRate = FR24;
constexpr FrameRate kLastFrameRate = FR240M;

/// "29.97 fps"; film rates and values outside the table give the resource text for an unknown rate.
OLE_API LightweightString<wchar_t> getDisplayString(FrameRate rate);
/// "30M"; empty, after an assertion line, for values outside the table.
OLE_API LightweightString<char> getPersistableString(FrameRate rate);
/// "2997"; "24" for film rates and values outside the table.
OLE_API LightweightString<char> getPlainString(FrameRate rate);

/// The lowest rate whose display string equals `text` exactly (case-sensitive); FRInvalid, after an
/// assertion line, when none does.
OLE_API FrameRate getFrameRateFromDisplayString(const LightweightString<wchar_t>& text);
/// The rate whose persistable string equals `text` exactly (case-sensitive); FRInvalid, silently, when none
/// does.
OLE_API FrameRate getFrameRateFromPersistableString(const LightweightString<char>& text);

/// A rate typed by a person: its persistable string ("30M"), its display string ("29.97 fps") or the
/// display number alone ("29.97"), case-sensitive. Persistable strings are tried first; among display
/// strings the lowest rate wins, as above. Refuses anything else (FRInvalid), silently.
[[nodiscard]] OLE_API Parsed<FrameRate> parseFrameRate(const char* text);

/// Facts read from the table, for any value and without assertion lines:
/// the rate counts whole frames per second of its own (getTicksPerSecond answers without complaint): not
/// the decimated and film rates, nor 12.5 fps, whose timecode digits count 15;
OLE_API bool rateHasTicks(FrameRate rate) noexcept;
/// the rate has a true frame rate (getFramesPerSecond is not 0): every valid rate but the four film rates.
OLE_API bool rateHasTrueFps(FrameRate rate) noexcept;

}  // namespace Qv

#pragma once

/// @file
/// The numeric facts of a Qv::FrameRate: the whole "ticks" per second that timecode digits count, the true
/// frames per second, the frame duration, the 1.001 (NTSC-style) factor, the rate groups and families, and
/// the rates a project may use.
///
/// Decimated rates (11..30) and film rates (31..34) have no ticks of their own: asking for them prints the
/// library's assertion line and gives 0, and the results built on them (frame duration, the true rate of a
/// film rate) fall back to 0. Nothing throws; all functions are pure and thread-safe.

#include <ole/platform/export.h>
#include <ole/misc/FrameRate.h>

#include <utility>
#include <vector>

namespace Qv {

namespace FrameRateGroups {
/// Each group is an inclusive range of FrameRate values.
enum FrameRateGroup : int32_t {
    Normal = 1,        ///< 24M .. 60M: the base rates
    Decimated = 2,     ///< every decimated rate
    DecimatedBy2 = 3,  ///< every second frame
    DecimatedBy3 = 4,  ///< every third frame
    Film = 5,          ///< 24F .. 48F
    LowAndHigh = 6,    ///< 12 .. 240M
};
}  // namespace FrameRateGroups
using FrameRateGroups::FrameRateGroup;

/// Whole frames per second as used for timecode digits (30 for 29.97). 12.5 fps gives 15 after an assertion
/// line (it has no whole count); decimated and film rates give 0 after an assertion line.
OLE_API unsigned char getTicksPerSecond(FrameRate rate);
/// The true rate: 30 / 1.001 for 29.97. A decimated rate is its base rate halved or divided by three, and
/// the decimated "M" rates are taken without the 1.001 factor (60MD2 gives exactly 30). Film rates give 0.
OLE_API double getFramesPerSecond(FrameRate rate);
/// Seconds per frame at the rate's ticks (1.001 / ticks for the 1.001 rates); 0.08 for 12.5 fps; 0 where
/// the rate has no ticks.
OLE_API double getFrameDuration(FrameRate rate);
/// The rate a decimated rate keeps frames of (48D2 gives 48); every other value gives itself.
OLE_API FrameRate getNonDecimatedFrameRate(FrameRate rate);

/// The 1.001 rates: 23.98, 29.97, 47.95, 59.94, 11.99, 14.99, 119.88 and 239.76.
OLE_API bool has1001Factor(FrameRate rate);
/// Drop-frame timecode exists for exactly the 1.001 rates.
OLE_API bool canUseDropFrameTimeCode(FrameRate rate);
/// Rates whose timecode labels count 30 frames a second: 30, 29.97, 60, 59.94.
OLE_API bool isAssociatedWith30FrameLabel(FrameRate rate);
/// 30, 29.97, 60, 59.94 and their 15, 120 and 240 relatives.
OLE_API bool isInNTSCSet(FrameRate rate);
/// 25, 50, 12.5 and 100.
OLE_API bool isInPALSet(FrameRate rate);

/// The project rate (24, 25, 30, 48, 50 or 60) that stands for `rate`; 24 for anything without a closer
/// match, invalid values included.
OLE_API FrameRate getEquivalentProjectFrameRate(FrameRate rate);

/// First and last value of the group; (FRInvalid, FRInvalid) after an assertion line for an unknown group.
OLE_API std::pair<FrameRate, FrameRate> getFrameRateGroupExtents(FrameRateGroup group);
/// True when `rate` lies within the group's extents.
OLE_API bool isInFrameRateGroup(FrameRate rate, FrameRateGroup group);

/// 24, 25, 30, 48, 50, 60, in that order.
OLE_API std::vector<FrameRate> getProjectFrameRates();
/// Append, without clearing `rates`: every valid rate in ascending order / the group's rates in ascending
/// order (nothing for an unknown group).
///@{
OLE_API void getAllFrameRates(std::vector<FrameRate>& rates);
OLE_API void getFrameRates(FrameRateGroup group, std::vector<FrameRate>& rates);
///@}

}  // namespace Qv

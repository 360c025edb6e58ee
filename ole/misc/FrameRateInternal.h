#pragma once

/// @file
/// The frame-rate table shared by the text forms (FrameRate.cpp) and the numeric facts (ProjectRate.cpp).
/// Not installed.

#include <ole/misc/FrameRate.h>

namespace Qv {
namespace FrameRateTable {

struct Row {
    FrameRate rate;
    const char* persistable;
    const wchar_t* display;  ///< null: the resource text for an unknown rate
    const char* plain;
    unsigned char ticks;  ///< whole frames per second for timecode digits; 0: the rate has none
};

/// The row of a value in 1..47, null for any other value.
const Row* find(FrameRate rate) noexcept;

}  // namespace FrameRateTable
}  // namespace Qv

#pragma once

/// @file
/// The timecode record types shared by the timecode conversions (tccvt.h) and the film and television
/// codes (filmgauge.h): the record of one timecode address, the kind of timecode a time is shown in, and
/// the frame counts of drop-frame timecode. Plain values.

#include <ole/misc/FrameRate.h>

#include <cstdint>

/// A timecode record. Frame numbers that convert to and from it count from 1.
struct tc_addr {
    int16_t hours;
    int16_t minutes;
    int16_t seconds;
    int16_t frames;     ///< in drop frame, minutes not divisible by 10 start at frame 2 at second 0
    int16_t dropFrame;  ///< non-zero: drop-frame timecode
};

/// The kind of timecode a time is shown in.
struct TCInf {
    Qv::FrameRate rate = Qv::FRInvalid;
    bool dropFrame = false;
};

/// Frames of drop-frame timecode.
namespace DropFrame {
constexpr int kFramesPerHour = 107892;       ///< 30 * 3600 - 108
constexpr int kFramesPerTenMinutes = 17982;  ///< 30 * 600 - 18
constexpr int kFramesInFullMinute = 1800;    ///< the first minute of each ten keeps all its labels
constexpr int kFramesInDroppingMinute = 1798;
constexpr int kFramesInDroppingSecond0 = 28;  ///< labels 02..29
constexpr int kFramesPerDay = 24 * kFramesPerHour;
}  // namespace DropFrame

#pragma once

/// @file
/// Timecode: the editor's address of a video frame, hours:minutes:seconds and frames, written "HH:MM:SS.FF"
/// (non-drop) or "HH:MM:SS;FF" (drop frame). These functions convert between the three forms of a point in
/// time: seconds (a double, the form the rest of the editor stores), a frame number, and the timecode text
/// or record (tc_addr).
///
/// Drop frame always means the 29.97 counting scheme: labels ;00 and ;01 are skipped at second 0 of every
/// minute not divisible by ten, giving 107892 frames an hour. It is used whenever the drop flag is set,
/// whatever the rate.
///
/// Bad input never crashes and nothing throws: unparsable text reads as 0.0 seconds, fields out of range
/// simply enter the arithmetic, and an invalid rate makes tc_to_string print the library's assertion line
/// and fail. All functions are re-entrant.

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Parsed.h>
#include <ole/misc/FrameRate.h>
#include <ole/misc/tc_addr.h>

/// Bits of the `flags` argument of tc_to_string. Fields that lead with zero are left out unless their bit is
/// set; once one field is printed, every later field gets two digits.
enum TimecodeFormatFlags {
    kTcShowHours = 1,    ///< hours with two digits even when zero
    kTcShowMinutes = 2,  ///< minutes with two digits even when they lead and are zero
    kTcShowSeconds = 4,  ///< the same for the seconds
    kTcShowFrames = 8,   ///< the frames (after their separator) even when they stand alone
    kTcFull = 15,        ///< "HH:MM:SS.FF"
};

/// Formats `seconds` at `rate` into `buffer`, which must hold 13 bytes ("-HH:MM:SS;FF" and NUL). The time is
/// rounded down to a frame. A negative time gets a leading "-". Non-drop text wraps past 24 hours (exactly 24
/// hours prints as "24:00:00.00"); drop-frame text does not wrap. Without kTcShowFrames a time under a
/// second prints as "" (frames alone are dropped). Frame numbers of 100 or more (rates above 100 fps) and
/// hours of 100 or more print their tens as the character '0' + tens, keeping the text at two characters.
/// Returns false, leaving `buffer` untouched, for FRInvalid (after an assertion line) and for a non-drop rate
/// without ticks (after the rate's own assertion line).
OLE_API bool tc_to_string(double seconds, char* buffer, int flags, Qv::FrameRate rate, bool dropFrame);

/// Parses "H:M:S?F" (any one character for "?": the separator is not checked) into seconds at `rate`.
/// "-H:M:S?F" parses as a negative non-drop time even when `dropFrame` is set. In drop frame, labels that do
/// not exist (";00" and ";01" at second 0 of a dropping minute) give the frames just before the minute.
/// Null or unparsable text, and rates without a true frame rate, give 0.0.
OLE_API double string_to_tc(const char* text, Qv::FrameRate rate, bool dropFrame);
/// The same, at the rate and drop flag of `info`.
OLE_API double string_to_tc(const char* text, const TCInf& info);

/// True when the character after "HH:MM:SS" (leading white space skipped) is ";" or ",". False for null
/// text and for text shorter than 9 characters.
OLE_API bool isTimecodeStringDropFrame(const char* text);

/// Timecode text typed by a person, read strictly: what string_to_tc gives for it, and whether it is drop
/// frame.
struct TimecodeReading {
    double seconds = 0.0;
    bool dropFrame = false;
};

/// Reads "[-]H:MM:SS?FF" (one or two hour digits) with "." or ":" before the frames, or ";" or "," for drop
/// frame; a drop-frame separator makes the text drop frame whatever `dropFrame` says. Refused: any other
/// shape, hours above 23, minutes or seconds above 59, a frame label the rate does not count (its ticks, 30
/// in drop frame), the labels drop frame skips, drop frame at any rate but 30M or with a minus sign, and
/// rates without timecode text. Nothing is printed.
[[nodiscard]] OLE_API Parsed<TimecodeReading> parseTimecodeString(const char* text, Qv::FrameRate rate,
                                                                  bool dropFrame);

/// True when times at the rate have timecode text: it counts whole frames per second of its own, at most 100
/// (frame labels have two digits).
OLE_API bool rateHasTimecodeText(Qv::FrameRate rate) noexcept;
/// Frames in 24 hours: of drop-frame labels, of timecode labels at a rate with timecode text, else of real
/// time at the true rate (rounded); 0 for a rate without a true rate.
OLE_API long long framesPerDay(Qv::FrameRate rate, bool dropFrame) noexcept;

/// Record to frame number, counting from 1. `rate` is whole frames per second; it is ignored in drop frame.
OLE_API int tc_to_frames(const tc_addr* tc, short rate, short dropFrame);
/// Frame number (from 1) to record. Frame numbers below 1 wrap to the day before; records past the day are
/// clamped to 23:59:59 and the last frame. A `rate` of 0 gives an all-zero record.
OLE_API void frames_to_tc(int frame, tc_addr* tc, short rate, short dropFrame);
/// True when all five fields, the drop flag included, are equal. An equality test, not an ordering.
OLE_API bool tcode_compare(const tc_addr& a, const tc_addr& b);

/// Seconds at the start of frame count `frames` (a frame count of -1 is the unset time, 1e99), optionally
/// through film pulldown with the given cycle phase. A small offset keeps the result inside its frame so that
/// tc_to_frames gives the count back.
OLE_API double frames_to_tc(int frames, Qv::FrameRate rate, int pulldown, int phase);
/// Frame count at `seconds` (the unset time 1e99 gives -1), optionally removing film pulldown. The sign of
/// the time is kept.
OLE_API int tc_to_frames(double seconds, Qv::FrameRate rate, int pulldown, int phase);

/// A wall-clock time in seconds since the epoch, in local time: "Www Mmm dd hh:mm:ss yyyy\n" when `full`,
/// else "Www Mmm dd hh:mm".
OLE_API LightweightString<wchar_t> timeAsString(unsigned int time, bool full);

#pragma once

/// @file
/// Film footage and pulldown. Film is counted in feet and frames (footage) and in perforations; video carries
/// film through pulldown, where every few film frames become a few more video frames (4 film frames in 5
/// video frames at 30-type rates, 24 in 25 at 25-type rates).
///
/// This family also maps film gauges and television standards to their edit-decision-list (EDL) codes, and
/// owns the constant effect cookies (black, dissolves, 50% mix), built at library load.
///
/// Everything is pure and thread-safe except frames_to_feet, which returns one process-wide static buffer
/// overwritten by each call. Bad input gives the invalid value (FILM_INVALID, FRInvalid, -1), never a crash;
/// gauge values outside the enumeration count as FILM_INVALID.

#include <ole/platform/export.h>
#include <ole/Qv/Parsed.h>
#include <ole/misc/Cookie.h>
#include <ole/misc/FrameRate.h>
#include <ole/misc/tc_addr.h>

#include <cstdint>

enum film_gauge {
    FILM_16MM = 0,
    FILM_35MM = 1,
    FILM_16MM_INK = 2,  ///< 16mm ink numbers
    FILM_35MM_3PERF = 3,
    FILM_INVALID = 4,
};

/// Feet and frame within the foot.
struct foot_num {
    int32_t feet;  ///< kInvalidFeet for a gauge without footage
    int32_t frame;
};
constexpr int32_t kInvalidFeet = -100000000;

/// 16 gives FILM_16MM, 35 gives FILM_35MM, anything else FILM_INVALID.
OLE_API film_gauge int_to_film_gauge(int mm);
/// "16mm", "35mm", "16mm ink", "35mm 3-perf", "INVALID".
OLE_API const char* film_gauge_to_str(film_gauge g);
/// "F16", "F35", "F16R", "F353", "INVALID".
OLE_API const char* film_gauge_to_edlstr(film_gauge g);
/// Case-insensitive; null or an unknown code gives FILM_INVALID.
OLE_API film_gauge edlstr_to_film_gauge(const char* code);
/// A gauge typed by a person: its display string or EDL code (either case), or its width "16" or "35".
/// Refuses anything else (FILM_INVALID).
[[nodiscard]] OLE_API Parsed<film_gauge> parseFilmGauge(const char* text);

/// Perforations of `frames` whole frames; -frames for FILM_INVALID.
OLE_API int frames_to_perfs(int frames, film_gauge g);
/// Whole frames in `perfs` perforations, truncating toward zero.
OLE_API int perfs_to_frames(int perfs, film_gauge g);

/// No television standard has a film gauge, and no gauge a television standard: these give FILM_INVALID and
/// FRInvalid for every argument.
///@{
OLE_API film_gauge tv_standard_to_film_gauge(Qv::FrameRate rate);
OLE_API Qv::FrameRate film_gauge_to_tv_standard(film_gauge g);
///@}

/// "P" for 25-type rates, "N" / "ND" (drop flag) for 30-type rates, "P24" for every other rate.
OLE_API const char* tv_standard_to_edlstr(TCInf info);
/// Case-sensitive. "N" and "ND" read back as 29.97 whatever 30-type rate wrote them; the 24 fps codes "P24",
/// "N24" and "ND24" read as 24 fps (drop flag set for "ND24"). Null or an unknown code gives FRInvalid.
OLE_API TCInf edlstr_to_tv_standard(const char* code);
/// The same, saying why a code was refused (FRInvalid).
[[nodiscard]] OLE_API Parsed<TCInf> parseTvStandard(const char* code);

/// The true frame rate for playback and for video timing (both Qv::getFramesPerSecond).
///@{
OLE_API double playback_fps(Qv::FrameRate rate);
OLE_API double vid_fps(Qv::FrameRate rate);
///@}

/// 30-type (30, 29.97, 60, 59.94) and 25-type (25, 50) rates take pulldown; no other rate does.
///@{
OLE_API bool can_add_pulldown(Qv::FrameRate rate);
OLE_API bool can_remove_pulldown(Qv::FrameRate rate);
///@}
/// Video frames per cycle: 5 or 25; -1 where there is no pulldown.
OLE_API int pd_cycle_size(Qv::FrameRate rate);
/// Film frames per cycle: 4 or 24; -1 where there is no pulldown.
OLE_API int pd_film_cycle(Qv::FrameRate rate);

/// Film frames to video frames and back, starting `phase` film frames (or video frames) into the cycle. The
/// repeated video frame of a cycle maps back to the film frame before it, so remove_pulldown undoes
/// add_pulldown for every n >= 0 and 0 <= phase < film cycle. A rate without pulldown returns n unchanged.
///@{
OLE_API int add_pulldown(int filmFrames, Qv::FrameRate rate, int phase);
OLE_API int remove_pulldown(int videoFrames, Qv::FrameRate rate, int phase);
///@}

/// Footage of a frame count. 3-perf footage starts two perforations into the first foot, so its feet hold
/// 21 or 22 frames. FILM_INVALID gives kInvalidFeet.
OLE_API foot_num frames_to_foot_num(int frames, film_gauge g);
/// Footage text "%c%04d.%02d" (zeroPad) or "%c%4d.%02d", the first character "-" or blank: " 0012.05". The
/// text of FILM_INVALID is "INVALID". Returns a static buffer overwritten by the next call.
OLE_API char* frames_to_feet(int frames, film_gauge g, int zeroPad);
/// Reads footage text back: the feet are the first run of digits, the frames the digits after one separator
/// character; a leading "-" negates. Text without digits gives 0; FILM_INVALID gives -1.
OLE_API int feet_to_frames(char* text, film_gauge g);
/// Footage typed by a person: "[-]FEET[.FF]" or "FEET+FF", blanks around it allowed, read as feet_to_frames
/// reads it. Refuses any other shape, a frame that the foot of the gauge does not have (frame 16 of 35mm)
/// and the invalid gauge (0).
[[nodiscard]] OLE_API Parsed<int> parseFootage(const char* text, film_gauge g);

/// The constant effect cookies, built at library load and never changed.
OLE_API extern const Cookie video_black;
OLE_API extern const Cookie audio_black;
OLE_API extern const Cookie video_dissolve;
OLE_API extern const Cookie film_dissolve;
OLE_API extern const Cookie audio_dissolve;
OLE_API extern const Cookie video_mix50;
OLE_API extern const Cookie audio_mix50;

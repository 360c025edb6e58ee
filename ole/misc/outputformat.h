#pragma once

/// @file
/// Output formats: the fixed picture formats a project can render or play out to. There are exactly 32, in
/// a fixed order, and the rest of the editor names them by their index in that list. Each has a format type
/// (PAL, NTSC, 720p, 1080i, ...), a label shown beside the type name, a picture size, a component depth, an
/// aspect code, a frame rate, a scan mode and a video format identifier.
///
/// The table is built once, on first use, and never changes; reading it is thread-safe. A bad index gives
/// row 0 after the library's assertion line. Persistable strings that do not parse leave the format as it
/// was and report false; nothing throws.

#include <ole/platform/export.h>
#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Parsed.h>
#include <ole/misc/FrameRate.h>

#include <cstdint>
#include <vector>

namespace Qv {
namespace Image {

/// Picture aspect codes.
enum AspectRatio : int32_t {
    Aspect4x3 = 1,
    Aspect16x9 = 2,
    AspectFullAperture = 4,  ///< 2k full frame, 4:3
    AspectAcademy = 5,       ///< 1.37:1
    AspectDCI185 = 7,        ///< 1.85:1
    AspectDCI239 = 8,        ///< 2.39:1
};

/// How a frame is scanned: the first two are interlaced, the others progressive.
enum ScanMode : int32_t {
    InterlacedUpperFirst = 1,
    InterlacedLowerFirst = 2,
    Progressive = 3,
    ProgressiveSegmented = 4,  ///< segmented frames, film resolutions, UltraHD
};

}  // namespace Image
}  // namespace Qv

namespace OutputFormat {

enum Type : int32_t {
    Pal = 1,
    Ntsc = 2,
    SevenTwentyP = 3,
    TenEightyI = 4,
    TenEightyP = 5,
    TenEightyPsF = 6,
    TwoKFullFrame = 7,
    TwoKAcademy = 8,
    TwoKDCI239 = 9,
    TwoKDCI185 = 10,
    UltraHD = 11,
    FourKFullFrame = 12,
    FourKAcademy = 13,
    FourKDCI239 = 14,
    FourKDCI185 = 15,
};

/// "PAL", "1080p (sf)", "4k DCI 2.39:1", ...; empty for a value outside the list.
OLE_API LightweightString<wchar_t> getDisplayString(Type type);
/// PAL and NTSC.
OLE_API bool isSD(Type type);
/// The video format identifier that belongs to a type (0 for the 4k types, which have no rows).
OLE_API unsigned getVideoFormatForType(Type type);

/// One row of the output format table: type, label, picture size, rate and scan.
class OLE_API Details {
public:
    /// An empty format: type 0, no size, FRInvalid. Only useful as something to parse into.
    Details();
    Details(Type type, const LightweightString<wchar_t>& label, uint32_t width, uint32_t height,
            uint16_t bitsPerComponent, Qv::Image::AspectRatio aspect, Qv::FrameRate rate,
            Qv::Image::ScanMode scanMode, uint32_t videoFormat);
    /// Parsed from a persistable string; an empty format when it does not parse.
    explicit Details(const LightweightString<char>& persistable);

    Type type() const { return type_; }
    const LightweightString<wchar_t>& label() const { return label_; }
    uint32_t width() const { return width_; }
    uint32_t height() const { return height_; }
    uint16_t bitsPerComponent() const { return bitsPerComponent_; }
    Qv::Image::AspectRatio aspect() const { return aspect_; }
    Qv::FrameRate frameRate() const { return frameRate_; }
    Qv::Image::ScanMode scanMode() const { return scanMode_; }
    uint32_t videoFormat() const { return videoFormat_; }

    /// True for the two interlaced scan modes. Prints an assertion line, without changing the answer, when
    /// the scan mode does not fit the type (only PAL, NTSC and 1080i are interlaced).
    bool isInterlaced() const;
    /// "1080i 25fps".
    LightweightString<wchar_t> getDisplayString() const;

    /// "type|0|scan mode|width|height|bits|aspect|rate|label", the label in UTF-8.
    LightweightString<char> getPersistableString() const;
    /// Accepts, in this order, the nine fields above followed by "|identifier", the nine fields, or the first
    /// eight fields alone (no label). The label runs to the next "|". A non-zero identifier from the text is
    /// kept; otherwise the identifier follows the type. False, leaving the format unchanged, when none of the
    /// forms matches.
    bool fromPersistableString(const LightweightString<char>& text);
    /// A persistable string typed by a person: exactly one of the three forms above as this class writes
    /// them, with a known type, scan mode, aspect code and frame rate, a picture of 1..65535 by 1..65535
    /// and 1..32 bits per component. Refuses anything else (an empty format).
    [[nodiscard]] static Parsed<Details> parse(const char* text);

    bool operator==(const Details& other) const;
    bool operator!=(const Details& other) const { return !(*this == other); }

private:
    Type type_;
    LightweightString<wchar_t> label_;
    uint32_t width_;
    uint32_t height_;
    uint16_t bitsPerComponent_;
    Qv::Image::AspectRatio aspect_;
    Qv::FrameRate frameRate_;
    Qv::Image::ScanMode scanMode_;
    uint32_t videoFormat_;
};

/// The 32 supported formats, in their fixed order.
OLE_API const Details* getSupportedFormats();
/// The number of supported formats: 32.
OLE_API unsigned getNumFormats();
/// Row `index`; row 0 after an assertion line for an index past the end.
OLE_API const Details& getFormat(unsigned index);

/// Whether an output of `type` at `outputRate` suits a project at `projectRate`. Both rates are first taken
/// to their equivalent project rates (getEquivalentProjectFrameRate), so 23.98 counts as 24 and 29.97 as 30.
/// They must then match, except that an interlaced type (PAL, NTSC, 1080i) also suits a project running at
/// its field rate: 25-frame interlaced output for a 50 fps project, 30-frame for a 60 fps one.
OLE_API bool isOutputRateAllowedForProjectFrameRate(Type type, Qv::FrameRate outputRate,
                                                    Qv::FrameRate projectRate);
/// Appends, in ascending order, the index of every row allowed for the project rate.
OLE_API void getAllowedOutputFormatsForProjectFrameRate(Qv::FrameRate projectRate,
                                                        std::vector<unsigned>& out);

}  // namespace OutputFormat

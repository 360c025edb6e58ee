#include <ole/misc/outputformat.h>

#include <ole/misc/ProjectRate.h>

#include <ole/platform/Assert.h>
#include <ole/runtime/Strings.h>

#include <climits>
#include <string>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace OutputFormat {

using namespace Qv;
using namespace Qv::Image;

namespace {

struct TypeInfo {
    Type type;
    const wchar_t* name;
    unsigned videoFormat;
};

// clang-format off
const TypeInfo kTypes[] = {
    {Pal,            L"PAL",           3},
    {Ntsc,           L"NTSC",          15},
    {SevenTwentyP,   L"720p",          27},
    {TenEightyI,     L"1080i",         28},
    {TenEightyP,     L"1080p",         28},
    {TenEightyPsF,   L"1080p (sf)",    28},
    {TwoKFullFrame,  L"2k full frame", 110},
    {TwoKAcademy,    L"2k Academy",    111},
    {TwoKDCI239,     L"2k DCI 2.39:1", 112},
    {TwoKDCI185,     L"2k DCI 1.85:1", 113},
    {UltraHD,        L"UltraHD",       73},
    {FourKFullFrame, L"4k full frame", 0},
    {FourKAcademy,   L"4k Academy",    0},
    {FourKDCI239,    L"4k DCI 2.39:1", 0},
    {FourKDCI185,    L"4k DCI 1.85:1", 0},
};
// clang-format on

const TypeInfo* findType(Type type) {
    for (const TypeInfo& info : kTypes)
        if (info.type == type) return &info;
    return nullptr;
}

bool isInterlacedType(Type type) {
    return type == Pal || type == Ntsc || type == TenEightyI;
}

// "%d" on text: an optional sign and at least one digit after any white space; false when there is none.
bool readInt(const char*& p, int& value) {
    char* end = nullptr;
    const long v = std::strtol(p, &end, 10);
    if (end == p) return false;
    value = v > INT_MAX ? INT_MAX : v < INT_MIN ? INT_MIN : int(v);
    p = end;
    return true;
}

}  // namespace

LightweightString<wchar_t> getDisplayString(Type type) {
    const TypeInfo* info = findType(type);
    return info ? info->name : L"";
}

bool isSD(Type type) {
    return type == Pal || type == Ntsc;
}

unsigned getVideoFormatForType(Type type) {
    const TypeInfo* info = findType(type);
    return info ? info->videoFormat : 0;
}

Details::Details()
    : type_(Type(0)),
      width_(0),
      height_(0),
      bitsPerComponent_(0),
      aspect_(AspectRatio(0)),
      frameRate_(FRInvalid),
      scanMode_(ScanMode(0)),
      videoFormat_(0) {}

Details::Details(Type type, const LightweightString<wchar_t>& label, uint32_t width, uint32_t height,
                 uint16_t bitsPerComponent, AspectRatio aspect, FrameRate rate, ScanMode scanMode,
                 uint32_t videoFormat)
    : type_(type),
      label_(label),
      width_(width),
      height_(height),
      bitsPerComponent_(bitsPerComponent),
      aspect_(aspect),
      frameRate_(rate),
      scanMode_(scanMode),
      videoFormat_(videoFormat) {}

Details::Details(const LightweightString<char>& persistable) : Details() {
    fromPersistableString(persistable);
}

bool Details::isInterlaced() const {
    const bool interlaced = scanMode_ == InterlacedUpperFirst || scanMode_ == InterlacedLowerFirst;
    if (interlaced)
        check(type_ == Pal || type_ == Ntsc || type_ == TenEightyI,
              "type_ == Pal || type_ == Ntsc || type_ == TenEightyI", "ole/misc/outputformat", 103);
    else
        check(type_ != Pal && type_ != Ntsc && type_ != TenEightyI,
              "type_ != Pal && type_ != Ntsc && type_ != TenEightyI", "ole/misc/outputformat", 107);
    return interlaced;
}

LightweightString<wchar_t> Details::getDisplayString() const {
    LightweightString<wchar_t> text = OutputFormat::getDisplayString(type_);
    if (!label_.empty()) text += L" ";
    text += label_;
    return text;
}

LightweightString<char> Details::getPersistableString() const {
    return stringPrintf("%d|%d|%d|%d|%d|%d|%d|%d|%s", int(type_), 0, int(scanMode_), int(width_),
                        int(height_), int(bitsPerComponent_), int(aspect_), int(frameRate_),
                        toUTF8(label_).c_str());
}

bool Details::fromPersistableString(const LightweightString<char>& text) {
    const char* p = text.c_str();
    int numbers[8];
    for (int i = 0; i < 8; ++i)
        if ((i > 0 && *p++ != '|') || !readInt(p, numbers[i])) return false;

    LightweightString<char> label;
    int videoFormat = 0;
    if (*p == '|' && p[1] != '\0' && p[1] != '|') {
        const char* start = ++p;
        while (*p && *p != '|') ++p;
        label = LightweightString<char>(start, unsigned(p - start));
        if (*p == '|') {
            ++p;
            if (!readInt(p, videoFormat)) videoFormat = 0;
        }
    }

    type_ = Type(numbers[0]);
    // numbers[1] is always written as 0.
    scanMode_ = ScanMode(numbers[2]);
    width_ = uint32_t(numbers[3]);
    height_ = uint32_t(numbers[4]);
    bitsPerComponent_ = uint16_t(numbers[5]);
    aspect_ = AspectRatio(numbers[6]);
    frameRate_ = FrameRate(numbers[7]);
    label_ = fromUTF8(label);
    videoFormat_ = videoFormat != 0 ? uint32_t(videoFormat) : getVideoFormatForType(type_);
    return true;
}

Parsed<Details> Details::parse(const char* text) {
    using Result = Parsed<Details>;
    Details d;
    if (!text || !d.fromPersistableString(text))
        return Result::refuse(
            "is not an output format string (type|0|scan|width|height|bits|aspect|rate|label)");
    // Only the library's own spelling: no signs, leading zeros, blanks or text after the fields.
    const std::string nine = d.getPersistableString().c_str();
    const std::string eight = nine.substr(0, nine.rfind('|'));
    if (text != nine && text != eight && text != nine + "|" + std::to_string(d.videoFormat()))
        return Result::refuse(
            "is not an output format string (type|0|scan|width|height|bits|aspect|rate|label)");
    const auto refuse = [](const char* what, long long value) {
        return Result::refuse("has " + std::string(what) + " " + std::to_string(value));
    };
    if (d.type_ < Pal || d.type_ > FourKDCI185) return refuse("an unknown format type", d.type_);
    if (d.scanMode_ < InterlacedUpperFirst || d.scanMode_ > ProgressiveSegmented)
        return refuse("an unknown scan mode", d.scanMode_);
    if (int32_t(d.width_) < 1 || d.width_ > 65535) return refuse("a width of", int32_t(d.width_));
    if (int32_t(d.height_) < 1 || d.height_ > 65535) return refuse("a height of", int32_t(d.height_));
    if (d.bitsPerComponent_ < 1 || d.bitsPerComponent_ > 32)
        return refuse("a component depth of", int16_t(d.bitsPerComponent_));
    const bool aspect = d.aspect_ == Aspect4x3 || d.aspect_ == Aspect16x9 ||
                        d.aspect_ == AspectFullAperture || d.aspect_ == AspectAcademy ||
                        d.aspect_ == AspectDCI185 || d.aspect_ == AspectDCI239;
    if (!aspect) return refuse("an unknown aspect code", d.aspect_);
    if (d.frameRate_ < kFirstFrameRate || d.frameRate_ > kLastFrameRate)
        return refuse("an unknown frame rate", d.frameRate_);
    return Result::accept(d);
}

bool Details::operator==(const Details& other) const {
    return type_ == other.type_ && label_ == other.label_ && width_ == other.width_ &&
           height_ == other.height_ && bitsPerComponent_ == other.bitsPerComponent_ &&
           aspect_ == other.aspect_ && frameRate_ == other.frameRate_ && scanMode_ == other.scanMode_ &&
           videoFormat_ == other.videoFormat_;
}

// Built on first use, never changed.
const Details* getSupportedFormats() {
    // clang-format off
    static const Details kFormats[] = {
        // type         label        width height bits aspect             rate   scan mode             id
        {Pal,           L"4:3",      720,  576,  8, Aspect4x3,          FR25,  InterlacedUpperFirst,  3},
        {Pal,           L"16:9",     720,  576,  8, Aspect16x9,         FR25,  InterlacedUpperFirst,  3},
        {Ntsc,          L"4:3",      720,  486,  8, Aspect4x3,          FR30M, InterlacedLowerFirst,  15},
        {Ntsc,          L"16:9",     720,  486,  8, Aspect16x9,         FR30M, InterlacedLowerFirst,  15},
        {SevenTwentyP,  L"23.98fps", 1280, 720,  8, Aspect16x9,         FR24M, Progressive,           27},
        {SevenTwentyP,  L"24fps",    1280, 720,  8, Aspect16x9,         FR24,  Progressive,           27},
        {SevenTwentyP,  L"25fps",    1280, 720,  8, Aspect16x9,         FR25,  Progressive,           27},
        {SevenTwentyP,  L"50fps",    1280, 720,  8, Aspect16x9,         FR50,  Progressive,           27},
        {SevenTwentyP,  L"59.94fps", 1280, 720,  8, Aspect16x9,         FR60M, Progressive,           27},
        {SevenTwentyP,  L"60.0fps",  1280, 720,  8, Aspect16x9,         FR60,  Progressive,           27},
        {SevenTwentyP,  L"29.97fps", 1280, 720,  8, Aspect16x9,         FR30M, Progressive,           27},
        {SevenTwentyP,  L"30.0fps",  1280, 720,  8, Aspect16x9,         FR30,  Progressive,           27},
        {TenEightyI,    L"25fps",    1920, 1080, 8, Aspect16x9,         FR25,  InterlacedUpperFirst,  28},
        {TenEightyI,    L"29.97fps", 1920, 1080, 8, Aspect16x9,         FR30M, InterlacedUpperFirst,  28},
        {TenEightyI,    L"30fps",    1920, 1080, 8, Aspect16x9,         FR30,  InterlacedUpperFirst,  28},
        {TenEightyPsF,  L"23.98fps", 1920, 1080, 8, Aspect16x9,         FR24M, ProgressiveSegmented,  28},
        {TenEightyPsF,  L"24fps",    1920, 1080, 8, Aspect16x9,         FR24,  ProgressiveSegmented,  28},
        {TenEightyPsF,  L"25fps",    1920, 1080, 8, Aspect16x9,         FR25,  ProgressiveSegmented,  28},
        {TenEightyPsF,  L"29.97fps", 1920, 1080, 8, Aspect16x9,         FR30M, ProgressiveSegmented,  28},
        {TenEightyPsF,  L"30fps",    1920, 1080, 8, Aspect16x9,         FR30,  ProgressiveSegmented,  28},
        {TenEightyPsF,  L"48fps",    1920, 1080, 8, Aspect16x9,         FR48,  ProgressiveSegmented,  28},
        {TenEightyP,    L"50fps",    1920, 1080, 8, Aspect16x9,         FR50,  Progressive,           28},
        {TenEightyP,    L"59.94fps", 1920, 1080, 8, Aspect16x9,         FR60M, Progressive,           28},
        {TwoKFullFrame, L"24fps",    2048, 1536, 8, AspectFullAperture, FR24,  ProgressiveSegmented,  110},
        {TwoKAcademy,   L"24fps",    1828, 1332, 8, AspectAcademy,      FR24,  ProgressiveSegmented,  111},
        {TwoKDCI239,    L"24fps",    2048, 858,  8, AspectDCI239,       FR24,  ProgressiveSegmented,  112},
        {TwoKDCI185,    L"24fps",    1998, 1080, 8, AspectDCI185,       FR24,  ProgressiveSegmented,  113},
        {UltraHD,       L"23.98fps", 3840, 2160, 8, Aspect16x9,         FR24M, ProgressiveSegmented,  73},
        {UltraHD,       L"24fps",    3840, 2160, 8, Aspect16x9,         FR24,  ProgressiveSegmented,  73},
        {UltraHD,       L"25fps",    3840, 2160, 8, Aspect16x9,         FR25,  ProgressiveSegmented,  73},
        {UltraHD,       L"29.97fps", 3840, 2160, 8, Aspect16x9,         FR30M, ProgressiveSegmented,  73},
        {UltraHD,       L"30fps",    3840, 2160, 8, Aspect16x9,         FR30,  ProgressiveSegmented,  73},
    };
    // clang-format on
    static_assert(sizeof(kFormats) / sizeof(kFormats[0]) == 32, "the supported formats");
    return kFormats;
}

unsigned getNumFormats() {
    return 32;
}

const Details& getFormat(unsigned index) {
    if (index >= getNumFormats()) {
        assertionFailed("false", "ole/misc/outputformat", 489);
        index = 0;
    }
    return getSupportedFormats()[index];
}

bool isOutputRateAllowedForProjectFrameRate(Type type, FrameRate outputRate, FrameRate projectRate) {
    const FrameRate output = getEquivalentProjectFrameRate(outputRate);
    const FrameRate project = getEquivalentProjectFrameRate(projectRate);
    if (output == project) return true;
    // Interlaced output carries two fields a frame, so it also suits a project running at the field rate.
    return isInterlacedType(type) &&
           ((output == FR25 && project == FR50) || (output == FR30 && project == FR60));
}

void getAllowedOutputFormatsForProjectFrameRate(FrameRate projectRate, std::vector<unsigned>& out) {
    const Details* formats = getSupportedFormats();
    for (unsigned i = 0; i < getNumFormats(); ++i)
        if (isOutputRateAllowedForProjectFrameRate(formats[i].type(), formats[i].frameRate(), projectRate))
            out.push_back(i);
}

}  // namespace OutputFormat

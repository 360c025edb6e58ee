#include <ole/misc/filmgauge.h>

#include <ole/misc/ProjectRate.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

// Built-in effects live on the reserved machine number.
constexpr int kBuiltIn = Cookie::kBuiltInMachineNumber;
const Cookie video_black('V', 1, 0, kBuiltIn);
const Cookie audio_black('S', 1, 0, kBuiltIn);
const Cookie video_dissolve('V', 2, 0, kBuiltIn);
const Cookie film_dissolve('V', 4, 0, kBuiltIn);
const Cookie audio_dissolve('S', 2, 0, kBuiltIn);
const Cookie video_mix50('V', 3, 0, kBuiltIn);
const Cookie audio_mix50('S', 3, 0, kBuiltIn);

// Both tables are indexed by the gauge; the EDL table ends with a null entry for the search.
static const char* const kGaugeNames[] = {"16mm", "35mm", "16mm ink", "35mm 3-perf", "INVALID"};
static const char* const kGaugeEdlCodes[] = {"F16", "F35", "F16R", "F353", "INVALID", nullptr};

// Perforations per frame; the invalid gauge has -1.
static int perfsPerFrame(film_gauge g) {
    static const int kPerfs[] = {1, 4, 1, 3};
    return g >= FILM_16MM && g <= FILM_35MM_3PERF ? kPerfs[g] : -1;
}

film_gauge int_to_film_gauge(int mm) {
    if (mm == 16) return FILM_16MM;
    if (mm == 35) return FILM_35MM;
    return FILM_INVALID;
}

// Values outside the enumeration read as FILM_INVALID rather than past the tables.
static int tableIndex(film_gauge g) {
    return g >= FILM_16MM && g <= FILM_INVALID ? g : FILM_INVALID;
}

const char* film_gauge_to_str(film_gauge g) {
    return kGaugeNames[tableIndex(g)];
}

const char* film_gauge_to_edlstr(film_gauge g) {
    return kGaugeEdlCodes[tableIndex(g)];
}

film_gauge edlstr_to_film_gauge(const char* code) {
    if (!code) return FILM_INVALID;
    for (int g = 0; kGaugeEdlCodes[g]; ++g)
        if (strcasecmp(code, kGaugeEdlCodes[g]) == 0) return film_gauge(g);
    return FILM_INVALID;
}

int frames_to_perfs(int frames, film_gauge g) {
    return int(int64_t(frames) * perfsPerFrame(g));
}

int perfs_to_frames(int perfs, film_gauge g) {
    return int(int64_t(perfs) / perfsPerFrame(g));
}

film_gauge tv_standard_to_film_gauge(Qv::FrameRate) {
    return FILM_INVALID;
}

Qv::FrameRate film_gauge_to_tv_standard(film_gauge) {
    return Qv::FRInvalid;
}

static bool is25Type(Qv::FrameRate rate) {
    return rate == Qv::FR25 || rate == Qv::FR50;
}

static bool is30Type(Qv::FrameRate rate) {
    return rate == Qv::FR30 || rate == Qv::FR30M || rate == Qv::FR60 || rate == Qv::FR60M;
}

const char* tv_standard_to_edlstr(TCInf info) {
    if (is25Type(info.rate)) return "P";
    if (is30Type(info.rate)) return info.dropFrame ? "ND" : "N";
    return "P24";
}

namespace {
struct Standard {
    const char* code;
    TCInf info;
};
// clang-format off
const Standard kStandards[] = {
    {"P",    {Qv::FR25,  false}},
    {"N",    {Qv::FR30M, false}},
    {"ND",   {Qv::FR30M, true}},
    {"P24",  {Qv::FR24,  false}},
    {"N24",  {Qv::FR24,  false}},
    {"ND24", {Qv::FR24,  true}},
};
// clang-format on
}  // namespace

TCInf edlstr_to_tv_standard(const char* code) {
    return parseTvStandard(code).value;
}

Parsed<TCInf> parseTvStandard(const char* code) {
    if (code)
        for (const Standard& s : kStandards)
            if (std::strcmp(code, s.code) == 0) return Parsed<TCInf>::accept(s.info);
    return Parsed<TCInf>::refuse("is not a television standard code (P, N, ND, P24, N24 or ND24)");
}

Parsed<film_gauge> parseFilmGauge(const char* text) {
    if (text) {
        for (int g = FILM_16MM; g < FILM_INVALID; ++g)
            if (strcasecmp(text, kGaugeNames[g]) == 0 || strcasecmp(text, kGaugeEdlCodes[g]) == 0)
                return Parsed<film_gauge>::accept(film_gauge(g));
        if (std::strcmp(text, "16") == 0 || std::strcmp(text, "35") == 0)
            return Parsed<film_gauge>::accept(int_to_film_gauge(std::atoi(text)));
    }
    return Parsed<film_gauge>::refuse(
        "is not a film gauge (use 16mm, 35mm, \"16mm ink\", \"35mm 3-perf\" or F16, F35, F16R, F353)",
        FILM_INVALID);
}

Parsed<int> parseFootage(const char* text, film_gauge g) {
    const auto notFootage = [] { return Parsed<int>::refuse("is not footage (expected FEET.FF)"); };
    if (perfsPerFrame(g) < 0) return Parsed<int>::refuse("has no footage: the film gauge is invalid");
    if (!text) return notFootage();
    const char* p = text;
    while (*p == ' ') ++p;
    const bool negative = *p == '-';
    if (negative)
        while (*++p == ' ') {
        }
    const auto digits = [&p](int most, long& value) {
        int n = 0;
        for (value = 0; n < most && *p >= '0' && *p <= '9'; ++n) value = value * 10 + (*p++ - '0');
        return n;
    };
    long feet = 0, frame = 0;
    if (digits(7, feet) == 0) return notFootage();
    if ((*p == '.' || *p == '+') && (++p, digits(2, frame) == 0)) return notFootage();
    while (*p == ' ') ++p;
    if (*p) return notFootage();

    char canonical[32];
    std::snprintf(canonical, sizeof canonical, "%s%ld.%ld", negative ? "-" : "", feet, frame);
    const int frames = feet_to_frames(canonical, g);
    const foot_num back = frames_to_foot_num(std::abs(frames), g);
    if (back.feet != feet || back.frame != frame)
        return Parsed<int>::refuse("names no frame: foot " + std::to_string(feet) + " of " + kGaugeNames[g] +
                                   " film has no frame " + std::to_string(frame));
    return Parsed<int>::accept(frames);
}

double playback_fps(Qv::FrameRate rate) {
    return Qv::getFramesPerSecond(rate);
}

double vid_fps(Qv::FrameRate rate) {
    return Qv::getFramesPerSecond(rate);
}

bool can_add_pulldown(Qv::FrameRate rate) {
    return is30Type(rate) || is25Type(rate);
}

bool can_remove_pulldown(Qv::FrameRate rate) {
    return can_add_pulldown(rate);
}

int pd_cycle_size(Qv::FrameRate rate) {
    if (is30Type(rate)) return 5;
    if (is25Type(rate)) return 25;
    return -1;
}

int pd_film_cycle(Qv::FrameRate rate) {
    if (is30Type(rate)) return 4;
    if (is25Type(rate)) return 24;
    return -1;
}

// Brings a phase into 0..cycle-1: negative phases step up one cycle at a time, large ones wrap.
static int64_t phaseInCycle(int phase, int cycle) {
    int64_t p = phase;
    if (p < 0) p += (-p + cycle - 1) / cycle * cycle;
    return p >= cycle ? p % cycle : p;
}

// 64-bit intermediates keep counts near the int limits from overflowing; the result wraps like the int.
int add_pulldown(int filmFrames, Qv::FrameRate rate, int phase) {
    if (!can_add_pulldown(rate)) return filmFrames;
    const int film = pd_film_cycle(rate), video = pd_cycle_size(rate);
    const int64_t p = phaseInCycle(phase, film);
    const int64_t t = filmFrames + p;
    return int(t / film * video + t % film - p);
}

int remove_pulldown(int videoFrames, Qv::FrameRate rate, int phase) {
    if (!can_remove_pulldown(rate)) return videoFrames;
    const int film = pd_film_cycle(rate), video = pd_cycle_size(rate);
    const int64_t p = phaseInCycle(phase, video);
    const int64_t t = videoFrames + p;
    int64_t r = t % video;
    // The extra video frame of the cycle repeats the film frame before it.
    if (r == film) r = film - 1;
    return int(t / video * film + r - p);
}

foot_num frames_to_foot_num(int frames, film_gauge g) {
    const int64_t n = frames;
    switch (g) {
        case FILM_16MM:
        case FILM_16MM_INK:
            return {int32_t(n / 40), int32_t(n % 40)};
        case FILM_35MM: {
            const int64_t perfs = 4 * n;
            return {int32_t(perfs / 64), int32_t(perfs % 64 / 4)};
        }
        case FILM_35MM_3PERF: {
            // 3-perf footage starts two perforations into the first foot.
            const int64_t perfs = 3 * n + 2;
            return {int32_t(perfs / 64), int32_t(perfs % 64 / 3)};
        }
        default:
            return {kInvalidFeet, 0};
    }
}

char* frames_to_feet(int frames, film_gauge g, int zeroPad) {
    static char text[32];
    const char sign = frames < 0 ? '-' : ' ';
    const int64_t magnitude = std::min<int64_t>(std::llabs(frames), INT_MAX);
    const foot_num footage = frames_to_foot_num(int(magnitude), g);
    if (footage.feet == kInvalidFeet) {
        std::snprintf(text, sizeof text, "INVALID");
        return text;
    }
    std::snprintf(text, sizeof text, zeroPad ? "%c%04d.%02d" : "%c%4d.%02d", sign, footage.feet,
                  footage.frame);
    return text;
}

static bool isDigit(char c) {
    return std::isdigit(static_cast<unsigned char>(c)) != 0;
}

// A run of decimal digits, capped far above any int result so that the footage arithmetic cannot overflow.
static int64_t readCount(const char* digits) {
    return std::min<long long>(std::strtoll(digits, nullptr, 10), int64_t(1) << 40);
}

int feet_to_frames(char* text, film_gauge g) {
    if (!text) return 0;
    const bool negative = text[0] == '-';
    const char* p = text;
    while (*p && !isDigit(*p)) ++p;
    const int64_t feet = readCount(p);
    while (isDigit(*p)) ++p;
    // One separator character sits between feet and frames.
    int64_t frames = 0;
    if (*p && isDigit(p[1])) frames = readCount(p + 1);

    int64_t perfsPerFoot, k;
    switch (g) {
        case FILM_16MM:
        case FILM_16MM_INK:
            perfsPerFoot = 40, k = 1;
            break;
        case FILM_35MM:
            perfsPerFoot = 64, k = 4;
            break;
        // No two-perforation offset here: the truncating division still gives every frame count back.
        case FILM_35MM_3PERF:
            perfsPerFoot = 64, k = 3;
            break;
        default:
            return -1;
    }
    const int result = int((perfsPerFoot * feet + k * frames) / k);
    return negative ? int(-int64_t(result)) : result;
}

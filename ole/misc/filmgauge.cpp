#include <ole/misc/filmgauge.h>

#include <ole/misc/ProjectRate.h>

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <strings.h>

// Built-in effects live on the reserved machine number 647.
const Cookie video_black('V', 1, 0, 647);
const Cookie audio_black('S', 1, 0, 647);
const Cookie video_dissolve('V', 2, 0, 647);
const Cookie film_dissolve('V', 4, 0, 647);
const Cookie audio_dissolve('S', 2, 0, 647);
const Cookie video_mix50('V', 3, 0, 647);
const Cookie audio_mix50('S', 3, 0, 647);

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

TCInf edlstr_to_tv_standard(const char* code) {
    struct Standard {
        const char* code;
        TCInf info;
    };
    // clang-format off
    static const Standard kStandards[] = {
        {"P",    {Qv::FR25,  false}},
        {"N",    {Qv::FR30M, false}},
        {"ND",   {Qv::FR30M, true}},
        {"P24",  {Qv::FR24,  false}},
        {"N24",  {Qv::FR24,  false}},
        {"ND24", {Qv::FR24,  true}},
    };
    // clang-format on
    if (code)
        for (const Standard& s : kStandards)
            if (std::strcmp(code, s.code) == 0) return s.info;
    return TCInf{Qv::FRInvalid, false};
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

#include <ole/misc/tccvt.h>

#include <ole/misc/ProjectRate.h>
#include <ole/misc/filmgauge.h>

#include <ole/platform/Assert.h>
#include <ole/runtime/Log.h>
#include <ole/runtime/Strings.h>

#include <cctype>
#include <climits>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>

using namespace DropFrame;

namespace {

// A double truncated toward zero into an int; out-of-range values saturate and NaN gives 0.
int saturatingInt(double value) {
    if (std::isnan(value)) return 0;
    if (value >= double(INT_MAX)) return INT_MAX;
    if (value <= double(-INT_MAX)) return -INT_MAX;
    return int(value);
}

struct Fields {
    int hours, minutes, seconds, frames;
};

// Splits a drop-frame count (from 0) into its label. Hours are not wrapped.
Fields splitDropFrame(int n) {
    Fields f;
    f.hours = n / kFramesPerHour;
    const int inHour = n % kFramesPerHour;
    const int tens = inHour / kFramesPerTenMinutes;
    const int inTen = inHour % kFramesPerTenMinutes;
    const int x = inTen - kFramesInFullMinute;
    if (x < 0) {
        // The first minute of a ten-minute block keeps every label.
        f.minutes = tens * 10;
        f.seconds = inTen / 30;
        f.frames = inTen % 30;
        return f;
    }
    f.minutes = x / kFramesInDroppingMinute + tens * 10 + 1;
    const int inMinute = x % kFramesInDroppingMinute;
    const int y = inMinute - kFramesInDroppingSecond0;
    if (y < 0) {
        f.seconds = 0;
        f.frames = inMinute + 2;  // second 0 starts at label 02
    } else {
        f.seconds = y / 30 + 1;
        f.frames = y % 30;
    }
    return f;
}

// The drop-frame count (from 0) of a label; labels that do not exist run into the minute before.
int64_t joinDropFrame(int64_t h, int64_t m, int64_t s, int64_t f) {
    const int64_t tens = m / 10, units = m % 10;
    const int64_t base = h * kFramesPerHour + tens * kFramesPerTenMinutes;
    if (units == 0) return base + s * 30 + f;
    const int64_t minuteStart = base + (units - 1) * kFramesInDroppingMinute + kFramesInFullMinute;
    if (s == 0) return minuteStart + f - 2;
    return minuteStart + kFramesInDroppingSecond0 + (s - 1) * 30 + f;
}

// Two characters '0' + tens and '0' + units; the tens of 100 or more are not digits, as the text has room
// for two characters only.
char* putTwo(char* p, int value) {
    p[0] = char('0' + value / 10);
    p[1] = char('0' + value % 10);
    return p + 2;
}

// A leading field: two digits when forced or above 9, one digit for 1..9, nothing for 0.
char* putLeading(char* p, int value, bool forced, bool& printed) {
    if (forced || value > 9) {
        p = putTwo(p, value);
    } else if (value > 0) {
        *p++ = char('0' + value);
    } else {
        return p;
    }
    printed = true;
    return p;
}

// The scanf conversion "%d": white space skipped, an optional sign, at least one digit. Values beyond the
// range of long saturate and are then cut to int, as the C library does.
bool scanInt(const char*& p, int& value) {
    const char* q = p;
    while (std::isspace(static_cast<unsigned char>(*q))) ++q;
    bool negative = false;
    if (*q == '+' || *q == '-') negative = *q++ == '-';
    if (*q < '0' || *q > '9') return false;
    uint64_t magnitude = 0;
    for (; *q >= '0' && *q <= '9'; ++q)
        if (magnitude <= (uint64_t(1) << 63)) magnitude = magnitude * 10 + uint64_t(*q - '0');
    const uint64_t limit = negative ? uint64_t(1) << 63 : (uint64_t(1) << 63) - 1;
    if (magnitude > limit) magnitude = limit;
    const uint64_t bits = negative ? 0 - magnitude : magnitude;
    value = int(int32_t(uint32_t(bits)));
    p = q;
    return true;
}

// Matches "H:M:S?F" (after a literal "-" when `negative`) the way sscanf does with "%d:%d:%d%c%d":
// true only when all five items convert.
bool scanTimecode(const char* p, bool negative, int& h, int& m, int& s, int& f) {
    if (negative && *p++ != '-') return false;
    if (!scanInt(p, h) || *p++ != ':') return false;
    if (!scanInt(p, m) || *p++ != ':') return false;
    if (!scanInt(p, s)) return false;
    if (*p++ == '\0') return false;  // the separator: any character at all
    return scanInt(p, f);
}

}  // namespace

bool tc_to_string(double seconds, char* buffer, int flags, Qv::FrameRate rate, bool dropFrame) {
    if (!Qv::check(rate != Qv::FRInvalid, "tcRate != Qv::FRInvalid", "ole/misc/tccvt", 23)) return false;
    const unsigned char ticks = Qv::getTicksPerSecond(rate);
    if (!dropFrame && ticks == 0) return false;  // nothing to split the digits by
    int n = saturatingInt(std::floor(Qv::getFramesPerSecond(rate) * seconds + 0.0001));

    char* p = buffer;
    if (n < 0) {
        *p++ = '-';
        n = -n;
    }
    Fields t;
    if (dropFrame) {
        t = splitDropFrame(n);
    } else {
        const int day = ticks * 86400;
        if (n > day) n %= day;  // exactly 24 hours stays "24:00:00"
        t.hours = n / (ticks * 3600);
        t.minutes = n / (ticks * 60) % 60;
        t.seconds = n / ticks % 60;
        t.frames = n % ticks;
    }

    const char separator = dropFrame ? ';' : '.';
    bool printed = false;
    p = putLeading(p, t.hours, flags & kTcShowHours, printed);
    if (printed) *p++ = ':';
    p = putLeading(p, t.minutes, printed || (flags & kTcShowMinutes), printed);
    if (printed) *p++ = ':';
    p = putLeading(p, t.seconds, printed || (flags & kTcShowSeconds), printed);
    if (printed) {
        *p++ = separator;
        p = putTwo(p, t.frames);
    } else if (flags & kTcShowFrames) {
        *p++ = separator;
        p = putTwo(p, t.frames);
    }
    *p = '\0';
    return true;
}

double string_to_tc(const char* text, Qv::FrameRate rate, bool dropFrame) {
    if (!text) return 0.0;
    const int64_t ticks = Qv::getTicksPerSecond(rate);
    const double fps = Qv::getFramesPerSecond(rate);
    if (!(fps > 0.0)) return 0.0;

    int h = 0, m = 0, s = 0, f = 0;
    if (scanTimecode(text, true, h, m, s, f)) {
        // A negative time is always counted without dropped labels.
        if (dropFrame) DebugOut("string_to_tc: error negative timecode\n");
        const int64_t frames = ((-int64_t(h) * 60 - m) * 60 - s) * ticks - f;
        return double(frames) / fps;
    }
    if (!scanTimecode(text, false, h, m, s, f)) return 0.0;
    const int64_t frames =
        dropFrame ? joinDropFrame(h, m, s, f) : ((int64_t(h) * 60 + m) * 60 + s) * ticks + f;
    return double(frames) / fps;
}

double string_to_tc(const char* text, const TCInf& info) {
    return string_to_tc(text, info.rate, info.dropFrame);
}

bool isTimecodeStringDropFrame(const char* text) {
    if (!text || std::strlen(text) < 9) return false;
    while (std::isspace(static_cast<unsigned char>(*text))) ++text;
    // The separator before the frames in "HH:MM:SS;FF".
    for (int i = 0; i < 8; ++i)
        if (text[i] == '\0') return false;
    return text[8] == ';' || text[8] == ',';
}

bool rateHasTimecodeText(Qv::FrameRate rate) noexcept {
    return Qv::rateHasTicks(rate) && Qv::getTicksPerSecond(rate) <= 100;
}

long long framesPerDay(Qv::FrameRate rate, bool dropFrame) noexcept {
    if (dropFrame) return kFramesPerDay;
    if (rateHasTimecodeText(rate)) return Qv::getTicksPerSecond(rate) * 86400LL;
    if (!Qv::rateHasTrueFps(rate)) return 0;
    return std::llround(Qv::getFramesPerSecond(rate) * 86400);
}

Parsed<TimecodeReading> parseTimecodeString(const char* text, Qv::FrameRate rate, bool dropFrame) {
    using Result = Parsed<TimecodeReading>;
    if (!text || !*text) return Result::refuse("is empty");
    const char* p = text;
    const bool negative = *p == '-';
    if (negative) ++p;
    const auto digits = [&p](int least, int most, int& value) {
        int n = 0;
        for (value = 0; n < most && *p >= '0' && *p <= '9'; ++n) value = value * 10 + (*p++ - '0');
        return n >= least;
    };
    int h = 0, m = 0, s = 0, f = 0;
    char separator = '\0';
    const bool shaped = digits(1, 2, h) && *p++ == ':' && digits(2, 2, m) && *p++ == ':' && digits(2, 2, s) &&
                        *p && std::strchr(".:;,", separator = *p++) && digits(2, 2, f);
    if (!shaped)
        return Result::refuse(
            "is not timecode (expected HH:MM:SS.FF, or ';' before the frames for drop frame)");
    if (*p) return Result::refuse("is not timecode (unexpected text after the frames)");

    const bool drop = dropFrame || separator == ';' || separator == ',';
    const bool known = rate >= Qv::kFirstFrameRate && rate <= Qv::kLastFrameRate;
    const std::string rateName = known ? Qv::getPersistableString(rate).c_str() : "an invalid rate";
    if (drop && rate != Qv::FR30M)
        return Result::refuse(std::string("is drop-frame timecode, which counts 29.97 fps (30M), not ") +
                              rateName + (dropFrame ? "" : "; ';' before the frames marks drop frame"));
    if (!Qv::rateHasTicks(rate))
        return Result::refuse("is timecode, and " + rateName + " has no timecode of its own");
    const int labels = drop ? 30 : Qv::getTicksPerSecond(rate);
    if (labels > 100)
        return Result::refuse("is timecode, and timecode at " + rateName +
                              " fps is not written: its frame labels pass two digits");
    if (h > 23) return Result::refuse("has more than 23 hours");
    if (m > 59) return Result::refuse("has more than 59 minutes");
    if (s > 59) return Result::refuse("has more than 59 seconds");
    if (f >= labels)
        return Result::refuse("has frame " + std::to_string(f) + "; frames run from 00 to " +
                              std::to_string(labels - 1));
    if (drop && m % 10 != 0 && s == 0 && f < 2)
        return Result::refuse(
            "does not exist in drop-frame timecode (frames 00 and 01 are skipped at the start of every "
            "minute not divisible by ten)");
    if (drop && negative) return Result::refuse("is negative, and drop-frame timecode has no negative times");
    return Result::accept({string_to_tc(text, rate, drop), drop});
}

int tc_to_frames(const tc_addr* tc, short rate, short dropFrame) {
    if (!dropFrame)
        return int(((int64_t(tc->hours) * 60 + tc->minutes) * 60 + tc->seconds) * rate + tc->frames + 1);
    return int(joinDropFrame(tc->hours, tc->minutes, tc->seconds, tc->frames) + 1);
}

void frames_to_tc(int frame, tc_addr* tc, short rate, short dropFrame) {
    if (rate == 0) {
        *tc = tc_addr{0, 0, 0, 0, 0};
        return;
    }
    int64_t n = int64_t(frame) - 1;
    Fields t;
    if (!dropFrame) {
        if (n < 0) n += int64_t(rate) * 86400;  // the end of the day before
        tc->dropFrame = 0;
        t.frames = int(n % rate);
        const int64_t s = n / rate;
        t.seconds = int(s % 60);
        t.minutes = int(s / 60 % 60);
        t.hours = int(s / 3600);
        if (s / 3600 >= 24) t = Fields{23, 59, 59, rate - 1};
    } else {
        // One more than a day's wrap of n, so frame 0 lands past the day and is clamped to its last frame.
        if (n < 0) n = int64_t(frame) + kFramesPerDay;
        tc->dropFrame = 1;
        if (n / kFramesPerHour >= 24)
            t = Fields{23, 59, 59, rate - 1};
        else
            t = splitDropFrame(int(n));
    }
    tc->hours = int16_t(t.hours);
    tc->minutes = int16_t(t.minutes);
    tc->seconds = int16_t(t.seconds);
    tc->frames = int16_t(t.frames);
}

bool tcode_compare(const tc_addr& a, const tc_addr& b) {
    return a.hours == b.hours && a.minutes == b.minutes && a.seconds == b.seconds && a.frames == b.frames &&
           a.dropFrame == b.dropFrame;
}

double frames_to_tc(int frames, Qv::FrameRate rate, int pulldown, int phase) {
    if (frames == -1) return 1e99;  // the unset time
    const int count = frames < 0 ? (frames == INT_MIN ? INT_MAX : -frames) : frames;
    // The thousandth of a frame keeps the time inside its frame against rounding on the way back.
    double seconds = pulldown ? (add_pulldown(count, rate, phase) + 0.001) / vid_fps(rate)
                              : (count + 0.001) / playback_fps(rate);
    if (frames < 0) seconds = -seconds;
    return seconds + 1e-6;
}

int tc_to_frames(double seconds, Qv::FrameRate rate, int pulldown, int phase) {
    const double magnitude = std::fabs(seconds);
    if (magnitude == 1e99) return -1;
    int n = saturatingInt((magnitude + 1e-6) * playback_fps(rate) + 0.001);
    if (pulldown) n = remove_pulldown(n, rate, phase);
    return seconds < 0 ? -n : n;
}

LightweightString<wchar_t> timeAsString(unsigned int time, bool full) {
    static const char kDays[][4] = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
    static const char kMonths[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                      "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
    const std::time_t t = time;
    std::tm local{};
    if (!localtime_r(&t, &local)) return LightweightString<wchar_t>();
    // The fixed text form of asctime, written here so that it is re-entrant.
    char text[64];
    std::snprintf(text, sizeof text, "%.3s %.3s%3d %.2d:%.2d:%.2d %d\n", kDays[local.tm_wday % 7],
                  kMonths[local.tm_mon % 12], local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  1900 + local.tm_year);
    if (!full) text[16] = '\0';
    return Qv::widen(text);
}

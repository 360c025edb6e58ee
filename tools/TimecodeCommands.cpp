// ole timecode: one point in time as seconds, a frame count and timecode text, from any of the three.

#include "Arguments.h"
#include "Commands.h"

#include <ole/misc/ProjectRate.h>
#include <ole/misc/filmgauge.h>
#include <ole/misc/tccvt.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace oletool {
namespace {

struct TimecodeOptions {
    std::string rate;
    bool drop = false;
    bool pulldown = false;
    std::string phase = "0";
    std::string flags = "15";
    std::string seconds, frames, timecode;
    std::string to;
    bool json = false;
};

// Timecode frame labels are two digits, so rates above 100 fps have no timecode text.
constexpr unsigned kMaxTimecodeTicks = 100;
// Beyond this the library's frame arithmetic would leave int; real times stop at a day anyway.
constexpr double kMaxSeconds = 1e6;
constexpr long long kMaxFrameCount = 100000000;

// "15", or names joined by "," or "+": hours, minutes, seconds, frames, full, none.
int parseFlags(const std::string& text) {
    if (!text.empty() && text[0] >= '0' && text[0] <= '9') return int(parseInteger(text, "--flags", 0, 15));
    static const struct {
        const char* name;
        int bits;
    } kNames[] = {{"hours", kTcShowHours},   {"minutes", kTcShowMinutes}, {"seconds", kTcShowSeconds},
                  {"frames", kTcShowFrames}, {"full", kTcFull},           {"none", 0}};
    int flags = 0;
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t end = std::min(text.find_first_of(",+", start), text.size());
        const std::string name = text.substr(start, end - start);
        bool known = false;
        for (const auto& n : kNames)
            if (name == n.name) {
                flags |= n.bits;
                known = true;
            }
        if (!known)
            throw InputError("--flags: " + quote(name) +
                             " is not a flag (use 0..15 or hours, minutes, seconds, frames, full, none)");
        start = end + 1;
    }
    return flags;
}

struct TimecodeText {
    bool negative = false;
    int hours = 0, minutes = 0, seconds = 0, frames = 0;
    char separator = '.';
};

// [-]H:MM:SS?FF with "?" one of ". ; : ,", each field in range for the rate. The library would read any
// text, and any separator, and count labels that do not exist.
TimecodeText parseTimecodeText(const std::string& text, unsigned ticks, bool drop) {
    const auto bad = [&](const std::string& why) { return InputError("--tc: " + quote(text) + " " + why); };
    TimecodeText tc;
    std::size_t i = 0;
    const auto number = [&](std::size_t minDigits, std::size_t maxDigits) {
        std::size_t n = 0;
        int value = 0;
        while (i < text.size() && n < maxDigits && text[i] >= '0' && text[i] <= '9')
            value = value * 10 + (text[i++] - '0'), ++n;
        if (n < minDigits)
            throw bad("is not timecode (expected HH:MM:SS.FF, or ';' before the frames for drop frame)");
        return value;
    };
    const auto expect = [&](const char* separators) {
        if (i >= text.size() || !std::strchr(separators, text[i]))
            throw bad("is not timecode (expected HH:MM:SS.FF, or ';' before the frames for drop frame)");
        return text[i++];
    };
    if (i < text.size() && text[i] == '-') tc.negative = true, ++i;
    tc.hours = number(1, 2);
    expect(":");
    tc.minutes = number(2, 2);
    expect(":");
    tc.seconds = number(2, 2);
    tc.separator = expect(".;:,");
    tc.frames = number(2, 2);
    if (i != text.size()) throw bad("is not timecode (unexpected text after the frames)");

    if (tc.hours > 23) throw bad("has more than 23 hours");
    if (tc.minutes > 59) throw bad("has more than 59 minutes");
    if (tc.seconds > 59) throw bad("has more than 59 seconds");
    const unsigned labels = drop ? 30 : ticks;
    if (unsigned(tc.frames) >= labels)
        throw bad("has frame " + std::to_string(tc.frames) + "; frames run from 00 to " +
                  std::to_string(labels - 1));
    if (drop && tc.minutes % 10 != 0 && tc.seconds == 0 && tc.frames < 2)
        throw bad(
            "does not exist in drop-frame timecode (frames 00 and 01 are skipped at the start of every "
            "minute not divisible by ten)");
    return tc;
}

Value convert(const TimecodeOptions& o) {
    const Qv::FrameRate rate = parseRate(o.rate);
    const std::string rateName = str(Qv::getPersistableString(rate));
    if (!rateHasTrueFps(rate))
        throw InputError(rateName + " is a film rate; it has no frames per second of its own");
    const double fps = Qv::getFramesPerSecond(rate);
    const unsigned ticks = rateHasTicks(rate) ? Qv::getTicksPerSecond(rate) : 0;
    const bool hasTimecode = ticks != 0 && ticks <= kMaxTimecodeTicks;

    const bool dropSeparator = !o.timecode.empty() && o.timecode.find_first_of(";,") != std::string::npos;
    const bool drop = o.drop || dropSeparator;
    if (drop && rate != Qv::FR30M)
        throw InputError(std::string("drop-frame timecode counts 29.97 fps (30M), not ") + rateName +
                         (dropSeparator && !o.drop ? "; ';' before the frames marks drop frame" : ""));
    if (o.pulldown && !can_add_pulldown(rate))
        throw InputError(rateName + " takes no pulldown (25, 50, 30, 29.97, 60 and 59.94 fps do)");
    const int phase = o.pulldown ? int(parseInteger(o.phase, "--phase", 0, pd_film_cycle(rate) - 1)) : 0;
    const int flags = parseFlags(o.flags);
    const int pulldown = o.pulldown ? 1 : 0;

    // The frame counted from 0 at the true rate ("video frame"); every form is derived from it.
    int video = 0;
    if (!o.seconds.empty()) {
        const double s = parseReal(o.seconds, "--seconds");
        if (std::fabs(s) > kMaxSeconds) throw InputError("--seconds: " + o.seconds + " is beyond 24 hours");
        video = tc_to_frames(s, rate, 0, 0);
    } else if (!o.frames.empty()) {
        const int n = int(parseInteger(o.frames, "--frames", -kMaxFrameCount, kMaxFrameCount));
        if (n == -1) throw InputError("--frames: -1 stands for an unset time");
        video = tc_to_frames(frames_to_tc(n, rate, pulldown, phase), rate, 0, 0);
    } else {
        if (ticks > kMaxTimecodeTicks)
            throw InputError("timecode at " + rateName +
                             " fps is not written: its frame labels pass two digits");
        if (!hasTimecode) throw InputError(rateName + " has no timecode of its own");
        const TimecodeText tc = parseTimecodeText(o.timecode, ticks, drop);
        if (tc.negative && drop) throw InputError("--tc: drop-frame timecode has no negative times");
        video = tc_to_frames(string_to_tc(o.timecode.c_str(), rate, drop), rate, 0, 0);
    }
    if (video < 0 && drop) throw InputError("drop-frame timecode has no negative times");
    const long long dayFrames = !hasTimecode ? std::llround(fps * 86400)
                                : drop       ? DropFrame::kFramesPerDay
                                             : (long long)ticks * 86400;
    if (std::llabs(video) >= dayFrames) throw InputError("the time is 24 hours or more away from zero");

    const double start = video / fps;
    Value out = Value::object();
    out.set("rate", rateName);
    out.set("rate_display", str(Qv::getDisplayString(rate)));
    out.set("drop_frame", drop);
    out.set("pulldown", o.pulldown);
    if (o.pulldown) out.set("phase", phase);
    // To the microsecond: the library adds a microsecond before counting frames, so the rounded time still
    // falls in the same frame, and 1800 frames at 29.97 read as 60.06 rather than 60.059999999999995.
    out.set("seconds", std::round(start * 1e6) / 1e6);
    out.set("frames", tc_to_frames(start, rate, pulldown, phase));
    if (o.pulldown) out.set("video_frames", video);
    if (hasTimecode) {
        char text[32] = "";
        tc_to_string(start, text, flags, rate, drop);
        out.set("timecode", text);
    } else {
        out.set("timecode", nullptr);
    }
    return out;
}

}  // namespace

void addTimecodeCommands(CLI::App& app) {
    auto o = std::make_shared<TimecodeOptions>();
    CLI::App* cmd = app.add_subcommand(
        "timecode", "Convert between seconds, frame counts and timecode text at a frame rate");
    cmd->add_option("-r,--rate", o->rate, "Frame rate: persistable (30M) or display (\"29.97 fps\") string")
        ->required()
        ->type_name("RATE");
    CLI::App* input = cmd->add_option_group("input", "The time to convert (give exactly one)");
    input->add_option("-s,--seconds", o->seconds, "Time in seconds")->type_name("SECONDS");
    input->add_option("-f,--frames", o->frames, "Frame count from 0 (film frames with --pulldown)")
        ->type_name("N");
    input->add_option("-t,--tc", o->timecode, "Timecode text HH:MM:SS.FF, or HH:MM:SS;FF for drop frame")
        ->type_name("TIMECODE");
    input->require_option(1);
    cmd->add_flag("-d,--drop", o->drop, "Drop-frame timecode (29.97 fps only); implied by ';' in --tc");
    CLI::Option* pulldown =
        cmd->add_flag("-p,--pulldown", o->pulldown, "Frame counts are film frames carried by pulldown");
    cmd->add_option("--phase", o->phase, "Film frames into the pulldown cycle (default 0)")
        ->needs(pulldown)
        ->type_name("N");
    cmd->add_option("--flags", o->flags,
                    "Timecode fields to show: 0..15, or hours,minutes,seconds,frames,full (default 15)")
        ->type_name("FLAGS");
    CLI::Option* json = addJsonFlag(cmd, o->json);
    cmd->add_option("--to", o->to, "Print only this form")
        ->check(CLI::IsMember({"seconds", "frames", "timecode"}))
        ->excludes(json);
    cmd->footer(
        "Seconds are printed as the start of the frame the time falls in, to the microsecond.\n"
        "\n"
        "Examples:\n"
        "  ole timecode --rate 25 --seconds 3723.5\n"
        "  ole timecode --rate 30M --tc '00:01:00;02'\n"
        "  ole timecode --rate 30M --frames 4 --pulldown --phase 1 --json");
    cmd->callback([o] {
        const Value out = convert(*o);
        if (o->to.empty()) return print(out, o->json);
        const Value* v = out.find(o->to);
        if (v->kind() == Value::Kind::Null) throw InputError(o->rate + " has no timecode of its own");
        std::printf("%s\n", toText(*v).c_str());
    });
}

}  // namespace oletool

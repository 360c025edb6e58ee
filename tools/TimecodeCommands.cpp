// ole timecode: one point in time as seconds, a frame count and timecode text, from any of the three.

#include "Arguments.h"
#include "Commands.h"

#include <ole/misc/ProjectRate.h>
#include <ole/misc/filmgauge.h>
#include <ole/misc/tccvt.h>

#include <cmath>
#include <cstdlib>
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

Value convert(const TimecodeOptions& o) {
    const Qv::FrameRate rate = parseRate(o.rate);
    const std::string rateName = str(Qv::getPersistableString(rate));
    if (!Qv::rateHasTrueFps(rate))
        throw InputError(rateName + " is a film rate; it has no frames per second of its own");
    const double fps = Qv::getFramesPerSecond(rate);
    const bool hasTimecode = rateHasTimecodeText(rate);

    if (o.drop && rate != Qv::FR30M)
        throw InputError("drop-frame timecode counts 29.97 fps (30M), not " + rateName);
    if (o.pulldown && !can_add_pulldown(rate))
        throw InputError(rateName + " takes no pulldown (25, 50, 30, 29.97, 60 and 59.94 fps do)");
    const int phase = o.pulldown ? int(parseInteger(o.phase, "--phase", 0, pd_film_cycle(rate) - 1)) : 0;
    const int flags = parseFlags(o.flags);
    const int pulldown = o.pulldown ? 1 : 0;

    // The frame counted from 0 at the true rate ("video frame"); every form is derived from it.
    int video = 0;
    bool drop = o.drop;
    if (!o.seconds.empty()) {
        const double s = parseReal(o.seconds, "--seconds");
        if (std::fabs(s) > kMaxSeconds) throw InputError("--seconds: " + o.seconds + " is beyond 24 hours");
        video = tc_to_frames(s, rate, 0, 0);
    } else if (!o.frames.empty()) {
        const int n = int(parseInteger(o.frames, "--frames", -kMaxFrameCount, kMaxFrameCount));
        if (n == -1) throw InputError("--frames: -1 stands for an unset time");
        video = tc_to_frames(frames_to_tc(n, rate, pulldown, phase), rate, 0, 0);
    } else {
        if (Qv::rateHasTicks(rate) && !hasTimecode)
            throw InputError("timecode at " + rateName +
                             " fps is not written: its frame labels pass two digits");
        if (!hasTimecode) throw InputError(rateName + " has no timecode of its own");
        const TimecodeReading tc =
            accepted(parseTimecodeString(o.timecode.c_str(), rate, o.drop), o.timecode, "--tc");
        drop = tc.dropFrame;
        video = tc_to_frames(tc.seconds, rate, 0, 0);
    }
    if (video < 0 && drop) throw InputError("drop-frame timecode has no negative times");
    if (std::llabs(video) >= framesPerDay(rate, drop))
        throw InputError("the time is 24 hours or more away from zero");

    const double start = video / fps;
    Value out = Value::object();
    out["rate"] = rateName;
    out["rate_display"] = str(Qv::getDisplayString(rate));
    out["drop_frame"] = drop;
    out["pulldown"] = o.pulldown;
    if (o.pulldown) out["phase"] = phase;
    // To the microsecond: the library adds a microsecond before counting frames, so the rounded time still
    // falls in the same frame, and 1800 frames at 29.97 read as 60.06 rather than 60.059999999999995.
    out["seconds"] = number(std::round(start * 1e6) / 1e6);
    out["frames"] = tc_to_frames(start, rate, pulldown, phase);
    if (o.pulldown) out["video_frames"] = video;
    out["timecode"] = nullptr;
    if (hasTimecode) {
        char text[32] = "";
        tc_to_string(start, text, flags, rate, drop);
        out["timecode"] = text;
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
        ->check(NonEmpty)
        ->type_name("RATE");
    CLI::App* input = cmd->add_option_group("input", "The time to convert (give exactly one)");
    input->add_option("-s,--seconds", o->seconds, "Time in seconds")->check(NonEmpty)->type_name("SECONDS");
    input->add_option("-f,--frames", o->frames, "Frame count from 0 (film frames with --pulldown)")
        ->check(NonEmpty)
        ->type_name("N");
    input->add_option("-t,--tc", o->timecode, "Timecode text HH:MM:SS.FF, or HH:MM:SS;FF for drop frame")
        ->check(NonEmpty)
        ->type_name("TIMECODE");
    input->require_option(1);
    cmd->add_flag("-d,--drop", o->drop, "Drop-frame timecode (29.97 fps only); implied by ';' in --tc");
    CLI::Option* pulldown =
        cmd->add_flag("-p,--pulldown", o->pulldown, "Frame counts are film frames carried by pulldown");
    cmd->add_option("--phase", o->phase, "Film frames into the pulldown cycle (default 0)")
        ->needs(pulldown)
        ->check(NonEmpty)
        ->type_name("N");
    cmd->add_option("--flags", o->flags,
                    "Timecode fields to show: 0..15, or hours,minutes,seconds,frames,full (default 15)")
        ->check(NonEmpty)
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
        const Value& v = out.at(o->to);
        if (v.is_null()) throw InputError(o->rate + " has no timecode of its own");
        print(v, false);
    });
}

}  // namespace oletool

// ole footage: frame counts, feet+frames and perforations for the film gauges.
// ole pulldown: film frames to video frames and back through 3:2 (or 24:25) pulldown.

#include "Arguments.h"
#include "Commands.h"

#include <ole/misc/filmgauge.h>

#include <cstdlib>
#include <memory>
#include <vector>

namespace oletool {
namespace {

constexpr long long kMaxFrames = 100000000;

struct FootageOptions {
    std::string gauge;
    std::string frames, feet, perfs;
    bool zeroPad = false;
    bool json = false;
};

int perfsPerFrame(film_gauge g) {
    return frames_to_perfs(1, g);
}

// The library's footage text without its padding blanks: " 0012.05" -> "0012.05", "-   1.01" -> "-1.01".
std::string footageText(int frames, film_gauge g, bool zeroPad) {
    std::string text;
    for (const char* p = frames_to_feet(frames, g, zeroPad ? 1 : 0); *p; ++p)
        if (*p != ' ') text += *p;
    return text;
}

Value footageRecord(int frames, film_gauge g, bool zeroPad) {
    const foot_num foot = frames_to_foot_num(std::abs(frames), g);
    Value record = Value::object();
    record["gauge"] = film_gauge_to_str(g);
    record["edl"] = film_gauge_to_edlstr(g);
    record["frames"] = frames;
    record["footage"] = footageText(frames, g, zeroPad);
    record["feet"] = frames < 0 ? -foot.feet : foot.feet;
    record["frame"] = foot.frame;
    record["perfs"] = frames_to_perfs(frames, g);
    return record;
}

Value footage(const FootageOptions& o) {
    const bool hasGauge = !o.gauge.empty();
    const film_gauge g =
        hasGauge ? accepted(parseFilmGauge(o.gauge.c_str()), o.gauge, "--gauge") : FILM_INVALID;
    int frames = 0;
    if (!o.frames.empty()) {
        frames = int(parseInteger(o.frames, "--frames", -kMaxFrames, kMaxFrames));
    } else {
        if (!hasGauge)
            throw InputError(std::string(o.feet.empty() ? "--perfs" : "--feet") + " needs --gauge");
        if (!o.feet.empty()) {
            frames = accepted(parseFootage(o.feet.c_str(), g), o.feet, "--feet");
        } else {
            const int perfs = int(parseInteger(o.perfs, "--perfs", -kMaxFrames, kMaxFrames));
            frames = perfs_to_frames(perfs, g);
            if (frames_to_perfs(frames, g) != perfs)
                throw InputError("--perfs: " + o.perfs + " is not a whole number of " + film_gauge_to_str(g) +
                                 " frames (" + std::to_string(perfsPerFrame(g)) + " perforations each)");
        }
    }
    if (hasGauge) return footageRecord(frames, g, o.zeroPad);

    Value out = Value::object();
    out["frames"] = frames;
    out["gauges"] = Value::array();
    for (int each = FILM_16MM; each < FILM_INVALID; ++each)
        out["gauges"].push_back(footageRecord(frames, film_gauge(each), o.zeroPad));
    return out;
}

struct PulldownOptions {
    std::string frames;
    std::string rate;
    std::string phase = "0";
    bool json = false;
};

Value pulldown(const PulldownOptions& o, bool add) {
    const Qv::FrameRate rate = parseRate(o.rate);
    const std::string rateName = str(Qv::getPersistableString(rate));
    if (!can_add_pulldown(rate))
        throw InputError(rateName + " takes no pulldown (25, 50, 30, 29.97, 60 and 59.94 fps do)");
    const int filmCycle = pd_film_cycle(rate);
    const int videoCycle = pd_cycle_size(rate);
    const int phase = int(parseInteger(o.phase, "--phase", 0, (add ? filmCycle : videoCycle) - 1));
    const int n = int(parseInteger(o.frames, "FRAMES", 0, kMaxFrames));

    Value out = Value::object();
    out["rate"] = rateName;
    out["phase"] = phase;
    out["film_frames"] = add ? n : remove_pulldown(n, rate, phase);
    out["video_frames"] = add ? add_pulldown(n, rate, phase) : n;
    out["film_cycle"] = filmCycle;
    out["video_cycle"] = videoCycle;
    return out;
}

}  // namespace

void addFootageCommands(CLI::App& app) {
    auto o = std::make_shared<FootageOptions>();
    CLI::App* cmd =
        app.add_subcommand("footage", "Convert frame counts to feet+frames and perforations, and back");
    cmd->add_option("-g,--gauge", o->gauge,
                    "Film gauge: 16mm, 35mm, \"16mm ink\", \"35mm 3-perf\" or F16, F35, F16R, F353")
        ->check(NonEmpty);
    CLI::App* input = cmd->add_option_group("input", "What to convert (give exactly one)");
    input->add_option("-f,--frames", o->frames, "Frame count (every gauge when --gauge is not given)")
        ->check(NonEmpty);
    input->add_option("--feet", o->feet, "Footage text FEET.FF (needs --gauge)")->check(NonEmpty);
    input->add_option("--perfs", o->perfs, "Perforations (needs --gauge)")->check(NonEmpty);
    input->require_option(1);
    cmd->add_flag("-z,--zero-pad", o->zeroPad, "Pad the feet with zeros to four digits");
    addJsonFlag(cmd, o->json);
    cmd->footer(
        "Examples:\n"
        "  ole footage --frames 17\n"
        "  ole footage --gauge 35mm --feet 12.05\n"
        "  ole footage --gauge F353 --perfs 66 --json");
    cmd->callback([o] { print(footage(*o), o->json); });

    CLI::App* pd = app.add_subcommand("pulldown", "Add or remove film pulldown on a frame count");
    pd->require_subcommand(1);
    for (const bool add : {true, false}) {
        auto p = std::make_shared<PulldownOptions>();
        CLI::App* sub =
            pd->add_subcommand(add ? "add" : "remove", add ? "Film frames to the video frames that carry them"
                                                           : "Video frames to the film frames they carry");
        sub->add_option("frames", p->frames, add ? "Film frame count" : "Video frame count")
            ->required()
            ->check(NonEmpty);
        sub->add_option("-r,--rate", p->rate,
                        "Video rate: 30, 30M, 60, 60M (4 film frames in 5) or 25, 50 (24 in 25)")
            ->required()
            ->check(NonEmpty);
        sub->add_option(
               "--phase", p->phase,
               add ? "Film frames into the cycle (default 0)" : "Video frames into the cycle (default 0)")
            ->check(NonEmpty);
        addJsonFlag(sub, p->json);
        sub->callback([p, add] { print(pulldown(*p, add), p->json); });
    }
    pd->footer(
        "Examples:\n"
        "  ole pulldown add 4 --rate 30\n"
        "  ole pulldown remove 25 --rate 25 --phase 3 --json");
}

}  // namespace oletool

// ole rates: the frame-rate table, or the facts of one rate.
// ole formats: the output-format table, or the facts of one format.

#include "Arguments.h"
#include "Commands.h"

#include <ole/misc/ProjectRate.h>
#include <ole/misc/filmgauge.h>
#include <ole/misc/outputformat.h>

#include <algorithm>
#include <memory>
#include <vector>

namespace oletool {
namespace {

using Qv::FrameRate;
namespace Groups = Qv::FrameRateGroups;

const char* groupName(FrameRate rate) {
    if (Qv::isInFrameRateGroup(rate, Groups::Normal)) return "normal";
    if (Qv::isInFrameRateGroup(rate, Groups::DecimatedBy2)) return "decimated by 2";
    if (Qv::isInFrameRateGroup(rate, Groups::DecimatedBy3)) return "decimated by 3";
    if (Qv::isInFrameRateGroup(rate, Groups::Film)) return "film";
    return "low and high";
}

// The persistable string of a value that may lie outside the table (which the library would assert on).
Value rateName(FrameRate rate) {
    if (rate < Qv::kFirstFrameRate || rate > Qv::kLastFrameRate) return nullptr;
    return str(Qv::getPersistableString(rate));
}

Value ticksOf(FrameRate rate) {
    return Qv::rateHasTicks(rate) ? Value(int(Qv::getTicksPerSecond(rate))) : Value();
}
Value fpsOf(FrameRate rate) {
    return Qv::rateHasTrueFps(rate) ? number(Qv::getFramesPerSecond(rate)) : Value();
}

bool isProjectRate(FrameRate rate) {
    const std::vector<FrameRate> rates = Qv::getProjectFrameRates();
    return std::find(rates.begin(), rates.end(), rate) != rates.end();
}

Value rateRow(FrameRate rate) {
    Value row = Value::object();
    row["value"] = int(rate);
    row["persistable"] = rateName(rate);
    row["display"] = str(Qv::getDisplayString(rate));
    row["plain"] = str(Qv::getPlainString(rate));
    row["ticks"] = ticksOf(rate);
    row["fps"] = fpsOf(rate);
    row["group"] = groupName(rate);
    return row;
}

Value rateFacts(FrameRate rate) {
    Value out = rateRow(rate);
    out["frame_duration"] =
        Qv::rateHasTicks(rate) || rate == Qv::FR12_5 ? number(Qv::getFrameDuration(rate)) : Value();
    out["has_1001_factor"] = Qv::has1001Factor(rate);
    out["drop_frame_timecode"] = Qv::canUseDropFrameTimeCode(rate);
    out["thirty_frame_labels"] = Qv::isAssociatedWith30FrameLabel(rate);
    out["ntsc"] = Qv::isInNTSCSet(rate);
    out["pal"] = Qv::isInPALSet(rate);
    out["non_decimated"] = rateName(Qv::getNonDecimatedFrameRate(rate));
    out["project_rate"] = rateName(Qv::getEquivalentProjectFrameRate(rate));
    out["is_project_rate"] = isProjectRate(rate);
    out["edl_standard"] = tv_standard_to_edlstr(TCInf{rate, false});
    const bool pulldown = can_add_pulldown(rate);
    out["pulldown"] = pulldown;
    out["pulldown_film_cycle"] = pulldown ? Value(pd_film_cycle(rate)) : Value();
    out["pulldown_video_cycle"] = pulldown ? Value(pd_cycle_size(rate)) : Value();
    if (isProjectRate(rate)) {
        std::vector<unsigned> allowed;
        OutputFormat::getAllowedOutputFormatsForProjectFrameRate(rate, allowed);
        Value formats = Value::array();
        for (unsigned index : allowed) formats.push_back(index);
        out["output_formats"] = std::move(formats);
    }
    return out;
}

struct RatesOptions {
    std::string rate;
    std::string group;
    bool project = false;
    bool json = false;
};

Value rates(const RatesOptions& o) {
    if (!o.rate.empty()) return rateFacts(parseRate(o.rate));
    std::vector<FrameRate> list;
    if (o.project) {
        list = Qv::getProjectFrameRates();
    } else {
        Qv::getAllFrameRates(list);
    }
    if (!o.group.empty()) {
        static const char* const kGroups[] = {"normal",         "decimated", "decimated-by-2",
                                              "decimated-by-3", "film",      "other"};
        const auto it = std::find(std::begin(kGroups), std::end(kGroups), o.group);
        if (it == std::end(kGroups))
            throw InputError("--group: unknown group " + quote(o.group) +
                             " (normal, decimated, decimated-by-2, decimated-by-3, film, other)");
        const auto group = Qv::FrameRateGroup(Groups::Normal + (it - std::begin(kGroups)));
        list.erase(std::remove_if(list.begin(), list.end(),
                                  [group](FrameRate r) { return !Qv::isInFrameRateGroup(r, group); }),
                   list.end());
    }
    Value table = Value::array();
    for (FrameRate rate : list) table.push_back(rateRow(rate));
    return table;
}

const char* aspectName(Qv::Image::AspectRatio aspect) {
    switch (aspect) {
        case Qv::Image::Aspect4x3:
            return "4:3";
        case Qv::Image::Aspect16x9:
            return "16:9";
        case Qv::Image::AspectFullAperture:
            return "full aperture";
        case Qv::Image::AspectAcademy:
            return "academy";
        case Qv::Image::AspectDCI185:
            return "1.85:1";
        case Qv::Image::AspectDCI239:
            return "2.39:1";
    }
    return "unknown";
}

const char* scanName(Qv::Image::ScanMode scan) {
    switch (scan) {
        case Qv::Image::InterlacedUpperFirst:
            return "interlaced, upper field first";
        case Qv::Image::InterlacedLowerFirst:
            return "interlaced, lower field first";
        case Qv::Image::Progressive:
            return "progressive";
        case Qv::Image::ProgressiveSegmented:
            return "progressive segmented";
    }
    return "unknown";
}

Value formatRow(unsigned index, const OutputFormat::Details& d) {
    Value row = Value::object();
    row["index"] = index;
    row["type"] = str(OutputFormat::getDisplayString(d.type()));
    row["label"] = str(d.label());
    row["size"] = std::to_string(d.width()) + "x" + std::to_string(d.height());
    row["rate"] = rateName(d.frameRate());
    row["scan"] = scanName(d.scanMode());
    return row;
}

Value formatFacts(Value index, const OutputFormat::Details& d) {
    Value out = Value::object();
    out["index"] = std::move(index);
    out["display"] = str(d.getDisplayString());
    out["type"] = int(d.type());
    out["type_name"] = str(OutputFormat::getDisplayString(d.type()));
    out["label"] = str(d.label());
    out["width"] = d.width();
    out["height"] = d.height();
    out["bits_per_component"] = unsigned(d.bitsPerComponent());
    out["aspect"] = int(d.aspect());
    out["aspect_name"] = aspectName(d.aspect());
    out["rate"] = rateName(d.frameRate());
    out["rate_display"] = str(Qv::getDisplayString(d.frameRate()));
    out["scan_mode"] = int(d.scanMode());
    out["scan"] = scanName(d.scanMode());
    // Read from the scan mode: the library's isInterlaced() would also complain, on standard output,
    // about a parsed format whose type does not fit its scan mode.
    out["interlaced"] =
        d.scanMode() == Qv::Image::InterlacedUpperFirst || d.scanMode() == Qv::Image::InterlacedLowerFirst;
    out["sd"] = OutputFormat::isSD(d.type());
    out["video_format"] = d.videoFormat();
    out["persistable"] = str(d.getPersistableString());
    return out;
}

struct FormatsOptions {
    std::string format;
    std::string projectRate;
    bool json = false;
};

Value formats(const FormatsOptions& o) {
    const unsigned count = OutputFormat::getNumFormats();
    if (!o.format.empty()) {
        if (o.format.find('|') == std::string::npos) {
            const unsigned index = unsigned(parseInteger(o.format, "FORMAT", 0, count - 1));
            return formatFacts(index, OutputFormat::getFormat(index));
        }
        const OutputFormat::Details d = accepted(OutputFormat::Details::parse(o.format.c_str()), o.format);
        Value index;
        for (unsigned i = 0; i < count; ++i)
            if (OutputFormat::getFormat(i) == d) index = i;
        return formatFacts(std::move(index), d);
    }
    std::vector<unsigned> indices;
    if (!o.projectRate.empty()) {
        OutputFormat::getAllowedOutputFormatsForProjectFrameRate(parseRate(o.projectRate), indices);
    } else {
        for (unsigned i = 0; i < count; ++i) indices.push_back(i);
    }
    Value table = Value::array();
    for (unsigned i : indices) table.push_back(formatRow(i, OutputFormat::getFormat(i)));
    return table;
}

}  // namespace

void addTableCommands(CLI::App& app) {
    auto r = std::make_shared<RatesOptions>();
    CLI::App* rates = app.add_subcommand("rates", "List the frame rates, or show the facts of one");
    rates->add_option("rate", r->rate, "A rate by persistable (30M) or display (\"29.97 fps\") string")
        ->check(NonEmpty);
    rates
        ->add_option("--group", r->group,
                     "List one group: normal, decimated, decimated-by-2, decimated-by-3, film, other")
        ->check(NonEmpty);
    rates->add_flag("--project", r->project, "List only the rates a project may use");
    addJsonFlag(rates, r->json);
    rates->footer(
        "Examples:\n"
        "  ole rates\n"
        "  ole rates 30M\n"
        "  ole rates '23.98 fps' --json");
    rates->callback([r] {
        if (!r->rate.empty() && (r->project || !r->group.empty()))
            throw InputError("--project and --group list rates; they do not go with a RATE");
        print(::oletool::rates(*r), r->json);
    });

    auto f = std::make_shared<FormatsOptions>();
    CLI::App* formats = app.add_subcommand("formats", "List the output formats, or show the facts of one");
    formats
        ->add_option("format", f->format,
                     "A format by index (0..31) or persistable string "
                     "(type|0|scan|width|height|bits|aspect|rate|label)")
        ->check(NonEmpty);
    formats
        ->add_option("--project-rate", f->projectRate,
                     "List only the formats allowed for a project at this rate")
        ->check(NonEmpty);
    addJsonFlag(formats, f->json);
    formats->footer(
        "Examples:\n"
        "  ole formats\n"
        "  ole formats --project-rate 25\n"
        "  ole formats 12 --json\n"
        "  ole formats '4|0|1|1920|1080|8|2|3|25fps'");
    formats->callback([f] {
        if (!f->format.empty() && !f->projectRate.empty())
            throw InputError("--project-rate lists formats; it does not go with a FORMAT");
        print(::oletool::formats(*f), f->json);
    });
}

}  // namespace oletool

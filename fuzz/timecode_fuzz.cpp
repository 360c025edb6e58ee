// Arbitrary text through the video-time parsers: timecode, footage, frame-rate strings and output-format
// persistable strings. None may crash or read past the text; what parses must print and parse back.

#include <ole/misc/FrameRate.h>
#include <ole/misc/filmgauge.h>
#include <ole/misc/outputformat.h>
#include <ole/misc/tccvt.h>

#include <ole/runtime/Strings.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) return 0;
    // The first byte chooses the rate and the kind; the rest is the text, NUL-terminated.
    const Qv::FrameRate rate = Qv::FrameRate(data[0] % 49);
    const bool drop = data[0] & 0x80;
    std::string text(reinterpret_cast<const char*>(data + 1), size - 1);
    text = text.c_str();  // up to the first NUL, as a C caller would pass it

    const double seconds = string_to_tc(text.c_str(), rate, drop);
    isTimecodeStringDropFrame(text.c_str());
    if (rate != Qv::FRInvalid) {
        char buffer[13];
        for (int flags : {0, 8, 15}) tc_to_string(seconds, buffer, flags, rate, drop);
        tc_to_frames(seconds, rate, data[0] & 1, int(size) - 4);
    }

    for (int g = FILM_16MM; g <= FILM_INVALID; ++g) {
        const int frames = feet_to_frames(text.data(), film_gauge(g));
        if (g != FILM_INVALID && frames > -100000000 && frames < 100000000) {
            std::string footage = frames_to_feet(frames, film_gauge(g), data[0] & 1);
            if (feet_to_frames(footage.data(), film_gauge(g)) != frames) std::abort();
        }
    }
    edlstr_to_film_gauge(text.c_str());
    edlstr_to_tv_standard(text.c_str());

    const Qv::FrameRate fromText = Qv::getFrameRateFromPersistableString(text.c_str());
    if (fromText != Qv::FRInvalid && Qv::getPersistableString(fromText) != text.c_str()) std::abort();

    OutputFormat::Details details;
    if (details.fromPersistableString(text.c_str())) {
        const OutputFormat::Details again(details.getPersistableString());
        if (again.type() != details.type() || again.frameRate() != details.frameRate()) std::abort();
    }
    return 0;
}

// Time in an editor: one point in time as seconds, as a frame count and as timecode text, at a few frame
// rates; then the same frames as film footage, and film carried on video through pulldown.

#include <ole/misc/FrameRate.h>
#include <ole/misc/filmgauge.h>
#include <ole/misc/tccvt.h>

#include <cstdio>

int main() {
    // 25 fps (PAL), 29.97 fps with drop-frame timecode (NTSC) and 24 fps film.
    struct {
        Qv::FrameRate rate;
        bool dropFrame;
    } const kinds[] = {{Qv::FR25, false}, {Qv::FR30M, true}, {Qv::FR24, false}};

    for (const auto& kind : kinds) {
        // The persistable string goes into files, the display string to people.
        std::printf("%s (%ls)\n", Qv::getPersistableString(kind.rate).c_str(),
                    Qv::getDisplayString(kind.rate).c_str());

        // Seconds to text: the time is rounded down to the frame it falls in.
        char text[13];
        tc_to_string(3723.5, text, kTcFull, kind.rate, kind.dropFrame);
        // ... and back: the start of that frame.
        const double seconds = string_to_tc(text, kind.rate, kind.dropFrame);
        // Frame counts from 0; -1 is the unset time.
        const int frames = tc_to_frames(seconds, kind.rate, 0, 0);
        std::printf("  3723.5 s  ->  %s  ->  %.4f s  =  frame %d\n", text, seconds, frames);
    }

    // Drop frame skips the labels ;00 and ;01 at the start of most minutes: frame 1800 is "00:01:00;02".
    char text[13];
    tc_to_string(frames_to_tc(1800, Qv::FR30M, 0, 0), text, kTcFull, Qv::FR30M, true);
    std::printf("frame 1800 at 29.97 drop frame is %s\n", text);

    // Film footage: 16 frames to the foot of 35mm film, 40 to the foot of 16mm.
    for (film_gauge gauge : {FILM_35MM, FILM_16MM}) {
        const foot_num footage = frames_to_foot_num(100, gauge);
        std::printf("100 frames of %s film: %d feet + %d frames, %d perforations\n", film_gauge_to_str(gauge),
                    footage.feet, footage.frame, frames_to_perfs(100, gauge));
    }

    // Pulldown: 4 film frames become 5 video frames at 30-type rates, and come back as 4.
    const int video = add_pulldown(24, Qv::FR30M, 0);
    std::printf("24 film frames -> %d video frames -> %d film frames\n", video,
                remove_pulldown(video, Qv::FR30M, 0));
    return 0;
}

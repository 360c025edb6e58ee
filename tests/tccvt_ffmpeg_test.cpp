// Our timecode conversions against FFmpeg's (libavutil), frame by frame over a whole day.
//
// Known, deliberate differences, adjusted for here and nowhere else:
//   - Our record frame numbers count from 1 (frame 1 is 00:00:00:00); FFmpeg's count from 0.
//   - Our non-drop text separates seconds and frames with "."; FFmpeg writes ":" and reads any separator
//     other than ":" as drop frame. We read any separator and take the kind from the caller instead.
//   - At and past 24 hours FFmpeg (with its 24-hour flag) wraps to 00:00:00; our drop-frame text does not
//     wrap, our non-drop text prints exactly 24 hours as "24:00:00" and wraps only after, and our records
//     clamp to the last frame of the day.

extern "C" {
#include <libavutil/timecode.h>
}

#include <ole/misc/ProjectRate.h>
#include <ole/misc/tccvt.h>

#include <gtest/gtest.h>

#include <cstring>
#include <ostream>
#include <string>

using namespace Qv;

namespace {

struct Kind {
    FrameRate rate;
    bool drop;
    AVRational avRate;
    int framesPerDay;
};

AVTimecode avTimecode(const Kind& kind) {
    AVTimecode tc;
    const int flags = AV_TIMECODE_FLAG_24HOURSMAX | (kind.drop ? AV_TIMECODE_FLAG_DROPFRAME : 0);
    EXPECT_EQ(av_timecode_init(&tc, kind.avRate, flags, 0, nullptr), 0);
    return tc;
}

const auto twoDigits = [](const char* p) -> int { return (p[0] - '0') * 10 + (p[1] - '0'); };

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << getPersistableString(kind.rate).c_str() << (kind.drop ? " drop frame" : " non-drop");
}

class AgainstFFmpeg : public testing::TestWithParam<Kind> {};

}  // namespace

// For every frame of the day: FFmpeg's text equals ours, our record holds the same fields, and each side
// reads the other's text back to the same frame. Reports the first frame that disagrees.
TEST_P(AgainstFFmpeg, EveryFrameOfADay) {
    const Kind kind = GetParam();
    const AVTimecode tc = avTimecode(kind);
    const double fps = getFramesPerSecond(kind.rate);
    const short ticks = getTicksPerSecond(kind.rate);
    char theirs[AV_TIMECODE_STR_SIZE], ours[13];
    // Plain comparisons in the loop keep a whole day fast under the sanitizers; the first frame that
    // disagrees is reported with both texts.
    for (int n = 0; n < kind.framesPerDay; ++n) {
        av_timecode_make_string(&tc, theirs, n);
        const bool formatted = tc_to_string(n / fps, ours, kTcFull, kind.rate, kind.drop);
        const bool ourSeparator = ours[8] == (kind.drop ? ';' : '.');
        ours[8] = theirs[8];
        bool same = formatted && ourSeparator && std::strcmp(ours, theirs) == 0;

        tc_addr rec;
        frames_to_tc(n + 1, &rec, ticks, kind.drop);
        same = same && rec.hours == twoDigits(theirs) && rec.minutes == twoDigits(theirs + 3) &&
               rec.seconds == twoDigits(theirs + 6) && rec.frames == twoDigits(theirs + 9) &&
               rec.dropFrame == kind.drop && tc_to_frames(&rec, ticks, kind.drop) == n + 1;

        same = same && tc_to_frames(string_to_tc(theirs, kind.rate, kind.drop), kind.rate, 0, 0) == n;
        AVTimecode parsed;
        same = same && av_timecode_init_from_string(&parsed, kind.avRate, ours, nullptr) == 0 &&
               parsed.start == n;
        if (!same) {
            ADD_FAILURE() << "frame " << n << ": FFmpeg " << theirs << ", ours " << ours << ", record "
                          << rec.hours << ":" << rec.minutes << ":" << rec.seconds << ":" << rec.frames;
            break;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, AgainstFFmpeg,
                         testing::Values(Kind{FR30M, true, {30000, 1001}, DropFrame::kFramesPerDay},
                                         Kind{FR25, false, {25, 1}, 25 * 86400},
                                         Kind{FR30, false, {30, 1}, 30 * 86400}),
                         [](const testing::TestParamInfo<Kind>& info) {
                             return std::string(getPersistableString(info.param.rate).c_str()) +
                                    (info.param.drop ? "_drop" : "_nondrop");
                         });

// At exactly 24 hours the two part ways on purpose (see the top of this file).
TEST(AgainstFFmpegAtTheDayEnd, DeliberateDifferences) {
    char theirs[AV_TIMECODE_STR_SIZE], ours[13];
    const AVTimecode drop = avTimecode({FR30M, true, {30000, 1001}, 0});
    av_timecode_make_string(&drop, theirs, DropFrame::kFramesPerDay);
    tc_to_string(DropFrame::kFramesPerDay / getFramesPerSecond(FR30M), ours, kTcFull, FR30M, true);
    EXPECT_STREQ(theirs, "00:00:00;00");
    EXPECT_STREQ(ours, "24:00:00;00");

    const AVTimecode pal = avTimecode({FR25, false, {25, 1}, 0});
    av_timecode_make_string(&pal, theirs, 25 * 86400), tc_to_string(86400.0, ours, kTcFull, FR25, false);
    EXPECT_STREQ(theirs, "00:00:00:00");
    EXPECT_STREQ(ours, "24:00:00.00");
}

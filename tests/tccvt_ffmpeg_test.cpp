// Our timecode conversions against FFmpeg's (libavutil), frame by frame over a whole day.
//
// Known, deliberate differences, adjusted for here and nowhere else:
//   - Our record frame numbers count from 1 (frame 1 is 00:00:00:00); FFmpeg's count from 0.
//   - Our non-drop text separates seconds and frames with "."; FFmpeg writes ":" and reads any separator
//     other than ":" as drop frame. We accept any separator and take the kind from the caller instead.
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
#include <string>

using namespace Qv;

namespace {

struct Kind {
    FrameRate rate;
    bool drop;
    AVRational avRate;
    int framesPerDay;
};

const Kind kKinds[] = {
    {FR30M, true, {30000, 1001}, DropFrame::kFramesPerDay},
    {FR25, false, {25, 1}, 25 * 86400},
    {FR30, false, {30, 1}, 30 * 86400},
};

AVTimecode avTimecode(const Kind& kind) {
    AVTimecode tc;
    const int flags = AV_TIMECODE_FLAG_24HOURSMAX | (kind.drop ? AV_TIMECODE_FLAG_DROPFRAME : 0);
    EXPECT_EQ(av_timecode_init(&tc, kind.avRate, flags, 0, nullptr), 0);
    return tc;
}

int twoDigits(const char* p) {
    return (p[0] - '0') * 10 + (p[1] - '0');
}

std::string kindName(const testing::TestParamInfo<Kind>& info) {
    return std::string(getPersistableString(info.param.rate).c_str()) +
           (info.param.drop ? "_drop" : "_nondrop");
}

class AgainstFFmpeg : public testing::TestWithParam<Kind> {};

}  // namespace

// Every frame of the day: FFmpeg's text equals ours, our record holds the same fields, and each side
// reads the other's text back to the same frame.
TEST_P(AgainstFFmpeg, EveryFrameOfADay) {
    const Kind kind = GetParam();
    const AVTimecode tc = avTimecode(kind);
    const double fps = getFramesPerSecond(kind.rate);
    const short ticks = getTicksPerSecond(kind.rate);
    const char ourSeparator = kind.drop ? ';' : '.';

    char theirs[AV_TIMECODE_STR_SIZE];
    char ours[13];
    int failures = 0;
    for (int n = 0; n < kind.framesPerDay && failures < 10; ++n) {
        av_timecode_make_string(&tc, theirs, n);

        // Frame number to text.
        const double seconds = n / fps;
        ASSERT_TRUE(tc_to_string(seconds, ours, kTcFull, kind.rate, kind.drop));
        const bool separatorsAsDocumented = ours[8] == ourSeparator && theirs[8] == (kind.drop ? ';' : ':');
        ours[8] = theirs[8];
        if (!separatorsAsDocumented || std::strcmp(ours, theirs) != 0) {
            ADD_FAILURE() << "frame " << n << ": ours " << ours << ", FFmpeg " << theirs;
            ++failures;
        }

        // Frame number to record and back; records count from 1.
        tc_addr record;
        frames_to_tc(n + 1, &record, ticks, kind.drop);
        if (record.hours != twoDigits(theirs) || record.minutes != twoDigits(theirs + 3) ||
            record.seconds != twoDigits(theirs + 6) || record.frames != twoDigits(theirs + 9) ||
            record.dropFrame != kind.drop || tc_to_frames(&record, ticks, kind.drop) != n + 1) {
            ADD_FAILURE() << "frame " << n << ": record " << record.hours << ":" << record.minutes << ":"
                          << record.seconds << ":" << record.frames << ", FFmpeg " << theirs;
            ++failures;
        }

        // Their text to our frame number.
        const int back = tc_to_frames(string_to_tc(theirs, kind.rate, kind.drop), kind.rate, 0, 0);
        if (back != n) {
            ADD_FAILURE() << "frame " << n << ": we read FFmpeg's " << theirs << " as " << back;
            ++failures;
        }

        // Our text (with FFmpeg's separator: it would take "." for drop frame) to their frame number.
        AVTimecode parsed;
        if (av_timecode_init_from_string(&parsed, kind.avRate, ours, nullptr) != 0 || parsed.start != n) {
            ADD_FAILURE() << "frame " << n << ": FFmpeg read our " << ours << " as " << parsed.start;
            ++failures;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(Rates, AgainstFFmpeg, testing::ValuesIn(kKinds), kindName);

// At exactly 24 hours the two part ways on purpose (see the top of this file).
TEST(AgainstFFmpegAtTheDayEnd, DeliberateDifferences) {
    char theirs[AV_TIMECODE_STR_SIZE];
    char ours[13];

    const AVTimecode drop = avTimecode(kKinds[0]);
    av_timecode_make_string(&drop, theirs, DropFrame::kFramesPerDay);
    EXPECT_STREQ(theirs, "00:00:00;00");
    tc_to_string(DropFrame::kFramesPerDay / getFramesPerSecond(FR30M), ours, kTcFull, FR30M, true);
    EXPECT_STREQ(ours, "24:00:00;00");

    const AVTimecode pal = avTimecode(kKinds[1]);
    av_timecode_make_string(&pal, theirs, 25 * 86400);
    EXPECT_STREQ(theirs, "00:00:00:00");
    tc_to_string(86400.0, ours, kTcFull, FR25, false);
    EXPECT_STREQ(ours, "24:00:00.00");

    tc_addr record;
    frames_to_tc(25 * 86400 + 1, &record, 25, 0);
    EXPECT_TRUE(tcode_compare(record, tc_addr{23, 59, 59, 24, 0}));
}

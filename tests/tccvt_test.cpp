#include <ole/misc/tccvt.h>

#include <ole/misc/filmgauge.h>

#include <ole/runtime/Strings.h>

#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <tuple>

using namespace Qv;
using oletest::stdoutOf;

namespace {

const double kNtsc = 30 / 1.001;

std::string text(double seconds, FrameRate rate, bool drop = false, int flags = kTcFull) {
    char buffer[13] = "untouched";
    EXPECT_TRUE(tc_to_string(seconds, buffer, flags, rate, drop));
    return buffer;
}

std::string record(int frame, short rate, short drop) {
    tc_addr tc{-1, -1, -1, -1, -1};
    frames_to_tc(frame, &tc, rate, drop);
    EXPECT_EQ(tc.dropFrame, drop);
    char out[64];
    std::snprintf(out, sizeof out, "%02d:%02d:%02d%c%02d", tc.hours, tc.minutes, tc.seconds, drop ? ';' : ':',
                  tc.frames);
    return out;
}

}  // namespace

TEST(TimecodeText, EveryFlagCombination) {
    // Index = flags: leading zero fields show only when their bit asks; frames alone need bit 8.
    const char* minute[4] = {"1:02.01", "00:01:02.01", "01:02.01", "00:01:02.01"};  // by bits 1 and 2
    const char* seconds[8] = {"3.01",  "00:00:03.01", "00:03.01", "00:00:03.01",
                              "03.01", "00:00:03.01", "00:03.01", "00:00:03.01"};  // by bits 1, 2 and 4
    const char* frames[16] = {"",         "00:00:00.01", "00:00.01", "00:00:00.01", "00.01",    "00:00:00.01",
                              "00:00.01", "00:00:00.01", ".01",      "00:00:00.01", "00:00.01", "00:00:00.01",
                              "00.01",    "00:00:00.01", "00:00.01", "00:00:00.01"};
    for (int flags = 0; flags < 16; ++flags) {
        EXPECT_EQ(text(62.04, FR25, false, flags), minute[flags & 3]) << flags;
        EXPECT_EQ(text(3.04, FR25, false, flags), seconds[flags & 7]) << flags;
        EXPECT_EQ(text(0.04, FR25, false, flags), frames[flags]) << flags;
    }
    // Negative times lead with '-'; non-drop text wraps only past a day, drop-frame text never wraps.
    const double day = DropFrame::kFramesPerDay / kNtsc, hour = DropFrame::kFramesPerHour / kNtsc;
    // clang-format off
    const std::tuple<double, FrameRate, bool, int, const char*> rows[] = {
        {3723.5, FR25, false, kTcFull, "01:02:03.12"},  {3723.5, FR25, false, 0, "1:02:03.12"},
        {36000, FR25, false, 0, "10:00:00.00"},         {600, FR25, false, 0, "10:00.00"},
        {60.5, FR30M, true, 0, "1:00;15"},              {1.5, FR30M, false, kTcFull, "00:00:01.14"},
        {-62.0, FR25, false, kTcFull, "-00:01:02.00"},  {-62.0, FR25, false, 0, "-1:02.00"},
        {-0.04, FR25, false, 0, "-"},                   {-1800 / kNtsc, FR30M, true, kTcFull, "-00:01:00;02"},
        {86400.0, FR25, false, kTcFull, "24:00:00.00"}, {86400.04, FR25, false, kTcFull, "00:00:00.01"},
        {day, FR30M, true, kTcFull, "24:00:00;00"},     {day + hour, FR30M, true, kTcFull, "25:00:00;00"}};
    // clang-format on
    for (const auto& [seconds, rate, drop, flags, expected] : rows)
        EXPECT_EQ(text(seconds, rate, drop, flags), expected) << seconds;

    char buffer[13] = "untouched";
    EXPECT_EQ(stdoutOf([&] { EXPECT_FALSE(tc_to_string(1.0, buffer, kTcFull, FRInvalid, false)); }),
              "assertion failed tcRate != Qv::FRInvalid at ole/misc/tccvt line 23\n");
    stdoutOf([&] { EXPECT_FALSE(tc_to_string(1.0, buffer, kTcFull, FR48D2, false)); });  // no ticks
    EXPECT_STREQ(buffer, "untouched");
}

TEST(TimecodeText, DropFrameBoundaries) {
    const std::pair<int, const char*> cases[] = {
        {1799, "00:00:59;29"},   {1800, "00:01:00;02"},   {1827, "00:01:00;29"},   {1828, "00:01:01;00"},
        {3598, "00:02:00;02"},   {17981, "00:09:59;29"},  {17982, "00:10:00;00"},  {19782, "00:11:00;02"},
        {107891, "00:59:59;29"}, {107892, "01:00:00;00"}, {109692, "01:01:00;02"}, {2589407, "23:59:59;29"}};
    for (const auto& [frame, label] : cases) {
        EXPECT_EQ(text(frame / kNtsc, FR30M, true), label);
        EXPECT_NEAR(string_to_tc(label, FR30M, true) * kNtsc, frame, 1e-6) << label;
        EXPECT_EQ(record(frame + 1, 30, 1), label);
    }
    EXPECT_NEAR(string_to_tc("00:01:00;00", FR30M, true) * kNtsc, 1798, 1e-6);  // missing labels run back
    const tc_addr missing{0, 1, 0, 1, 1};
    EXPECT_EQ(tc_to_frames(&missing, 30, 1), 1800);
    EXPECT_EQ(text(60.0, FR30, true), "00:01:00;02");  // drop frame is 29.97 whatever the rate
}

TEST(TimecodeText, ParsingIsLoose) {
    EXPECT_DOUBLE_EQ(string_to_tc("-00:01:02.05", FR25, false), -62.2);
    // The negative form is always read without dropped labels, and says so on the debug output.
    auto negative = [] { EXPECT_NEAR(string_to_tc("-00:01:00;02", FR30M, true) * kNtsc, -1802, 1e-6); };
    EXPECT_NE(oletest::stderrOf(negative).find("string_to_tc: error negative timecode\n"), std::string::npos);
    for (const char* same : {"01:00:00:00", "01:00:00;00", "01:00:00x00", " 01:00:00 00", "+1: 0: 0. 0"})
        EXPECT_DOUBLE_EQ(string_to_tc(same, FR25, false), 3600.0) << same;
    EXPECT_DOUBLE_EQ(string_to_tc("00:00:01.30", FR25, false), 2.2);  // fields are not range-checked
    for (const char* bad :
         {"", "abc", "01:00:00", "01:00:00.", "01-00-00.00", "01:00:00.x", "-", (const char*)0})
        EXPECT_EQ(string_to_tc(bad, FR25, false), 0.0) << (bad ? bad : "null");
    EXPECT_NEAR(string_to_tc("00:10:00;00", TCInf{FR30M, true}) * kNtsc, 17982, 1e-6);
    stdoutOf([] { EXPECT_EQ(string_to_tc("00:00:10.00", FR24F, false), 0.0); });    // no true rate
    string_to_tc("99999999999:99999999999:99999999999.99999999999", FR240, false);  // must not overflow

    // "1:00:00;00": the ninth character is a digit; "     0;00": short once the blanks are skipped.
    for (const char* drop : {"01:00:00;00", "  01:00:00,00"}) EXPECT_TRUE(isTimecodeStringDropFrame(drop));
    for (const char* nd : {"01:00:00.00", "1:00:00;00", "     0;00", (const char*)nullptr})
        EXPECT_FALSE(isTimecodeStringDropFrame(nd)) << (nd ? nd : "null");
}

TEST(TimecodeRecord, WrapClampAndRoundTrip) {
    // Frame 0 is the day before; past the day's end is clamped.
    // clang-format off
    const std::tuple<int, short, short, const char*> rows[] = {
        {0, 25, 0, "23:59:59:24"}, {25 * 86400 + 1, 25, 0, "23:59:59:24"}, {0, 30, 1, "23:59:59;29"},
        {DropFrame::kFramesPerDay + 1, 30, 1, "23:59:59;29"}, {-1798, 30, 1, "23:59:00;02"}};
    // clang-format on
    for (const auto& [frame, rate, drop, expected] : rows)
        EXPECT_EQ(record(frame, rate, drop), expected) << frame;
    tc_addr tc{1, 2, 3, 4, 1};
    frames_to_tc(1234, &tc, 0, 1);
    EXPECT_TRUE(tcode_compare(tc, tc_addr{0, 0, 0, 0, 0}));
    const tc_addr hour{1, 0, 0, 0, 0};
    EXPECT_TRUE(tc_to_frames(&hour, 24, 0) == 86401 && tc_to_frames(&hour, 24, 1) == 107893);

    const tc_addr a{1, 2, 3, 4, 0};
    for (tc_addr b : {tc_addr{9, 2, 3, 4, 0}, tc_addr{1, 9, 3, 4, 0}, tc_addr{1, 2, 9, 4, 0},
                      tc_addr{1, 2, 3, 9, 0}, tc_addr{1, 2, 3, 4, 1}})
        EXPECT_FALSE(tcode_compare(a, b) || tcode_compare(b, a));
    EXPECT_TRUE(frames_to_tc(-1, FR25, 0, 0) == 1e99 && tc_to_frames(-1e99, FR25, 1, 0) == -1);  // unset time
    EXPECT_DOUBLE_EQ(frames_to_tc(-25, FR25, 0, 0), -(25 + 0.001) / 25 + 1e-6);
    EXPECT_DOUBLE_EQ(frames_to_tc(4, FR30, 1, 0), (5 + 0.001) / 30 + 1e-6);
    for (FrameRate rate : {FR24M, FR25, FR30M, FR12_5, FR240M})
        for (int n = -3000; n <= 3000; ++n)
            ASSERT_EQ(tc_to_frames(frames_to_tc(n, rate, 0, 0), rate, 0, 0), n) << rate;  // -1 (unset) too
    for (FrameRate rate : {FR30M, FR25})
        for (int phase = 0; phase < pd_film_cycle(rate); ++phase)
            for (int n = 0; n <= 3000; ++n)
                ASSERT_EQ(tc_to_frames(frames_to_tc(n, rate, 1, phase), rate, 1, phase), n) << rate << phase;
}

TEST(TimecodeSeconds, WallClockTextIsTheCLibraryForm) {
    for (unsigned t : {0u, 86399u, 951782400u, 1700000000u, 4294967295u}) {
        const std::time_t tt = t;
        const std::string full = std::asctime(std::localtime(&tt));
        EXPECT_TRUE(timeAsString(t, true) == Qv::widen(full.c_str())) << t;
        EXPECT_TRUE(timeAsString(t, false) == Qv::widen(full.substr(0, 16).c_str())) << t;
    }
}

TEST(StrictTimecode, AcceptsTheWrittenShapesAndSaysWhyNot) {
    // clang-format off
    const std::tuple<const char*, FrameRate, bool, bool> accepted[] = {
        {"01:02:03.12", FR25, false, false}, {"-00:00:01.13", FR25, false, false},
        {"00:01:00;02", FR30M, false, true}, {"00:01:00.02", FR30M, true, true}};
    const std::tuple<const char*, FrameRate, const char*> refused[] = {
        {"", FR25, "is empty"},                            {"1:2:3.4", FR25, "is not timecode"},
        {"24:00:00.00", FR25, "more than 23 hours"},       {"00:60:00.00", FR25, "more than 59 minutes"},
        {"00:00:00.25", FR25, "frame 25; frames run from 00 to 24"},
        {"00:01:00;01", FR30M, "does not exist in drop-frame"}, {"-00:00:01;00", FR30M, "no negative times"},
        {"00:00:01;00", FR25, "29.97 fps (30M), not 25"},  {"00:00:01.00", FR24D2, "no timecode of its own"},
        {"00:00:01.00", FR120, "pass two digits"}};
    // clang-format on
    for (const auto& [text, rate, drop, readAsDrop] : accepted) {
        const auto parsed = parseTimecodeString(text, rate, drop);
        ASSERT_TRUE(parsed.ok()) << text << ": " << parsed.refusal;
        EXPECT_EQ(parsed.value.dropFrame, readAsDrop) << text;
        EXPECT_EQ(parsed.value.seconds, string_to_tc(text, rate, readAsDrop)) << text;
    }
    for (const auto& [text, rate, refusal] : refused) {
        const auto parsed = parseTimecodeString(text, rate, false);
        EXPECT_NE(parsed.refusal.find(refusal), std::string::npos) << text << ": " << parsed.refusal;
    }
    EXPECT_EQ(stdoutOf([] { (void)parseTimecodeString("00:00:01.00", FRInvalid, false); }), "");
    EXPECT_TRUE(framesPerDay(FR25, false) == 25 * 86400 && framesPerDay(FR24D2, false) == 12 * 86400);
    EXPECT_EQ(framesPerDay(FR30M, true), DropFrame::kFramesPerDay);
}

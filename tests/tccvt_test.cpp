#include <ole/misc/tccvt.h>

#include <ole/misc/ProjectRate.h>
#include <ole/misc/filmgauge.h>

#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <ctime>
#include <string>

using namespace Qv;
using oletest::stdoutOf;

namespace {

const double kNtsc = 30 / 1.001;

std::string text(double seconds, FrameRate rate, bool drop = false, int flags = kTcFull) {
    char buffer[13] = "untouched";
    EXPECT_TRUE(tc_to_string(seconds, buffer, flags, rate, drop));
    return buffer;
}

tc_addr record(int frame, short rate, short drop) {
    tc_addr tc{-1, -1, -1, -1, -1};
    frames_to_tc(frame, &tc, rate, drop);
    return tc;
}

std::string fields(const tc_addr& tc) {
    char out[64];
    std::snprintf(out, sizeof out, "%02d:%02d:%02d%c%02d", tc.hours, tc.minutes, tc.seconds,
                  tc.dropFrame ? ';' : ':', tc.frames);
    return out;
}

}  // namespace

TEST(TimecodeText, EveryFlagCombination) {
    // Index = flags. Leading zero fields are left out unless their bit asks for them; once one field is
    // printed, the rest follow with two digits.
    const char* minuteTwo[16] = {"1:02.01", "00:01:02.01", "01:02.01", "00:01:02.01",
                                 "1:02.01", "00:01:02.01", "01:02.01", "00:01:02.01",
                                 "1:02.01", "00:01:02.01", "01:02.01", "00:01:02.01",
                                 "1:02.01", "00:01:02.01", "01:02.01", "00:01:02.01"};
    const char* secondsOnly[16] = {
        "3.01", "00:00:03.01", "00:03.01", "00:00:03.01", "03.01", "00:00:03.01", "00:03.01", "00:00:03.01",
        "3.01", "00:00:03.01", "00:03.01", "00:00:03.01", "03.01", "00:00:03.01", "00:03.01", "00:00:03.01"};
    const char* framesOnly[16] = {
        "",    "00:00:00.01", "00:00.01", "00:00:00.01", "00.01", "00:00:00.01", "00:00.01", "00:00:00.01",
        ".01", "00:00:00.01", "00:00.01", "00:00:00.01", "00.01", "00:00:00.01", "00:00.01", "00:00:00.01"};
    for (int flags = 0; flags < 16; ++flags) {
        SCOPED_TRACE(flags);
        EXPECT_EQ(text(62.04, FR25, false, flags), minuteTwo[flags]);
        EXPECT_EQ(text(3.04, FR25, false, flags), secondsOnly[flags]);
        EXPECT_EQ(text(0.04, FR25, false, flags), framesOnly[flags]);
    }
    EXPECT_EQ(text(3723.5, FR25), "01:02:03.12");
    EXPECT_EQ(text(3723.5, FR25, false, 0), "1:02:03.12");
    EXPECT_EQ(text(36000, FR25, false, 0), "10:00:00.00");
    EXPECT_EQ(text(600, FR25, false, 0), "10:00.00");
    EXPECT_EQ(text(10, FR25, false, 0), "10.00");
    EXPECT_EQ(text(3.48, FR25, false, 0), "3.12");
    EXPECT_EQ(text(0.0, FR25, false, 0), "");
    EXPECT_EQ(text(0.5, FR30M, true, kTcShowFrames), ";14");
    EXPECT_EQ(text(60.5, FR30M, true, 0), "1:00;15");
}

TEST(TimecodeText, RatesAndInvalidRate) {
    EXPECT_EQ(text(1.5, FR24), "00:00:01.12");
    EXPECT_EQ(text(1.5, FR60), "00:00:01.30");
    EXPECT_EQ(text(1.5, FR30M), "00:00:01.14");  // 1.5 s of 29.97 is 44.955 frames
    EXPECT_EQ(text(1.0, FR120), "00:00:01.00");

    char buffer[13] = "untouched";
    const std::string out =
        stdoutOf([&] { EXPECT_FALSE(tc_to_string(1.0, buffer, kTcFull, FRInvalid, false)); });
    EXPECT_EQ(out, "assertion failed tcRate != Qv::FRInvalid at ole/misc/tccvt line 23\n");
    EXPECT_STREQ(buffer, "untouched");
    // A non-drop rate without ticks cannot be split into digits either.
    stdoutOf([&] { EXPECT_FALSE(tc_to_string(1.0, buffer, kTcFull, FR48D2, false)); });
    EXPECT_STREQ(buffer, "untouched");
}

TEST(TimecodeText, DropFrameBoundaries) {
    struct Case {
        int frame;  // counted from 0
        const char* label;
    };
    const Case cases[] = {{0, "00:00:00;00"},       {1799, "00:00:59;29"},   {1800, "00:01:00;02"},
                          {1801, "00:01:00;03"},    {1827, "00:01:00;29"},   {1828, "00:01:01;00"},
                          {3597, "00:01:59;29"},    {3598, "00:02:00;02"},   {17981, "00:09:59;29"},
                          {17982, "00:10:00;00"},   {19781, "00:10:59;29"},  {19782, "00:11:00;02"},
                          {107891, "00:59:59;29"},  {107892, "01:00:00;00"}, {107892 + 1800, "01:01:00;02"},
                          {2589407, "23:59:59;29"}, {2589408, "24:00:00;00"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.label);
        EXPECT_EQ(text(c.frame / kNtsc, FR30M, true), c.label);
        EXPECT_NEAR(string_to_tc(c.label, FR30M, true) * kNtsc, c.frame, 1e-6);
        if (c.frame < DropFrame::kFramesPerDay) {
            const tc_addr tc = record(c.frame + 1, 30, 1);
            EXPECT_EQ(fields(tc), std::string(c.label).replace(2, 1, ":").replace(5, 1, ":"));
            EXPECT_EQ(tc_to_frames(&tc, 30, 1), c.frame + 1);
        }
    }
    // Labels that do not exist are not refused: they run into the minute before.
    EXPECT_NEAR(string_to_tc("00:01:00;00", FR30M, true) * kNtsc, 1798, 1e-6);
    EXPECT_NEAR(string_to_tc("00:01:00;01", FR30M, true) * kNtsc, 1799, 1e-6);
    const tc_addr missing{0, 1, 0, 0, 1};
    EXPECT_EQ(tc_to_frames(&missing, 30, 1), 1799);
    // Drop frame counts the 29.97 scheme whatever the rate says.
    EXPECT_EQ(text(1800 / 30.0, FR30, true), "00:01:00;02");
    EXPECT_NEAR(string_to_tc("00:01:00;02", FR30, true), 1800 / 30.0, 1e-9);
}

TEST(TimecodeText, NegativeTimes) {
    EXPECT_EQ(text(-62.0, FR25), "-00:01:02.00");
    EXPECT_EQ(text(-62.0, FR25, false, 0), "-1:02.00");
    EXPECT_EQ(text(-0.04, FR25, false, 0), "-");
    EXPECT_EQ(text(-1800 / kNtsc, FR30M, true), "-00:01:00;02");
    EXPECT_DOUBLE_EQ(string_to_tc("-00:01:02.00", FR25, false), -62.0);
    EXPECT_DOUBLE_EQ(string_to_tc("-00:00:00.05", FR25, false), -0.2);

    // The negative form is always read without dropped labels, and says so on the debug output.
    testing::internal::CaptureStderr();
    const double t = string_to_tc("-00:01:00;02", FR30M, true);
    const std::string debug = testing::internal::GetCapturedStderr();
    EXPECT_NEAR(t * kNtsc, -1802, 1e-6);
    EXPECT_NE(debug.find("string_to_tc: error negative timecode\n"), std::string::npos);
}

TEST(TimecodeText, ExactlyADay) {
    EXPECT_EQ(text(86400.0, FR25), "24:00:00.00");
    EXPECT_EQ(text(86400.04, FR25), "00:00:00.01");  // past the day it wraps
    EXPECT_EQ(text(90000.0, FR30), "01:00:00.00");
    EXPECT_EQ(text(DropFrame::kFramesPerDay / kNtsc, FR30M, true), "24:00:00;00");
    EXPECT_EQ(text((DropFrame::kFramesPerDay + DropFrame::kFramesPerHour) / kNtsc, FR30M, true),
              "25:00:00;00");
}

TEST(TimecodeText, ParsingIsLoose) {
    const double hour = string_to_tc("01:00:00:00", FR25, false);
    EXPECT_DOUBLE_EQ(hour, 3600.0);
    for (const char* same :
         {"01:00:00.00", "01:00:00;00", "01:00:00x00", " 01:00:00 00", "1:0:0.0", "+1: 0: 0. 0"})
        EXPECT_DOUBLE_EQ(string_to_tc(same, FR25, false), hour) << same;
    EXPECT_DOUBLE_EQ(string_to_tc("00:00:01.30", FR25, false), 2.2);  // fields are not range-checked
    for (const char* bad : {"", "abc", "01:00:00", "01:00:00.", "01-00-00.00", "01:00:00.x", "--"})
        EXPECT_EQ(string_to_tc(bad, FR25, false), 0.0) << bad;
    EXPECT_EQ(string_to_tc(nullptr, FR25, false), 0.0);
    EXPECT_DOUBLE_EQ(string_to_tc("00:00:10.00", TCInf{FR24, false}), 10.0);
    EXPECT_NEAR(string_to_tc("00:10:00;00", TCInf{FR30M, true}) * kNtsc, 17982, 1e-6);
    stdoutOf([] { EXPECT_EQ(string_to_tc("00:00:10.00", FR24F, false), 0.0); });
    // Huge fields must not overflow the arithmetic.
    string_to_tc("99999999999:99999999999:99999999999.99999999999", FR240, false);
    string_to_tc("-2147483648:-2147483648:-2147483648;-2147483648", FR30M, true);
}

TEST(TimecodeText, DropFrameStyleOfText) {
    EXPECT_TRUE(isTimecodeStringDropFrame("01:00:00;00"));
    EXPECT_TRUE(isTimecodeStringDropFrame("01:00:00,00"));
    EXPECT_TRUE(isTimecodeStringDropFrame("  01:00:00;00"));
    EXPECT_TRUE(isTimecodeStringDropFrame("01:00:00;"));
    EXPECT_FALSE(isTimecodeStringDropFrame("01:00:00.00"));
    EXPECT_FALSE(isTimecodeStringDropFrame("01:00:00:00"));
    EXPECT_FALSE(isTimecodeStringDropFrame("1:00:00;00"));  // the ninth character is a digit
    EXPECT_FALSE(isTimecodeStringDropFrame("01:00:0;"));    // too short
    EXPECT_FALSE(isTimecodeStringDropFrame("     0;00"));   // long enough, but short after the blanks
    EXPECT_FALSE(isTimecodeStringDropFrame(""));
    EXPECT_FALSE(isTimecodeStringDropFrame(nullptr));
}

TEST(TimecodeRecord, ConversionsAndWrap) {
    EXPECT_EQ(fields(record(1, 25, 0)), "00:00:00:00");
    EXPECT_EQ(fields(record(0, 25, 0)), "23:59:59:24");  // the day before
    EXPECT_EQ(fields(record(-24, 25, 0)), "23:59:59:00");
    EXPECT_EQ(fields(record(25 * 86400, 25, 0)), "23:59:59:24");
    EXPECT_EQ(fields(record(25 * 86400 + 1, 25, 0)), "23:59:59:24");  // clamped
    EXPECT_EQ(fields(record(30 * 86400 + 500, 30, 0)), "23:59:59:29");
    EXPECT_EQ(fields(record(0, 30, 1)), "23:59:59;29");  // past the day's end, then clamped
    EXPECT_EQ(fields(record(-1, 30, 1)), "23:59:59;29");
    EXPECT_EQ(fields(record(-1798, 30, 1)), "23:59:00;02");
    EXPECT_EQ(fields(record(DropFrame::kFramesPerDay + 1, 30, 1)), "23:59:59;29");
    const tc_addr zero = record(1234, 0, 1);
    EXPECT_TRUE(tcode_compare(zero, tc_addr{0, 0, 0, 0, 0}));

    const tc_addr start{0, 0, 0, 0, 0};
    EXPECT_EQ(tc_to_frames(&start, 25, 0), 1);
    EXPECT_EQ(tc_to_frames(&start, 30, 1), 1);
    const tc_addr hour{1, 0, 0, 0, 0};
    EXPECT_EQ(tc_to_frames(&hour, 24, 0), 86401);
    EXPECT_EQ(tc_to_frames(&hour, 24, 1), 107893);  // drop frame ignores the rate

    for (short rate : {24, 25, 30, 60}) {
        for (int frame = 1; frame < 200000; frame += 7) {
            const tc_addr tc = record(frame, rate, 0);
            ASSERT_EQ(tc_to_frames(&tc, rate, 0), frame);
            ASSERT_EQ(tc.dropFrame, 0);
        }
    }
}

TEST(TimecodeRecord, CompareIsEquality) {
    const tc_addr a{1, 2, 3, 4, 0};
    EXPECT_TRUE(tcode_compare(a, a));
    for (int field = 0; field < 5; ++field) {
        tc_addr b = a;
        int16_t* f[] = {&b.hours, &b.minutes, &b.seconds, &b.frames, &b.dropFrame};
        *f[field] += 1;
        EXPECT_FALSE(tcode_compare(a, b)) << field;
        EXPECT_FALSE(tcode_compare(b, a)) << field;
    }
}

TEST(TimecodeSeconds, FrameCountsRoundTrip) {
    EXPECT_EQ(frames_to_tc(-1, FR25, 0, 0), 1e99);
    EXPECT_EQ(tc_to_frames(1e99, FR25, 0, 0), -1);
    EXPECT_EQ(tc_to_frames(-1e99, FR25, 1, 0), -1);
    EXPECT_DOUBLE_EQ(frames_to_tc(25, FR25, 0, 0), (25 + 0.001) / 25 + 1e-6);
    EXPECT_DOUBLE_EQ(frames_to_tc(-25, FR25, 0, 0), -(25 + 0.001) / 25 + 1e-6);
    EXPECT_DOUBLE_EQ(frames_to_tc(4, FR30, 1, 0), (5 + 0.001) / 30 + 1e-6);

    for (FrameRate rate : {FR24, FR24M, FR25, FR30M, FR60M, FR12_5, FR240M}) {
        for (int n = -3000; n <= 3000; ++n) {
            if (n == -1) continue;  // the unset time
            ASSERT_EQ(tc_to_frames(frames_to_tc(n, rate, 0, 0), rate, 0, 0), n) << rate;
        }
    }
    for (FrameRate rate : {FR30, FR30M, FR25, FR50}) {
        for (int phase = 0; phase < pd_film_cycle(rate); ++phase)
            for (int n = 0; n <= 3000; ++n)
                ASSERT_EQ(tc_to_frames(frames_to_tc(n, rate, 1, phase), rate, 1, phase), n)
                    << rate << " " << phase;
    }
}

TEST(TimecodeSeconds, WallClockText) {
    const char* oldTz = std::getenv("TZ");
    const std::string saved = oldTz ? oldTz : "";
    setenv("TZ", "UTC", 1);
    tzset();
    EXPECT_TRUE(timeAsString(0, true) == L"Thu Jan  1 00:00:00 1970\n");
    EXPECT_TRUE(timeAsString(0, false) == L"Thu Jan  1 00:00");
    EXPECT_TRUE(timeAsString(1700000000u, false) == L"Tue Nov 14 22:13");
    // The same text as the C library's own form.
    for (unsigned t : {0u, 86399u, 951782400u, 1700000000u, 4294967295u}) {
        const std::time_t tt = t;
        const std::string expected = std::asctime(std::localtime(&tt));
        EXPECT_TRUE(timeAsString(t, true) ==
                    LightweightString<wchar_t>(std::wstring(expected.begin(), expected.end()).c_str()));
    }
    if (oldTz)
        setenv("TZ", saved.c_str(), 1);
    else
        unsetenv("TZ");
    tzset();
}

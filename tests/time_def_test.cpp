#include <ole/misc/time_def.h>

#include <ole/misc/StreamFile.h>
#include <ole/misc/strmable.h>

#include "support/StdoutCapture.h"
#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>
#include <tuple>
#include <utility>

using namespace Qv;
using oletest::stdoutOf;

TEST(TimeDef, ConstructorsLabelKindsAndTextForms) {
    const time_def parsed("00:01:00;02", TCInf{FR30M, true});
    EXPECT_DOUBLE_EQ(parsed.time, 1800 / (30 / 1.001));
    EXPECT_TRUE(parsed.rate == FR30M && parsed.dropFrame);
    EXPECT_DOUBLE_EQ(time_def("00:00:02.05", FR24, false).time, 2 + 5 / 24.0);

    // Label kind -> rate and drop flag; "00:00:01:10" is read at that kind.
    // clang-format off
    const std::tuple<int, FrameRate, bool, double> kinds[] = {
        {LABEL_EBU, FR25, false, 1.4},          {LABEL_SMPTE, FR30, false, 40 / 30.0},
        {LABEL_SMPTE_DROP, FR30, true, 40 / 30.0}, {LABEL_UNKNOWN, FR24, false, 34 / 24.0},
        {4, FR24, false, 34 / 24.0},            {8, FR24, false, 34 / 24.0}};
    // clang-format on
    for (const auto& [kind, rate, drop, seconds] : kinds) {
        const time_def t("00:00:01:10", label_t(kind));
        EXPECT_TRUE(t.rate == rate && t.dropFrame == drop) << kind;
        EXPECT_DOUBLE_EQ(t.time, seconds) << kind;
    }
    EXPECT_EQ(time_def(nullptr, LABEL_SMPTE_DROP).time, 0.0);

    // The text forms share static buffers.
    time_def pal(3723.5, FR25, false), ntsc(1800 / (30 / 1.001), FR30M, true), negative(-62.0, FR25, false),
        huge(1e99, FR30M, true), invalid(1.0, FRInvalid, false);
    char* first = pal.get_punctuated_str();
    EXPECT_STREQ(first, "01:02:03.12");
    EXPECT_EQ(ntsc.get_punctuated_str(), first);  // one buffer for all, overwritten by each call
    EXPECT_STREQ(first, "00:01:00;02");
    EXPECT_STREQ(pal.get_label_str(), "01020312");
    EXPECT_STREQ(ntsc.get_label_str(), "00010002");
    EXPECT_STREQ(negative.get_label_str(), "00010200");  // the minus sign is punctuation too

    std::string text;
    EXPECT_EQ(stdoutOf([&] { text = pal.get_database_str(); }),
              "assertion failed false at ole/misc/time_def line 135\n");
    EXPECT_EQ(text, "3723.500000 3 0");
    stdoutOf([&] { text = huge.get_database_str(); });
    EXPECT_EQ(text.size(), 99 + 7 + 4u);  // "%lf" of 1e99 is 99 digits and ".000000"; nothing is cut
    stdoutOf([&] { text = invalid.get_label_str(); });
    EXPECT_EQ(text, "");
}

TEST(TcField, TextLinesAndStreamForm) {
    const std::string path = oletest::makeTempDir("tc_field") + "/times.txt";
    {
        std::ofstream out(path);
        EXPECT_TRUE(tc_field(12.345678912).write(&out) && tc_field(-0.5).write(&out));
    }
    EXPECT_EQ(oletest::readFile(path), "12.34567891\n-0.50000000\n");
    oletest::writeFile(path, "12.34567891\nnot a time\n" + std::string(300, '7') + "\n");
    std::ifstream in(path);
    tc_field f;
    // A line that does not parse leaves the time alone; an overlong line is cut at 255 characters.
    for (double expected : {12.34567891, 12.34567891, std::stod(std::string(255, '7'))}) {
        EXPECT_TRUE(f.read(&in));
        EXPECT_DOUBLE_EQ(f.time, expected);
    }

    StreamFile file;
    PStream stream(&file);
    tc_field(1234.5).pack(stream), tc_field(-1e99).pack(stream);
    ASSERT_EQ(file.size(), 16u);
    double raw;
    std::memcpy(&raw, file.data(), 8);
    EXPECT_EQ(raw, 1234.5);  // the plain 8-byte double
    file.seek(0);
    // The third read finds nothing left: flagged, time kept.
    for (const auto& [version, expected] : {std::pair<int, double>{0, 1234.5}, {7, -1e99}, {0, -1e99}}) {
        f.unpack(stream, version);
        EXPECT_EQ(f.time, expected);
    }
    EXPECT_NE(stream.error(), 0);
}

#include <ole/misc/time_def.h>

#include <ole/misc/StreamFile.h>
#include <ole/misc/strmable.h>

#include "support/StdoutCapture.h"
#include "support/TestHome.h"

#include <gtest/gtest.h>

#include <cstring>
#include <fstream>
#include <string>

using namespace Qv;
using oletest::stdoutOf;

TEST(TimeDef, ConstructorsTakeTheKindGiven) {
    const time_def a(12.5, FR30M, true);
    EXPECT_EQ(a.time, 12.5);
    EXPECT_EQ(a.rate, FR30M);
    EXPECT_TRUE(a.dropFrame);

    const time_def b("00:00:02.05", FR24, false);
    EXPECT_DOUBLE_EQ(b.time, 2 + 5 / 24.0);
    EXPECT_EQ(b.rate, FR24);

    const time_def c("00:01:00;02", TCInf{FR30M, true});
    EXPECT_DOUBLE_EQ(c.time, 1800 / (30 / 1.001));
    EXPECT_TRUE(c.dropFrame);

    const time_def d(3.0, TCInf{FR50, false});
    EXPECT_EQ(d.rate, FR50);
    EXPECT_FALSE(d.dropFrame);

    time_def e(1.0, FR25, false);
    e.set(2.0, FR60M, true);
    EXPECT_EQ(e.time, 2.0);
    EXPECT_EQ(e.rate, FR60M);
    EXPECT_TRUE(e.dropFrame);
}

TEST(TimeDef, LabelKinds) {
    struct Case {
        int kind;
        FrameRate rate;
        bool drop;
        double seconds;  // of "00:00:01:10"
    };
    const Case cases[] = {{LABEL_EBU, FR25, false, 1.4},
                          {LABEL_SMPTE, FR30, false, 40 / 30.0},
                          {LABEL_SMPTE_DROP, FR30, true, 40 / 30.0},
                          {LABEL_UNKNOWN, FR24, false, 34 / 24.0},
                          {4, FR24, false, 34 / 24.0},
                          {8, FR24, false, 34 / 24.0},
                          {-1, FR24, false, 34 / 24.0}};
    for (const Case& c : cases) {
        const time_def t("00:00:01:10", label_t(c.kind));
        EXPECT_EQ(t.rate, c.rate) << c.kind;
        EXPECT_EQ(t.dropFrame, c.drop) << c.kind;
        EXPECT_DOUBLE_EQ(t.time, c.seconds) << c.kind;
    }
    const time_def none(nullptr, LABEL_SMPTE_DROP);
    EXPECT_EQ(none.time, 0.0);
    EXPECT_EQ(none.rate, FR30);
    EXPECT_TRUE(none.dropFrame);
}

TEST(TimeDef, TextFormsShareStaticBuffers) {
    time_def pal(3723.5, FR25, false);
    time_def ntsc(1800 / (30 / 1.001), FR30M, true);
    char* first = pal.get_punctuated_str();
    EXPECT_STREQ(first, "01:02:03.12");
    char* second = ntsc.get_punctuated_str();
    EXPECT_EQ(first, second);  // one buffer for all, overwritten by each call
    EXPECT_STREQ(first, "00:01:00;02");

    EXPECT_STREQ(pal.get_label_str(), "01020312");
    EXPECT_STREQ(ntsc.get_label_str(), "00010002");
    time_def negative(-62.0, FR25, false);
    EXPECT_STREQ(negative.get_label_str(), "00010200");  // the minus sign is punctuation too
    EXPECT_NE(static_cast<void*>(pal.get_label_str()), static_cast<void*>(pal.get_punctuated_str()));

    std::string out = stdoutOf([&] { EXPECT_STREQ(pal.get_database_str(), "3723.500000 3 0"); });
    EXPECT_EQ(out, "assertion failed false at ole/misc/time_def line 135\n");
    time_def huge(1e99, FR30M, true);
    std::string hugeText;
    stdoutOf([&] { hugeText = huge.get_database_str(); });
    EXPECT_EQ(hugeText.size(), 99 + 7 + 4u);  // 1e99 as a double has 99 digits; nothing is cut
    EXPECT_EQ(hugeText.substr(hugeText.size() - 11), ".000000 5 1");

    time_def invalid(1.0, FRInvalid, false);
    out = stdoutOf([&] {
        EXPECT_STREQ(invalid.get_punctuated_str(), "");
        EXPECT_STREQ(invalid.get_label_str(), "");
    });
    EXPECT_EQ(out,
              "assertion failed tcRate != Qv::FRInvalid at ole/misc/tccvt line 23\n"
              "assertion failed tcRate != Qv::FRInvalid at ole/misc/tccvt line 23\n");
}

TEST(TcField, TextLines) {
    const std::string path = oletest::makeTempDir("tc_field") + "/times.txt";
    {
        std::ofstream out(path);
        tc_field a(12.345678912), b(-0.5);
        EXPECT_TRUE(a.write(&out));
        EXPECT_TRUE(b.write(&out));
    }
    EXPECT_EQ(oletest::readFile(path), "12.34567891\n-0.50000000\n");

    oletest::writeFile(path, "12.34567891\n-0.5\nnot a time\n" + std::string(300, '7') + "\n");
    std::ifstream in(path);
    tc_field f;
    EXPECT_TRUE(f.read(&in));
    EXPECT_DOUBLE_EQ(f.time, 12.34567891);
    EXPECT_TRUE(f.read(&in));
    EXPECT_EQ(f.time, -0.5);
    EXPECT_TRUE(f.read(&in));
    EXPECT_EQ(f.time, -0.5);   // a line that does not parse leaves the time alone
    EXPECT_TRUE(f.read(&in));  // an overlong line is cut at 255 characters
    EXPECT_DOUBLE_EQ(f.time, std::stod(std::string(255, '7')));
}

TEST(TcField, StreamForm) {
    StreamFile file;
    PStream stream(&file);
    tc_field(1234.5).pack(stream);
    tc_field(-1e99).pack(stream);
    ASSERT_EQ(file.size(), 16u);
    double raw;
    std::memcpy(&raw, file.data(), 8);
    EXPECT_EQ(raw, 1234.5);  // the plain 8-byte double

    file.seek(0);
    tc_field f;
    f.unpack(stream, 0);
    EXPECT_EQ(f.time, 1234.5);
    EXPECT_EQ(stream.position(), 8u);
    f.unpack(stream, 7);
    EXPECT_EQ(f.time, -1e99);
    f.unpack(stream, 0);  // nothing left
    EXPECT_EQ(f.time, -1e99);
    EXPECT_NE(stream.error(), 0);
}

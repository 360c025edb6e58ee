#include <ole/misc/outputformat.h>

#include <platform/Strings.h>

#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

#include <vector>

using namespace OutputFormat;
using namespace Qv;
using oletest::stdoutOf;

namespace {

struct Row {
    int type;
    const wchar_t* label;
    unsigned width, height;
    int aspect;
    FrameRate rate;
    int scan;
    unsigned id;
};

// clang-format off
const Row kRows[] = {
    {1, L"4:3", 720, 576, 1, FR25, 1, 3},            {1, L"16:9", 720, 576, 2, FR25, 1, 3},
    {2, L"4:3", 720, 486, 1, FR30M, 2, 15},          {2, L"16:9", 720, 486, 2, FR30M, 2, 15},
    {3, L"23.98fps", 1280, 720, 2, FR24M, 3, 27},    {3, L"24fps", 1280, 720, 2, FR24, 3, 27},
    {3, L"25fps", 1280, 720, 2, FR25, 3, 27},        {3, L"50fps", 1280, 720, 2, FR50, 3, 27},
    {3, L"59.94fps", 1280, 720, 2, FR60M, 3, 27},    {3, L"60.0fps", 1280, 720, 2, FR60, 3, 27},
    {3, L"29.97fps", 1280, 720, 2, FR30M, 3, 27},    {3, L"30.0fps", 1280, 720, 2, FR30, 3, 27},
    {4, L"25fps", 1920, 1080, 2, FR25, 1, 28},       {4, L"29.97fps", 1920, 1080, 2, FR30M, 1, 28},
    {4, L"30fps", 1920, 1080, 2, FR30, 1, 28},       {6, L"23.98fps", 1920, 1080, 2, FR24M, 4, 28},
    {6, L"24fps", 1920, 1080, 2, FR24, 4, 28},       {6, L"25fps", 1920, 1080, 2, FR25, 4, 28},
    {6, L"29.97fps", 1920, 1080, 2, FR30M, 4, 28},   {6, L"30fps", 1920, 1080, 2, FR30, 4, 28},
    {6, L"48fps", 1920, 1080, 2, FR48, 4, 28},       {5, L"50fps", 1920, 1080, 2, FR50, 3, 28},
    {5, L"59.94fps", 1920, 1080, 2, FR60M, 3, 28},   {7, L"24fps", 2048, 1536, 4, FR24, 4, 110},
    {8, L"24fps", 1828, 1332, 5, FR24, 4, 111},      {9, L"24fps", 2048, 858, 8, FR24, 4, 112},
    {10, L"24fps", 1998, 1080, 7, FR24, 4, 113},     {11, L"23.98fps", 3840, 2160, 2, FR24M, 4, 73},
    {11, L"24fps", 3840, 2160, 2, FR24, 4, 73},      {11, L"25fps", 3840, 2160, 2, FR25, 4, 73},
    {11, L"29.97fps", 3840, 2160, 2, FR30M, 4, 73},  {11, L"30fps", 3840, 2160, 2, FR30, 4, 73},
};
// clang-format on

std::vector<unsigned> allowedFor(FrameRate projectRate) {
    std::vector<unsigned> rows;
    getAllowedOutputFormatsForProjectFrameRate(projectRate, rows);
    return rows;
}

}  // namespace

TEST(OutputFormats, EveryRowAndItsPersistableString) {
    ASSERT_EQ(getNumFormats(), 32u);
    ASSERT_EQ(sizeof(kRows) / sizeof(kRows[0]), 32u);
    const Details* table = getSupportedFormats();
    EXPECT_EQ(table, getSupportedFormats());  // built once
    for (unsigned i = 0; i < 32; ++i) {
        SCOPED_TRACE(i);
        const Details& d = getFormat(i);
        const Row& r = kRows[i];
        EXPECT_EQ(&d, &table[i]);
        EXPECT_EQ(d.type(), r.type);
        EXPECT_TRUE(d.label() == r.label);
        EXPECT_EQ(d.width(), r.width);
        EXPECT_EQ(d.height(), r.height);
        EXPECT_EQ(d.bitsPerComponent(), 8);
        EXPECT_EQ(d.aspect(), r.aspect);
        EXPECT_EQ(d.frameRate(), r.rate);
        EXPECT_EQ(d.scanMode(), r.scan);
        EXPECT_EQ(d.videoFormat(), r.id);

        // Text -> format -> text gives the same row and the same text.
        const LightweightString<char> text = d.getPersistableString();
        const Details back(text);
        EXPECT_TRUE(back == d);
        EXPECT_TRUE(back.getPersistableString() == text);
    }
    EXPECT_STREQ(getFormat(0).getPersistableString().c_str(), "1|0|1|720|576|8|1|3|4:3");
    EXPECT_STREQ(getFormat(27).getPersistableString().c_str(), "11|0|4|3840|2160|8|2|2|23.98fps");
    EXPECT_TRUE(getFormat(12).getDisplayString() == L"1080i 25fps");
}

TEST(OutputFormats, TypeNames) {
    const wchar_t* names[] = {L"PAL",           L"NTSC",          L"720p",          L"1080i",
                              L"1080p",         L"1080p (sf)",    L"2k full frame", L"2k Academy",
                              L"2k DCI 2.39:1", L"2k DCI 1.85:1", L"UltraHD",       L"4k full frame",
                              L"4k Academy",    L"4k DCI 2.39:1", L"4k DCI 1.85:1"};
    for (int t = 1; t <= 15; ++t) {
        EXPECT_TRUE(getDisplayString(Type(t)) == names[t - 1]) << t;
        EXPECT_EQ(isSD(Type(t)), t <= 2) << t;
    }
    EXPECT_TRUE(getDisplayString(Type(0)).empty());
    EXPECT_TRUE(getDisplayString(Type(16)).empty());
}

TEST(OutputFormats, BadIndexGivesTheFirstRow) {
    const Details* got = nullptr;
    std::string out = stdoutOf([&] { got = &getFormat(32); });
    EXPECT_EQ(out, "assertion failed false at ole/misc/outputformat line 489\n");
    EXPECT_EQ(got, &getFormat(0));
    stdoutOf([&] { got = &getFormat(~0u); });
    EXPECT_EQ(got, &getFormat(0));
}

TEST(OutputFormats, InterlacedRowsAndConsistencyChecks) {
    const std::string out = stdoutOf([] {
        for (unsigned i = 0; i < 32; ++i) {
            const bool expected = i <= 3 || (i >= 12 && i <= 14);
            EXPECT_EQ(getFormat(i).isInterlaced(), expected) << i;
        }
    });
    EXPECT_EQ(out, "");  // no table row contradicts its type

    const Details interlaced720(SevenTwentyP, L"x", 1280, 720, 8, Image::Aspect16x9, FR50,
                                Image::InterlacedUpperFirst, 27);
    std::string line = stdoutOf([&] { EXPECT_TRUE(interlaced720.isInterlaced()); });
    EXPECT_EQ(
        line,
        "assertion failed type_ == Pal || type_ == Ntsc || type_ == TenEightyI at ole/misc/outputformat "
        "line 103\n");
    const Details progressivePal(Pal, L"x", 720, 576, 8, Image::Aspect4x3, FR25, Image::Progressive, 3);
    line = stdoutOf([&] { EXPECT_FALSE(progressivePal.isInterlaced()); });
    EXPECT_EQ(
        line,
        "assertion failed type_ != Pal && type_ != Ntsc && type_ != TenEightyI at ole/misc/outputformat "
        "line 107\n");
}

TEST(OutputFormats, ThreeAcceptedTextForms) {
    Details d;
    // Ten fields: a non-zero identifier is kept, zero means the type's own.
    ASSERT_TRUE(d.fromPersistableString("4|0|1|1920|1080|10|2|4|30fps|99"));
    EXPECT_EQ(d.type(), TenEightyI);
    EXPECT_EQ(d.bitsPerComponent(), 10);
    EXPECT_EQ(d.frameRate(), FR30);
    EXPECT_TRUE(d.label() == L"30fps");
    EXPECT_EQ(d.videoFormat(), 99u);
    ASSERT_TRUE(d.fromPersistableString("4|0|1|1920|1080|10|2|4|30fps|0"));
    EXPECT_EQ(d.videoFormat(), 28u);
    // Nine fields; the label may hold anything but "|".
    ASSERT_TRUE(d.fromPersistableString("11|0|4|3840|2160|8|2|1|24 fps (\xc3\xa9t\xc3\xa9)"));
    EXPECT_TRUE(d.label() == L"24 fps (\u00e9t\u00e9)");
    EXPECT_EQ(d.videoFormat(), 73u);
    EXPECT_STREQ(d.getPersistableString().c_str(), "11|0|4|3840|2160|8|2|1|24 fps (\xc3\xa9t\xc3\xa9)");
    // Eight numeric fields: no label.
    ASSERT_TRUE(d.fromPersistableString("7|0|4|2048|1536|8|4|1"));
    EXPECT_TRUE(d.label().empty());
    EXPECT_EQ(d.videoFormat(), 110u);
    ASSERT_TRUE(d.fromPersistableString("2|0|2|720|486|8|1|5|"));
    EXPECT_EQ(d.videoFormat(), 15u);

    // Nothing else is accepted, and a refused text changes nothing.
    const Details before = d;
    for (const char* bad : {"", "garbage", "1|0|1|720|576|8|1", "1|0|1|720|576|8|1|x", "1,0,1,720,576,8,1,3",
                            "1|0|1|720||576|8|1|3"}) {
        EXPECT_FALSE(d.fromPersistableString(bad)) << bad;
        EXPECT_TRUE(d == before) << bad;
    }
    const Details fromBad(LightweightString<char>("nonsense"));
    EXPECT_EQ(fromBad.type(), 0);
    EXPECT_EQ(fromBad.frameRate(), FRInvalid);
}

TEST(OutputFormats, AllowedFormatsForEachProjectRate) {
    using V = std::vector<unsigned>;
    EXPECT_EQ(allowedFor(FR24), (V{4, 5, 15, 16, 23, 24, 25, 26, 27, 28}));
    EXPECT_EQ(allowedFor(FR25), (V{0, 1, 6, 12, 17, 29}));
    EXPECT_EQ(allowedFor(FR30), (V{2, 3, 10, 11, 13, 14, 18, 19, 30, 31}));
    EXPECT_EQ(allowedFor(FR48), (V{20}));
    EXPECT_EQ(allowedFor(FR50), (V{0, 1, 7, 12, 21}));  // interlaced 25 carries 50 fields a second
    EXPECT_EQ(allowedFor(FR60), (V{2, 3, 8, 9, 13, 14, 22}));
    // Any rate is first taken to its project rate.
    EXPECT_EQ(allowedFor(FR30M), allowedFor(FR30));
    EXPECT_EQ(allowedFor(FR12_5), allowedFor(FR25));
    EXPECT_EQ(allowedFor(FRInvalid), allowedFor(FR24));

    V rows{99};
    getAllowedOutputFormatsForProjectFrameRate(FR48, rows);
    EXPECT_EQ(rows, (V{99, 20}));  // appended
    EXPECT_FALSE(isOutputRateAllowedForProjectFrameRate(SevenTwentyP, FR25, FR50));
    EXPECT_TRUE(isOutputRateAllowedForProjectFrameRate(TenEightyI, FR30M, FR60M));
}

#include <ole/misc/outputformat.h>

#include <ole/misc/ProjectRate.h>
#include <ole/runtime/Strings.h>

#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

#include <cwchar>
#include <tuple>
#include <utility>
#include <vector>

using namespace OutputFormat;
using namespace Qv;
using oletest::stdoutOf;

namespace {

// What each type's rows share: display name, size, aspect (of the 16:9 row for SD), scan mode, identifier.
// clang-format off
const std::tuple<const wchar_t*, unsigned, unsigned, int, int, unsigned> kTypes[] = {
    {L"PAL", 720, 576, 2, 1, 3},              {L"NTSC", 720, 486, 2, 2, 15},
    {L"720p", 1280, 720, 2, 3, 27},           {L"1080i", 1920, 1080, 2, 1, 28},
    {L"1080p", 1920, 1080, 2, 3, 28},         {L"1080p (sf)", 1920, 1080, 2, 4, 28},
    {L"2k full frame", 2048, 1536, 4, 4, 110}, {L"2k Academy", 1828, 1332, 5, 4, 111},
    {L"2k DCI 2.39:1", 2048, 858, 8, 4, 112},  {L"2k DCI 1.85:1", 1998, 1080, 7, 4, 113},
    {L"UltraHD", 3840, 2160, 2, 4, 73}};
const int kRowTypes[32] = {1, 1, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3, 4, 4, 4, 6, 6, 6, 6, 6, 6, 5, 5, 7, 8, 9, 10, 11, 11, 11, 11, 11};
const int kRowRates[32] = {3, 3, 5, 5, 2, 1, 3, 8, 10, 9, 5, 4, 3, 5, 4, 2, 1, 3, 5, 4, 6, 8, 10, 1, 1, 1, 1, 2, 1, 3, 5, 4};
// clang-format on

std::vector<unsigned> allowedFor(FrameRate projectRate) {
    std::vector<unsigned> rows;
    getAllowedOutputFormatsForProjectFrameRate(projectRate, rows);
    return rows;
}

}  // namespace

TEST(OutputFormats, EveryRowItsPersistableStringAndAssertionLines) {
    ASSERT_EQ(getNumFormats(), 32u);
    for (unsigned i = 0; i < 32; ++i) {
        SCOPED_TRACE(i);
        const Details& d = getFormat(i);
        ASSERT_TRUE(&d == getSupportedFormats() + i && d.type() == kRowTypes[i]);
        EXPECT_EQ(d.frameRate(), kRowRates[i]);
        const auto& [name, width, height, aspect, scan, id] = kTypes[d.type() - 1];
        EXPECT_TRUE(getDisplayString(d.type()) == name && d.scanMode() == scan && d.videoFormat() == id);
        EXPECT_TRUE(d.width() == width && d.height() == height && d.bitsPerComponent() == 8);
        EXPECT_EQ(stdoutOf([&] { EXPECT_EQ(d.isInterlaced(), i <= 3 || (i >= 12 && i <= 14)); }), "");
        const Details back(d.getPersistableString());
        EXPECT_TRUE(back == d && back.getPersistableString() == d.getPersistableString());
        // SD rows are labelled by their aspect; the others by their rate, which the label must match.
        EXPECT_EQ(d.aspect(), isSD(d.type()) ? (i % 2 ? 2 : 1) : aspect);
        EXPECT_TRUE(isSD(d.type()) ? d.label() == (i % 2 ? L"16:9" : L"4:3") : endsWith(d.label(), L"fps"));
        if (isSD(d.type())) continue;
        EXPECT_NEAR(std::wcstod(d.label().c_str(), nullptr), getFramesPerSecond(d.frameRate()), 0.005);
    }
    EXPECT_TRUE(getFormat(9).label() == L"60.0fps" && getFormat(11).label() == L"30.0fps");
    EXPECT_TRUE(getFormat(14).label() == L"30fps" && getFormat(31).label() == L"30fps");  // kept as given
    EXPECT_STREQ(getFormat(0).getPersistableString().c_str(), "1|0|1|720|576|8|1|3|4:3");
    EXPECT_TRUE(getDisplayString(FourKDCI185) == L"4k DCI 1.85:1" && getDisplayString(Type(16)).empty());

    EXPECT_EQ(stdoutOf([] { EXPECT_EQ(&getFormat(32), &getFormat(0)); }),
              "assertion failed false at ole/misc/outputformat line 489\n");

    const Details interlaced720(SevenTwentyP, L"x", 1280, 720, 8, Image::Aspect16x9, FR50,
                                Image::InterlacedUpperFirst, 27);
    EXPECT_EQ(stdoutOf([&] { EXPECT_TRUE(interlaced720.isInterlaced()); }),
              "assertion failed type_ == Pal || type_ == Ntsc || type_ == TenEightyI at "
              "ole/misc/outputformat line 103\n");
    const Details progressivePal(Pal, L"x", 720, 576, 8, Image::Aspect4x3, FR25, Image::Progressive, 3);
    EXPECT_EQ(stdoutOf([&] { EXPECT_FALSE(progressivePal.isInterlaced()); }),
              "assertion failed type_ != Pal && type_ != Ntsc && type_ != TenEightyI at "
              "ole/misc/outputformat line 107\n");
}

TEST(OutputFormats, TextFormsStrictReadingAndAllowedRows) {
    Details d;
    ASSERT_TRUE(d.fromPersistableString("4|0|1|1920|1080|10|2|4|30fps|99"));  // the identifier is kept
    EXPECT_TRUE(d.type() == TenEightyI && d.bitsPerComponent() == 10 && d.videoFormat() == 99);
    ASSERT_TRUE(d.fromPersistableString("4|0|1|1920|1080|10|2|4|30fps|0"));  // zero: the type's own
    EXPECT_EQ(d.videoFormat(), 28u);
    ASSERT_TRUE(d.fromPersistableString("11|0|4|3840|2160|8|2|1|24 fps (\xc3\xa9t\xc3\xa9)"));  // nine fields
    EXPECT_TRUE(d.label() == L"24 fps (\u00e9t\u00e9)" && d.videoFormat() == 73);
    ASSERT_TRUE(d.fromPersistableString("7|0|4|2048|1536|8|4|1"));  // eight numbers, no label
    EXPECT_TRUE(d.label().empty() && d.videoFormat() == 110);

    const Details before = d;
    for (const char* bad : {"", "garbage", "1|0|1|720|576|8|1", "1|0|1|720|576|8|1|x", "1,0,1,720,576,8,1,3"})
        EXPECT_TRUE(!d.fromPersistableString(bad) && d == before) << bad;
    EXPECT_EQ(Details(LightweightString<char>("nonsense")).frameRate(), FRInvalid);

    // The strict reader takes only the written forms, each field within its domain (null: accepted).
    const std::pair<const char*, const char*> rows[] = {
        {"4|0|1|1920|1080|8|2|3|25fps", nullptr},     {"4|0|1|1920|1080|8|2|3|25fps|28", nullptr},
        {"4|0|1|1920|1080|8|2|3", nullptr},           {"4|0|1|01920|1080|8|2|3|25fps", "not an output"},
        {"4|0|1|1920|1080|8|2|3|25fps|x", "not an"},  {"16|0|1|1920|1080|8|2|3|x", "format type 16"},
        {"4|0|9|1920|1080|8|2|3|x", "scan mode 9"},   {"4|0|1|-1920|1080|8|2|3|x", "width of -1920"},
        {"4|0|1|0|0|8|2|3|x", "width of 0"},          {"4|0|1|1920|1080|0|2|3|x", "depth of 0"},
        {"4|0|1|1920|1080|8|9|3|x", "aspect code 9"}, {"4|0|1|1920|1080|8|2|48|x", "frame rate 48"}};
    for (const auto& [text, refusal] : rows) {
        const Parsed<Details> parsed = Details::parse(text);
        EXPECT_EQ(parsed.ok(), refusal == nullptr) << text << ": " << parsed.refusal;
        EXPECT_TRUE(!refusal || parsed.refusal.find(refusal) != std::string::npos) << parsed.refusal;
    }
    EXPECT_TRUE(Details::parse("4|0|1|1920|1080|8|2|3|25fps").value == getFormat(12));

    using V = std::vector<unsigned>;  // allowed rows per project rate
    EXPECT_EQ(allowedFor(FR24), (V{4, 5, 15, 16, 23, 24, 25, 26, 27, 28}));
    EXPECT_EQ(allowedFor(FR25), (V{0, 1, 6, 12, 17, 29}));
    EXPECT_EQ(allowedFor(FR30), (V{2, 3, 10, 11, 13, 14, 18, 19, 30, 31}));
    EXPECT_EQ(allowedFor(FR48), (V{20}));
    EXPECT_EQ(allowedFor(FR50), (V{0, 1, 7, 12, 21}));  // interlaced 25 carries 50 fields a second
    EXPECT_EQ(allowedFor(FR60), (V{2, 3, 8, 9, 13, 14, 22}));
    EXPECT_EQ(allowedFor(FR30M), allowedFor(FR30));  // any rate counts as its project rate
    EXPECT_EQ(allowedFor(FRInvalid), allowedFor(FR24));
    V appended{99};
    getAllowedOutputFormatsForProjectFrameRate(FR48, appended);
    EXPECT_EQ(appended, (V{99, 20}));
}

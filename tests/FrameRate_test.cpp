#include <ole/misc/FrameRate.h>

#include <ole/runtime/Strings.h>

#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

using namespace Qv;
using oletest::stdoutOf;

TEST(FrameRateText, EveryRateReadsBackFromItsTexts) {
    for (int value = 1; value <= 47; ++value) {
        SCOPED_TRACE(value);
        const FrameRate rate = FrameRate(value);
        // Persistable strings are unique: text -> rate -> text is exact.
        const LightweightString<char> persistable = getPersistableString(rate);
        EXPECT_EQ(getFrameRateFromPersistableString(persistable), rate);
        // Display strings repeat: they read back to the lowest rate that shows the same text.
        const LightweightString<wchar_t> display = getDisplayString(rate);
        const FrameRate back = getFrameRateFromDisplayString(display);
        EXPECT_LE(back, rate);
        EXPECT_TRUE(getDisplayString(back) == display);
        for (int lower = 1; lower < back; ++lower)
            EXPECT_FALSE(getDisplayString(FrameRate(lower)) == display);
        EXPECT_FALSE(getPlainString(rate).empty());
    }
    // Texts that look wrong and are kept as they are.
    EXPECT_STREQ(getPersistableString(FR12_5).c_str(), "12.5");
    EXPECT_STREQ(getPersistableString(FR48MD3).c_str(), "48MD3");
    EXPECT_TRUE(getDisplayString(FR50D3) == L"15.67 fps");
    EXPECT_TRUE(getDisplayString(FR30MD2) == L"14.98 fps");
    EXPECT_TRUE(getDisplayString(FR15M) == L"14.99 fps");
    EXPECT_STREQ(getPlainString(FR240M).c_str(), "23976");
    EXPECT_STREQ(getPlainString(FR120M).c_str(), "11988");
    EXPECT_STREQ(getPlainString(FR25F).c_str(), "24");
    EXPECT_TRUE(getDisplayString(FR48F) == resourceStrW(10007));
}

TEST(FrameRateText, RepeatedDisplayStringsReadAsTheLowestRate) {
    EXPECT_EQ(getFrameRateFromDisplayString(L"24 fps"), FR24);
    EXPECT_EQ(getFrameRateFromDisplayString(L"23.98 fps"), FR24M);
    EXPECT_EQ(getFrameRateFromDisplayString(L"12 fps"), FR24D2);
    EXPECT_EQ(getFrameRateFromDisplayString(L"20 fps"), FR60D3);
    EXPECT_EQ(getFrameRateFromDisplayString(resourceStrW(10007)), FR24F);
}

TEST(FrameRateText, UnknownTextAndValues) {
    // Persistable text is matched exactly and silently.
    EXPECT_EQ(stdoutOf([] {
                  for (const char* bad : {"30m", " 30M", "30M ", "", "0"})
                      EXPECT_EQ(getFrameRateFromPersistableString(bad), FRInvalid) << bad;
              }),
              "");
    const std::string notFound = "assertion failed cr != FRInvalid at ole/misc/FrameRate line 227\n";
    EXPECT_EQ(stdoutOf([] { EXPECT_EQ(getFrameRateFromDisplayString(L"24fps"), FRInvalid); }), notFound);
    EXPECT_EQ(stdoutOf([] { EXPECT_EQ(getFrameRateFromDisplayString(L""), FRInvalid); }), notFound);

    for (FrameRate bad : {FRInvalid, FrameRate(48), FrameRate(-1)}) {
        EXPECT_TRUE(getDisplayString(bad) == resourceStrW(10007));
        EXPECT_STREQ(getPlainString(bad).c_str(), "24");
        EXPECT_EQ(stdoutOf([bad] { EXPECT_TRUE(getPersistableString(bad).empty()); }),
                  "assertion failed rate == FR24 at ole/misc/FrameRate line 133\n");
    }
}

TEST(FrameRateStrict, ReadsEveryTextFormAndKnowsTheFactsQuietly) {
    const struct {
        const char* text;
        FrameRate rate;
    } rows[] = {{"30M", FR30M},         {"29.97 fps", FR30M}, {"29.97", FR30M},   {"24 fps", FR24},
                {"12", FR12},           {"12.5", FR12_5},     {"12 fps", FR24D2}, {"30m", FRInvalid},
                {"29.97 f", FRInvalid}, {" fps", FRInvalid},  {"", FRInvalid},    {"24F", FR24F}};
    for (const auto& r : rows) {
        const Parsed<FrameRate> parsed = parseFrameRate(r.text);
        EXPECT_EQ(parsed.value, r.rate) << r.text;
        EXPECT_EQ(parsed.ok(), r.rate != FRInvalid) << r.text;
    }
    EXPECT_EQ(stdoutOf([] {
                  for (int r = -1; r <= kLastFrameRate + 1; ++r) {
                      const bool ticks = rateHasTicks(FrameRate(r)), fps = rateHasTrueFps(FrameRate(r));
                      EXPECT_EQ(ticks, (r >= 1 && r <= 10) || (r >= 35 && r <= 47 && r != FR12_5)) << r;
                      EXPECT_EQ(fps, r >= 1 && r <= 47 && (r < FR24F || r > FR48F)) << r;
                  }
              }),
              "");
}

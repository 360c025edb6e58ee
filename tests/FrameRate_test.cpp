#include <ole/misc/FrameRate.h>

#include <ole/runtime/Strings.h>

#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

#include <tuple>
#include <utility>

using namespace Qv;
using oletest::stdoutOf;

TEST(FrameRateText, EveryRateReadsBackFromItsTexts) {
    for (int value = 1; value <= 47; ++value) {
        SCOPED_TRACE(value);
        const FrameRate rate = FrameRate(value);
        // Persistable texts are unique; display texts read back to the lowest rate showing the same text.
        EXPECT_EQ(getFrameRateFromPersistableString(getPersistableString(rate)), rate);
        const LightweightString<wchar_t> display = getDisplayString(rate);
        const FrameRate back = getFrameRateFromDisplayString(display);
        EXPECT_LE(back, rate);
        EXPECT_TRUE(getDisplayString(back) == display);
        for (int lower = 1; lower < back; ++lower)
            EXPECT_FALSE(getDisplayString(FrameRate(lower)) == display);
        EXPECT_FALSE(getPlainString(rate).empty());
    }
    // Texts that look wrong and are kept as they are; repeated display texts read as the lowest rate.
    EXPECT_STREQ(getPersistableString(FR12_5).c_str(), "12.5");
    EXPECT_STREQ(getPersistableString(FR48MD3).c_str(), "48MD3");
    const std::tuple<FrameRate, const wchar_t*, bool> shown[] = {
        {FR50D3, L"15.67 fps", false}, {FR30MD2, L"14.98 fps", false}, {FR15M, L"14.99 fps", false},
        {FR24, L"24 fps", true},       {FR24M, L"23.98 fps", true},    {FR24D2, L"12 fps", true},
        {FR60D3, L"20 fps", true}};
    for (const auto& [rate, text, readsBack] : shown) {
        EXPECT_TRUE(getDisplayString(rate) == text) << rate;
        EXPECT_TRUE(!readsBack || getFrameRateFromDisplayString(text) == rate) << rate;
    }
    const std::pair<FrameRate, const char*> plain[] = {{FR240M, "23976"}, {FR120M, "11988"}, {FR25F, "24"}};
    for (const auto& [rate, text] : plain) EXPECT_STREQ(getPlainString(rate).c_str(), text);
    EXPECT_TRUE(getDisplayString(FR48F) == resourceStrW(10007));
    EXPECT_EQ(getFrameRateFromDisplayString(resourceStrW(10007)), FR24F);
}

TEST(FrameRateText, UnknownTextStrictParsingAndFacts) {
    // Persistable text is matched exactly and silently.
    EXPECT_EQ(stdoutOf([] {
                  for (const char* bad : {"30m", " 30M", "30M ", "", "0"})
                      EXPECT_EQ(getFrameRateFromPersistableString(bad), FRInvalid) << bad;
              }),
              "");
    for (const wchar_t* bad : {L"24fps", L""})
        EXPECT_EQ(stdoutOf([bad] { EXPECT_EQ(getFrameRateFromDisplayString(bad), FRInvalid); }),
                  "assertion failed cr != FRInvalid at ole/misc/FrameRate line 227\n");
    for (FrameRate bad : {FRInvalid, FrameRate(48), FrameRate(-1)}) {
        EXPECT_TRUE(getDisplayString(bad) == resourceStrW(10007));
        EXPECT_STREQ(getPlainString(bad).c_str(), "24");
        EXPECT_EQ(stdoutOf([bad] { EXPECT_TRUE(getPersistableString(bad).empty()); }),
                  "assertion failed rate == FR24 at ole/misc/FrameRate line 133\n");
    }
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

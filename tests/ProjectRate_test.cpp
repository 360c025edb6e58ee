#include <ole/misc/ProjectRate.h>

#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

using namespace Qv;
using oletest::stdoutOf;

namespace {

const char kNoTicks[] = "assertion failed rateIsValid at ole/misc/ProjectRate line 320\n";
const char kTwelveAndAHalf[] = "assertion failed rateIs12point5 at ole/misc/ProjectRate line 278\n";

// Ticks (0: none) and true frames per second of every valid rate, 1..47.
struct Facts {
    unsigned ticks;
    double fps;
};
// clang-format off
const Facts kFacts[] = {
    {24, 24},    {24, 24 / 1.001},  {25, 25},  {30, 30},  {30, 30 / 1.001},
    {48, 48},    {48, 48 / 1.001},  {50, 50},  {60, 60},  {60, 60 / 1.001},
    {0, 12},     {0, 12},   {0, 12.5},   {0, 15},  {0, 15},  {0, 24},  {0, 24},  {0, 25},  {0, 30},  {0, 30},
    {0, 8},      {0, 8},    {0, 25 / 3.0}, {0, 10}, {0, 10}, {0, 16},  {0, 16},  {0, 50 / 3.0}, {0, 20}, {0, 20},
    {0, 0},      {0, 0},    {0, 0},      {0, 0},
    {12, 12},    {12, 12 / 1.001},  {15, 12.5},  {15, 15},  {15, 15 / 1.001},  {20, 20},
    {80, 80},    {90, 90},  {100, 100},  {120, 120},  {120, 120 / 1.001},  {240, 240},  {240, 240 / 1.001},
};
// clang-format on

std::vector<FrameRate> ratesWhere(bool (*predicate)(FrameRate)) {
    std::vector<FrameRate> found;
    for (int value = -1; value <= 50; ++value)
        if (predicate(FrameRate(value))) found.push_back(FrameRate(value));
    return found;
}

}  // namespace

TEST(ProjectRateFacts, TicksAndTrueRateOfEveryRow) {
    for (int value = 1; value <= 47; ++value) {
        SCOPED_TRACE(value);
        const FrameRate rate = FrameRate(value);
        const Facts& expected = kFacts[value - 1];
        unsigned ticks = 0;
        double fps = 0;
        const std::string out = stdoutOf([&] {
            ticks = getTicksPerSecond(rate);
            fps = getFramesPerSecond(rate);
        });
        EXPECT_EQ(ticks, expected.ticks);
        EXPECT_NEAR(fps, expected.fps, 1e-12);
        // Only rates without ticks of their own, and 12.5 fps, complain.
        if (rate == FR12_5)
            EXPECT_EQ(out, kTwelveAndAHalf);
        else if (rate >= FR24F && rate <= FR48F)
            EXPECT_EQ(out, std::string(kNoTicks) + kNoTicks);
        else if (expected.ticks == 0)
            EXPECT_EQ(out, kNoTicks);  // from the ticks query alone
        else
            EXPECT_EQ(out, "");
    }
    // The decimated "M" rates are exact halves and thirds, without the 1.001 factor.
    EXPECT_EQ(getFramesPerSecond(FR24MD2), 12.0);
    EXPECT_EQ(getFramesPerSecond(FR60MD2), 30.0);
    EXPECT_DOUBLE_EQ(getFramesPerSecond(FR30M), 29.970029970029970);
}

TEST(ProjectRateFacts, RatesWithoutTicks) {
    for (FrameRate bad : {FRInvalid, FR24D2, FR60MD3, FR24F, FR48F, FrameRate(48), FrameRate(-3)}) {
        const std::string out = stdoutOf([bad] { EXPECT_EQ(getTicksPerSecond(bad), 0); });
        EXPECT_EQ(out, kNoTicks);
    }
    std::string out = stdoutOf([] { EXPECT_EQ(getTicksPerSecond(FR12_5), 15); });
    EXPECT_EQ(out, kTwelveAndAHalf);
}

TEST(ProjectRateFacts, FrameDuration) {
    EXPECT_DOUBLE_EQ(getFrameDuration(FR24M), 1.001 / 24);
    EXPECT_DOUBLE_EQ(getFrameDuration(FR240M), 1.001 / 240);
    EXPECT_DOUBLE_EQ(getFrameDuration(FR25), 0.04);
    EXPECT_DOUBLE_EQ(getFrameDuration(FR100), 0.01);
    EXPECT_EQ(stdoutOf([] { EXPECT_EQ(getFrameDuration(FR12_5), 0.08); }), "");
    EXPECT_EQ(stdoutOf([] { EXPECT_EQ(getFrameDuration(FR30D2), 0.0); }), kNoTicks);
}

TEST(ProjectRateFacts, FixedSets) {
    using V = std::vector<FrameRate>;
    EXPECT_EQ(ratesWhere(has1001Factor), (V{FR24M, FR30M, FR48M, FR60M, FR12M, FR15M, FR120M, FR240M}));
    EXPECT_EQ(ratesWhere(canUseDropFrameTimeCode), ratesWhere(has1001Factor));
    EXPECT_EQ(ratesWhere(isAssociatedWith30FrameLabel), (V{FR30, FR30M, FR60, FR60M}));
    EXPECT_EQ(ratesWhere(isInNTSCSet),
              (V{FR30, FR30M, FR60, FR60M, FR15, FR15M, FR120, FR120M, FR240, FR240M}));
    EXPECT_EQ(ratesWhere(isInPALSet), (V{FR25, FR50, FR12_5, FR100}));
    EXPECT_EQ(getProjectFrameRates(), (V{FR24, FR25, FR30, FR48, FR50, FR60}));
}

TEST(ProjectRateFacts, EquivalentProjectRate) {
    // clang-format off
    const int expected[48] = {
        1,                                   // 0
        1, 1, 3, 4, 4, 6, 6, 8, 9, 9,        // 1..10
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1,        // 11..20
        1, 1, 1, 1, 1, 1, 1, 1, 1, 1,        // 21..30
        1, 1, 1, 1,                          // 31..34
        1, 1, 3, 4, 4, 1, 4, 4, 3, 4, 4, 4, 4,  // 35..47
    };
    // clang-format on
    for (int value = 0; value < 48; ++value)
        EXPECT_EQ(getEquivalentProjectFrameRate(FrameRate(value)), expected[value]) << value;
    EXPECT_EQ(getEquivalentProjectFrameRate(FrameRate(100)), FR24);
    EXPECT_EQ(getEquivalentProjectFrameRate(FrameRate(-5)), FR24);
}

TEST(ProjectRateGroups, ExtentsMembershipAndLists) {
    using G = FrameRateGroup;
    const std::pair<int, int> extents[] = {{1, 10}, {11, 30}, {11, 20}, {21, 30}, {31, 34}, {35, 47}};
    for (int g = 1; g <= 6; ++g) {
        SCOPED_TRACE(g);
        const auto [first, last] = getFrameRateGroupExtents(G(g));
        EXPECT_EQ(first, extents[g - 1].first);
        EXPECT_EQ(last, extents[g - 1].second);
        std::vector<FrameRate> rates{FR25};  // appended to, never cleared
        getFrameRates(G(g), rates);
        ASSERT_EQ(rates.size(), size_t(last - first + 2));
        for (size_t i = 1; i < rates.size(); ++i) EXPECT_EQ(rates[i], first + int(i) - 1);
        EXPECT_FALSE(isInFrameRateGroup(FrameRate(first - 1), G(g)));
        EXPECT_TRUE(isInFrameRateGroup(first, G(g)));
        EXPECT_TRUE(isInFrameRateGroup(last, G(g)));
        EXPECT_FALSE(isInFrameRateGroup(FrameRate(last + 1), G(g)));
    }
    EXPECT_TRUE(isInFrameRateGroup(FR48D2, FrameRateGroups::DecimatedBy2));

    std::vector<FrameRate> all;
    getAllFrameRates(all);
    ASSERT_EQ(all.size(), 47u);
    EXPECT_TRUE(std::is_sorted(all.begin(), all.end()));
    EXPECT_EQ(all.front(), FR24);
    EXPECT_EQ(all.back(), FR240M);
}

TEST(ProjectRateGroups, UnknownGroup) {
    const char line[] =
        "assertion failed group == FrameRateGroups::Normal at ole/misc/ProjectRate line 535\n";
    std::string out = stdoutOf([] {
        const auto extents = getFrameRateGroupExtents(FrameRateGroup(7));
        EXPECT_EQ(extents.first, FRInvalid);
        EXPECT_EQ(extents.second, FRInvalid);
    });
    EXPECT_EQ(out, line);
    out = stdoutOf([] {
        std::vector<FrameRate> rates;
        getFrameRates(FrameRateGroup(0), rates);
        EXPECT_TRUE(rates.empty());
    });
    EXPECT_EQ(out, line);
}

TEST(ProjectRateFacts, NonDecimatedRate) {
    EXPECT_EQ(getNonDecimatedFrameRate(FR24D2), FR24);
    EXPECT_EQ(getNonDecimatedFrameRate(FR60MD2), FR60M);
    EXPECT_EQ(getNonDecimatedFrameRate(FR24D3), FR24);
    EXPECT_EQ(getNonDecimatedFrameRate(FR60MD3), FR60M);
    EXPECT_EQ(getNonDecimatedFrameRate(FR24F), FR24F);
    EXPECT_EQ(getNonDecimatedFrameRate(FR30M), FR30M);
}

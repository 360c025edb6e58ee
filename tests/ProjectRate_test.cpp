#include <ole/misc/ProjectRate.h>

#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cwchar>
#include <vector>

using namespace Qv;
using oletest::stdoutOf;

namespace {

const char kNoTicks[] = "assertion failed rateIsValid at ole/misc/ProjectRate line 320\n";

std::vector<FrameRate> ratesWhere(bool (*predicate)(FrameRate)) {
    std::vector<FrameRate> found;
    for (int value = -1; value <= 50; ++value)
        if (predicate(FrameRate(value))) found.push_back(FrameRate(value));
    return found;
}

}  // namespace

TEST(ProjectRateFacts, TrueRateAgreesWithTheDisplayedRate) {
    // The display string shows the true rate to two decimals, except for the decimated "M" rates, which run
    // without the 1.001 factor that their text shows, and 50D3, whose text has always been wrong.
    const std::vector<FrameRate> odd{FR24MD2, FR30MD2, FR48MD2, FR60MD2, FR24MD3,
                                     FR30MD3, FR48MD3, FR60MD3, FR50D3};
    for (int value = 1; value <= 47; ++value) {
        const FrameRate rate = FrameRate(value);
        if (isInFrameRateGroup(rate, FrameRateGroups::Film)) continue;
        const double shown = std::wcstod(getDisplayString(rate).c_str(), nullptr);
        unsigned ticks = 0;
        double fps = 0;
        const std::string out =
            stdoutOf([&] { ticks = getTicksPerSecond(rate), fps = getFramesPerSecond(rate); });
        const bool isOdd = std::find(odd.begin(), odd.end(), rate) != odd.end();
        EXPECT_EQ(std::fabs(shown - fps) < 0.005, !isOdd) << value;
        // Ticks are the whole rate, 30 for 29.97; decimated rates have none.
        const bool decimated = isInFrameRateGroup(rate, FrameRateGroups::Decimated);
        EXPECT_TRUE(decimated ? out == kNoTicks : rate == FR12_5 || ticks == unsigned(std::lround(fps)))
            << value;
    }
    EXPECT_DOUBLE_EQ(getFramesPerSecond(FR30M), 30 / 1.001);
    EXPECT_EQ(getFramesPerSecond(FR60MD2), 30.0);

    for (FrameRate bad : {FRInvalid, FR24D2, FR60MD3, FrameRate(48), FrameRate(-3)})
        EXPECT_EQ(stdoutOf([bad] { EXPECT_EQ(getTicksPerSecond(bad), 0); }), kNoTicks);
    // Film rates have neither ticks nor a true rate; 12.5 fps counts its digits to 15.
    EXPECT_EQ(stdoutOf([] { EXPECT_EQ(getFramesPerSecond(FR30F) + getFrameDuration(FR30D2), 0.0); }),
              std::string(kNoTicks) + kNoTicks);
    EXPECT_EQ(stdoutOf([] { EXPECT_EQ(getTicksPerSecond(FR12_5), 15); }),
              "assertion failed rateIs12point5 at ole/misc/ProjectRate line 278\n");
    EXPECT_EQ(
        stdoutOf([] { EXPECT_DOUBLE_EQ(getFramesPerSecond(FR12_5) + getFrameDuration(FR12_5), 12.58); }), "");
    EXPECT_DOUBLE_EQ(getFrameDuration(FR24M), 1.001 / 24);
}

TEST(ProjectRateFacts, SetsProjectRatesAndGroups) {
    using V = std::vector<FrameRate>;
    EXPECT_EQ(ratesWhere(has1001Factor), (V{FR24M, FR30M, FR48M, FR60M, FR12M, FR15M, FR120M, FR240M}));
    EXPECT_EQ(ratesWhere(canUseDropFrameTimeCode), ratesWhere(has1001Factor));
    EXPECT_EQ(ratesWhere(isAssociatedWith30FrameLabel), (V{FR30, FR30M, FR60, FR60M}));
    EXPECT_EQ(ratesWhere(isInNTSCSet),
              (V{FR30, FR30M, FR60, FR60M, FR15, FR15M, FR120, FR120M, FR240, FR240M}));
    EXPECT_EQ(ratesWhere(isInPALSet), (V{FR25, FR50, FR12_5, FR100}));
    EXPECT_EQ(getProjectFrameRates(), (V{FR24, FR25, FR30, FR48, FR50, FR60}));

    // Equivalent project rate of 0..47; 24 wherever nothing closer exists.
    const int expected[48] = {1, 1, 1, 3, 4, 4, 6, 6, 8, 9, 9, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                              1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 3, 4, 4, 1, 4, 4, 3, 4, 4, 4, 4};
    for (int value = 0; value < 48; ++value)
        EXPECT_EQ(getEquivalentProjectFrameRate(FrameRate(value)), expected[value]) << value;
    EXPECT_EQ(getEquivalentProjectFrameRate(FrameRate(100)), FR24);

    const std::pair<int, int> extents[] = {{1, 10}, {11, 30}, {11, 20}, {21, 30}, {31, 34}, {35, 47}};
    for (int g = 1; g <= 6; ++g) {
        const auto [first, last] = getFrameRateGroupExtents(FrameRateGroup(g));
        EXPECT_EQ(std::make_pair(int(first), int(last)), extents[g - 1]);
        std::vector<FrameRate> rates{FR25};  // appended to, never cleared
        getFrameRates(FrameRateGroup(g), rates);
        EXPECT_TRUE(rates.size() == size_t(last - first + 2) && rates[1] == first && rates.back() == last);
        EXPECT_TRUE(isInFrameRateGroup(last, FrameRateGroup(g)));
        EXPECT_FALSE(isInFrameRateGroup(FrameRate(first - 1), FrameRateGroup(g)) ||
                     isInFrameRateGroup(FrameRate(last + 1), FrameRateGroup(g)));
    }
    EXPECT_TRUE(getNonDecimatedFrameRate(FR48D2) == FR48 && getNonDecimatedFrameRate(FR60MD3) == FR60M);
    std::vector<FrameRate> all;
    getAllFrameRates(all);
    EXPECT_TRUE(all.size() == 47 && all.back() == FR240M);

    const char unknown[] =
        "assertion failed group == FrameRateGroups::Normal at ole/misc/ProjectRate line 535\n";
    EXPECT_EQ(stdoutOf([] { EXPECT_EQ(getFrameRateGroupExtents(FrameRateGroup(7)).first, FRInvalid); }),
              unknown);
    EXPECT_EQ(stdoutOf([&] { getFrameRates(FrameRateGroup(0), all); }), unknown);
    EXPECT_EQ(all.size(), 47u);  // nothing appended
}

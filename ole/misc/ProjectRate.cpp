#include <ole/misc/ProjectRate.h>
#include <ole/misc/FrameRateInternal.h>

#include <ole/platform/Assert.h>

#include <algorithm>
#include <initializer_list>

namespace Qv {

static bool isOneOf(FrameRate rate, std::initializer_list<FrameRate> set) {
    return std::find(set.begin(), set.end(), rate) != set.end();
}

// First and last value of each group, indexed by the group.
// clang-format off
static constexpr std::pair<FrameRate, FrameRate> kGroupExtents[] = {
    {FRInvalid, FRInvalid},  // there is no group 0
    {FR24,      FR60M},      // Normal
    {FR24D2,    FR60MD3},    // Decimated
    {FR24D2,    FR60MD2},    // DecimatedBy2
    {FR24D3,    FR60MD3},    // DecimatedBy3
    {FR24F,     FR48F},      // Film
    {FR12,      FR240M},     // LowAndHigh
};
// clang-format on

static bool isKnownGroup(FrameRateGroup group) {
    return group >= FrameRateGroups::Normal && group <= FrameRateGroups::LowAndHigh;
}

// Membership of a known group, without the check for unknown groups.
static bool within(FrameRate rate, FrameRateGroup group) {
    return kGroupExtents[group].first <= rate && rate <= kGroupExtents[group].second;
}

unsigned char getTicksPerSecond(FrameRate rate) {
    const FrameRateTable::Row* row = FrameRateTable::find(rate);
    const bool rateIsValid = row && row->ticks != 0;
    if (!rateIsValid) {
        assertionFailed("rateIsValid", "ole/misc/ProjectRate", 320);
        return 0;
    }
    // 12.5 fps has no whole number of frames a second; its timecode digits count up to 15.
    const bool rateIs12point5 = rate == FR12_5;
    if (rateIs12point5) assertionFailed("rateIs12point5", "ole/misc/ProjectRate", 278);
    return row->ticks;
}

double getFramesPerSecond(FrameRate rate) {
    if (rate == FR12_5) return 12.5;
    double fps = getTicksPerSecond(getNonDecimatedFrameRate(rate));
    // Only the rate itself decides the 1.001 factor, so 60MD2 is exactly 30 and not 29.97.
    if (has1001Factor(rate)) fps /= 1.001;
    if (within(rate, FrameRateGroups::DecimatedBy2))
        fps *= 0.5;
    else if (within(rate, FrameRateGroups::DecimatedBy3))
        fps /= 3.0;
    return fps;
}

double getFrameDuration(FrameRate rate) {
    if (rate == FR12_5) return 0.08;
    const unsigned ticks = getTicksPerSecond(rate);
    if (has1001Factor(rate)) return 1.001 / ticks;
    if (ticks == 0) return 0.0;
    return 1.0 / ticks;
}

FrameRate getNonDecimatedFrameRate(FrameRate rate) {
    if (within(rate, FrameRateGroups::DecimatedBy2)) return FrameRate(rate - 10);
    if (within(rate, FrameRateGroups::DecimatedBy3)) return FrameRate(rate - 20);
    return rate;
}

bool has1001Factor(FrameRate rate) {
    switch (rate) {
        case FR24M:
        case FR30M:
        case FR48M:
        case FR60M:
        case FR12M:
        case FR15M:
        case FR120M:
        case FR240M:
            return true;
        default:
            return false;
    }
}

bool canUseDropFrameTimeCode(FrameRate rate) {
    return has1001Factor(rate);
}

bool isAssociatedWith30FrameLabel(FrameRate rate) {
    return isOneOf(rate, {FR30, FR30M, FR60, FR60M});
}

bool isInNTSCSet(FrameRate rate) {
    return isOneOf(rate, {FR30, FR30M, FR60, FR60M, FR15, FR15M, FR120, FR120M, FR240, FR240M});
}

bool isInPALSet(FrameRate rate) {
    return isOneOf(rate, {FR25, FR50, FR12_5, FR100});
}

FrameRate getEquivalentProjectFrameRate(FrameRate rate) {
    // clang-format off
    switch (rate) {
        case FR25:   case FR12_5: case FR100:                        return FR25;
        case FR30:   case FR30M:  case FR15:   case FR15M: case FR80:
        case FR90:   case FR120:  case FR120M: case FR240: case FR240M: return FR30;
        case FR48:   case FR48M:                                     return FR48;
        case FR50:                                                   return FR50;
        case FR60:   case FR60M:                                     return FR60;
        default:                                                     return FR24;
    }
    // clang-format on
}

std::pair<FrameRate, FrameRate> getFrameRateGroupExtents(FrameRateGroup group) {
    if (isKnownGroup(group)) return kGroupExtents[group];
    assertionFailed("group == FrameRateGroups::Normal", "ole/misc/ProjectRate", 535);
    return {FRInvalid, FRInvalid};
}

bool isInFrameRateGroup(FrameRate rate, FrameRateGroup group) {
    const std::pair<FrameRate, FrameRate> extents = getFrameRateGroupExtents(group);
    return extents.first <= rate && rate <= extents.second;
}

std::vector<FrameRate> getProjectFrameRates() {
    return {FR24, FR25, FR30, FR48, FR50, FR60};
}

void getAllFrameRates(std::vector<FrameRate>& rates) {
    for (int value = kFirstFrameRate; value <= kLastFrameRate; ++value) rates.push_back(FrameRate(value));
}

void getFrameRates(FrameRateGroup group, std::vector<FrameRate>& rates) {
    const std::pair<FrameRate, FrameRate> extents = getFrameRateGroupExtents(group);
    if (extents.first == FRInvalid) return;
    for (int value = extents.first; value <= extents.second; ++value) rates.push_back(FrameRate(value));
}

}  // namespace Qv

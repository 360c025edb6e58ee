#include <ole/misc/FrameRate.h>

#include <platform/Strings.h>

#include "support/StdoutCapture.h"

#include <gtest/gtest.h>

using namespace Qv;
using oletest::stdoutOf;

namespace {

struct Texts {
    FrameRate rate;
    const char* persistable;
    const wchar_t* display;  // null: the unknown-rate resource text
    const char* plain;
};

// clang-format off
const Texts kExpected[] = {
    {FR24, "24", L"24 fps", "24"},             {FR24M, "24M", L"23.98 fps", "2398"},
    {FR25, "25", L"25 fps", "25"},             {FR30, "30", L"30 fps", "30"},
    {FR30M, "30M", L"29.97 fps", "2997"},      {FR48, "48", L"48 fps", "48"},
    {FR48M, "48M", L"47.95 fps", "4795"},      {FR50, "50", L"50 fps", "50"},
    {FR60, "60", L"60 fps", "60"},             {FR60M, "60M", L"59.94 fps", "5994"},
    {FR24D2, "24D2", L"12 fps", "12"},         {FR24MD2, "24MD2", L"11.99 fps", "1199"},
    {FR25D2, "25D2", L"12.5 fps", "125"},      {FR30D2, "30D2", L"15 fps", "15"},
    {FR30MD2, "30MD2", L"14.98 fps", "1498"},  {FR48D2, "48D2", L"24 fps", "24"},
    {FR48MD2, "48MD2", L"23.98 fps", "2398"},  {FR50D2, "50D2", L"25 fps", "25"},
    {FR60D2, "60D2", L"30 fps", "30"},         {FR60MD2, "60MD2", L"29.97 fps", "2997"},
    {FR24D3, "24D3", L"8 fps", "8"},           {FR24MD3, "24MD3", L"7.99 fps", "799"},
    {FR25D3, "25D3", L"8.33 fps", "833"},      {FR30D3, "30D3", L"10 fps", "10"},
    {FR30MD3, "30MD3", L"9.99 fps", "999"},    {FR48D3, "48D3", L"16 fps", "16"},
    {FR48MD3, "48MD3", L"15.98 fps", "1598"},  {FR50D3, "50D3", L"15.67 fps", "1567"},
    {FR60D3, "60D3", L"20 fps", "20"},         {FR60MD3, "60MD3", L"19.98 fps", "1998"},
    {FR24F, "24F", nullptr, "24"},             {FR25F, "25F", nullptr, "24"},
    {FR30F, "30F", nullptr, "24"},             {FR48F, "48F", nullptr, "24"},
    {FR12, "12", L"12 fps", "12"},             {FR12M, "12M", L"11.99 fps", "1199"},
    {FR12_5, "12.5", L"12.5 fps", "125"},      {FR15, "15", L"15 fps", "15"},
    {FR15M, "15M", L"14.99 fps", "1499"},      {FR20, "20", L"20 fps", "20"},
    {FR80, "80", L"80 fps", "80"},             {FR90, "90", L"90 fps", "90"},
    {FR100, "100", L"100 fps", "100"},         {FR120, "120", L"120 fps", "120"},
    {FR120M, "120M", L"119.88 fps", "11988"},  {FR240, "240", L"240 fps", "240"},
    {FR240M, "240M", L"239.76 fps", "23976"},
};
// clang-format on

LightweightString<wchar_t> unknownText() {
    return resourceStrW(10007);
}

}  // namespace

TEST(FrameRateText, EveryRowHasItsTextsAndTheyReadBack) {
    ASSERT_EQ(sizeof(kExpected) / sizeof(kExpected[0]), 47u);
    for (const Texts& row : kExpected) {
        SCOPED_TRACE(row.persistable);
        EXPECT_EQ(row.rate, &row - kExpected + 1);
        EXPECT_STREQ(getPersistableString(row.rate).c_str(), row.persistable);
        EXPECT_STREQ(getPlainString(row.rate).c_str(), row.plain);
        const LightweightString<wchar_t> display = getDisplayString(row.rate);
        EXPECT_TRUE(display == (row.display ? LightweightString<wchar_t>(row.display) : unknownText()));

        // Persistable strings are unique, so they read back to the row itself.
        EXPECT_EQ(getFrameRateFromPersistableString(getPersistableString(row.rate)), row.rate);
        // Display strings repeat; they read back to the first row with the same text, which shows it too.
        const FrameRate back = getFrameRateFromDisplayString(display);
        EXPECT_LE(back, row.rate);
        EXPECT_TRUE(getDisplayString(back) == display);
        for (int lower = 1; lower < back; ++lower)
            EXPECT_FALSE(getDisplayString(FrameRate(lower)) == display);
    }
}

TEST(FrameRateText, RepeatedDisplayStringsReadAsTheLowestRate) {
    EXPECT_EQ(getFrameRateFromDisplayString(L"24 fps"), FR24);
    EXPECT_EQ(getFrameRateFromDisplayString(L"23.98 fps"), FR24M);
    EXPECT_EQ(getFrameRateFromDisplayString(L"12 fps"), FR24D2);
    EXPECT_EQ(getFrameRateFromDisplayString(L"20 fps"), FR60D3);
    EXPECT_EQ(getFrameRateFromDisplayString(L"29.97 fps"), FR30M);
    EXPECT_EQ(getFrameRateFromDisplayString(unknownText()), FR24F);
}

TEST(FrameRateText, UnknownTextGivesInvalid) {
    // Matching is exact: case, spacing and the unit all count.
    std::string out = stdoutOf([] {
        EXPECT_EQ(getFrameRateFromPersistableString("30m"), FRInvalid);
        EXPECT_EQ(getFrameRateFromPersistableString(" 30M"), FRInvalid);
        EXPECT_EQ(getFrameRateFromPersistableString(""), FRInvalid);
        EXPECT_EQ(getFrameRateFromPersistableString(LightweightString<char>()), FRInvalid);
    });
    EXPECT_EQ(out, "");

    out = stdoutOf([] { EXPECT_EQ(getFrameRateFromDisplayString(L"24fps"), FRInvalid); });
    EXPECT_EQ(out, "assertion failed cr != FRInvalid at ole/misc/FrameRate line 227\n");
    out = stdoutOf([] { EXPECT_EQ(getFrameRateFromDisplayString(LightweightString<wchar_t>()), FRInvalid); });
    EXPECT_EQ(out, "assertion failed cr != FRInvalid at ole/misc/FrameRate line 227\n");
}

TEST(FrameRateText, ValuesOutsideTheTable) {
    for (FrameRate bad : {FRInvalid, FrameRate(48), FrameRate(-1), FrameRate(1000)}) {
        EXPECT_TRUE(getDisplayString(bad) == unknownText());
        EXPECT_STREQ(getPlainString(bad).c_str(), "24");
        std::string out = stdoutOf([bad] { EXPECT_TRUE(getPersistableString(bad).empty()); });
        EXPECT_EQ(out, "assertion failed rate == FR24 at ole/misc/FrameRate line 133\n");
    }
    EXPECT_FALSE(unknownText().empty());
}

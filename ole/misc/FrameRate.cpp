#include <ole/misc/FrameRate.h>
#include <ole/misc/FrameRateInternal.h>

#include <ole/platform/Assert.h>
#include <ole/runtime/Strings.h>

#include <cstring>
#include <cwchar>

namespace Qv {
namespace FrameRateTable {

// Some texts look wrong and are kept on purpose because files and users already depend on them: "15.67 fps"
// for 50D3, "14.98 fps" for 30MD2 beside "14.99 fps" for 15M, and the plain "23976" for 240M.
// clang-format off
static const Row kRows[] = {
    // rate     persistable  display         plain    ticks
    {FR24,      "24",        L"24 fps",      "24",    24},
    {FR24M,     "24M",       L"23.98 fps",   "2398",  24},
    {FR25,      "25",        L"25 fps",      "25",    25},
    {FR30,      "30",        L"30 fps",      "30",    30},
    {FR30M,     "30M",       L"29.97 fps",   "2997",  30},
    {FR48,      "48",        L"48 fps",      "48",    48},
    {FR48M,     "48M",       L"47.95 fps",   "4795",  48},
    {FR50,      "50",        L"50 fps",      "50",    50},
    {FR60,      "60",        L"60 fps",      "60",    60},
    {FR60M,     "60M",       L"59.94 fps",   "5994",  60},
    {FR24D2,    "24D2",      L"12 fps",      "12",    0},
    {FR24MD2,   "24MD2",     L"11.99 fps",   "1199",  0},
    {FR25D2,    "25D2",      L"12.5 fps",    "125",   0},
    {FR30D2,    "30D2",      L"15 fps",      "15",    0},
    {FR30MD2,   "30MD2",     L"14.98 fps",   "1498",  0},
    {FR48D2,    "48D2",      L"24 fps",      "24",    0},
    {FR48MD2,   "48MD2",     L"23.98 fps",   "2398",  0},
    {FR50D2,    "50D2",      L"25 fps",      "25",    0},
    {FR60D2,    "60D2",      L"30 fps",      "30",    0},
    {FR60MD2,   "60MD2",     L"29.97 fps",   "2997",  0},
    {FR24D3,    "24D3",      L"8 fps",       "8",     0},
    {FR24MD3,   "24MD3",     L"7.99 fps",    "799",   0},
    {FR25D3,    "25D3",      L"8.33 fps",    "833",   0},
    {FR30D3,    "30D3",      L"10 fps",      "10",    0},
    {FR30MD3,   "30MD3",     L"9.99 fps",    "999",   0},
    {FR48D3,    "48D3",      L"16 fps",      "16",    0},
    {FR48MD3,   "48MD3",     L"15.98 fps",   "1598",  0},
    {FR50D3,    "50D3",      L"15.67 fps",   "1567",  0},
    {FR60D3,    "60D3",      L"20 fps",      "20",    0},
    {FR60MD3,   "60MD3",     L"19.98 fps",   "1998",  0},
    {FR24F,     "24F",       nullptr,        "24",    0},
    {FR25F,     "25F",       nullptr,        "24",    0},
    {FR30F,     "30F",       nullptr,        "24",    0},
    {FR48F,     "48F",       nullptr,        "24",    0},
    {FR12,      "12",        L"12 fps",      "12",    12},
    {FR12M,     "12M",       L"11.99 fps",   "1199",  12},
    {FR12_5,    "12.5",      L"12.5 fps",    "125",   15},
    {FR15,      "15",        L"15 fps",      "15",    15},
    {FR15M,     "15M",       L"14.99 fps",   "1499",  15},
    {FR20,      "20",        L"20 fps",      "20",    20},
    {FR80,      "80",        L"80 fps",      "80",    80},
    {FR90,      "90",        L"90 fps",      "90",    90},
    {FR100,     "100",       L"100 fps",     "100",   100},
    {FR120,     "120",       L"120 fps",     "120",   120},
    {FR120M,    "120M",      L"119.88 fps",  "11988", 120},
    {FR240,     "240",       L"240 fps",     "240",   240},
    {FR240M,    "240M",      L"239.76 fps",  "23976", 240},
};
// clang-format on

static_assert(sizeof(kRows) / sizeof(kRows[0]) == kLastFrameRate, "one row per valid rate");

const Row* find(FrameRate rate) noexcept {
    if (rate < kFirstFrameRate || rate > kLastFrameRate) return nullptr;
    return &kRows[rate - kFirstFrameRate];
}

}  // namespace FrameRateTable

// The product's resource text for a rate that has no display string of its own.
static LightweightString<wchar_t> unknownRateText() {
    return resourceStrW(10007);
}

LightweightString<wchar_t> getDisplayString(FrameRate rate) {
    const FrameRateTable::Row* row = FrameRateTable::find(rate);
    if (!row || !row->display) return unknownRateText();
    return row->display;
}

LightweightString<char> getPersistableString(FrameRate rate) {
    const FrameRateTable::Row* row = FrameRateTable::find(rate);
    if (!row) {
        assertionFailed("rate == FR24", "ole/misc/FrameRate", 133);
        return LightweightString<char>();
    }
    return row->persistable;
}

LightweightString<char> getPlainString(FrameRate rate) {
    const FrameRateTable::Row* row = FrameRateTable::find(rate);
    return row ? row->plain : "24";
}

// Scanning upwards makes the lowest value win where texts repeat.
FrameRate getFrameRateFromDisplayString(const LightweightString<wchar_t>& text) {
    for (int value = kFirstFrameRate; value <= kLastFrameRate; ++value) {
        const FrameRate rate = FrameRate(value);
        if (getDisplayString(rate) == text) return rate;
    }
    assertionFailed("cr != FRInvalid", "ole/misc/FrameRate", 227);
    return FRInvalid;
}

FrameRate getFrameRateFromPersistableString(const LightweightString<char>& text) {
    for (const FrameRateTable::Row& row : FrameRateTable::kRows)
        if (text == row.persistable) return row.rate;
    return FRInvalid;
}

// `text` equals the display string, or the display string without its " fps".
static bool isDisplayText(const wchar_t* display, const char* text) {
    std::size_t i = 0;
    while (display[i] && text[i] && display[i] == wchar_t(static_cast<unsigned char>(text[i]))) ++i;
    return i > 0 && !text[i] && (!display[i] || std::wcscmp(display + i, L" fps") == 0);
}

Parsed<FrameRate> parseFrameRate(const char* text) {
    if (!text || !*text) return Parsed<FrameRate>::refuse("is empty", FRInvalid);
    for (const FrameRateTable::Row& row : FrameRateTable::kRows)
        if (std::strcmp(text, row.persistable) == 0) return Parsed<FrameRate>::accept(row.rate);
    for (const FrameRateTable::Row& row : FrameRateTable::kRows)
        if (row.display && isDisplayText(row.display, text)) return Parsed<FrameRate>::accept(row.rate);
    return Parsed<FrameRate>::refuse("names no frame rate", FRInvalid);
}

bool rateHasTicks(FrameRate rate) noexcept {
    const FrameRateTable::Row* row = FrameRateTable::find(rate);
    return row && row->ticks != 0 && rate != FR12_5;
}

bool rateHasTrueFps(FrameRate rate) noexcept {
    return FrameRateTable::find(rate) && !(rate >= FR24F && rate <= FR48F);
}

}  // namespace Qv

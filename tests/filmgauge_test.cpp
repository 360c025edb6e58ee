#include <ole/misc/filmgauge.h>

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

using namespace Qv;

namespace {

const auto feet = [](int n, film_gauge g, int pad = 0) -> std::string { return frames_to_feet(n, g, pad); };
const auto framesOf = [](std::string text, film_gauge g) -> int { return feet_to_frames(text.data(), g); };

}  // namespace

TEST(FilmGauge, CodesPerforationsAndTvStandards) {
    const char* codes[] = {"F16", "F35", "F16R", "F353", "INVALID"};
    for (int g = 0; g <= FILM_INVALID; ++g) EXPECT_EQ(edlstr_to_film_gauge(codes[g]), g);
    EXPECT_STREQ(film_gauge_to_str(FILM_35MM_3PERF), "35mm 3-perf");
    EXPECT_STREQ(film_gauge_to_edlstr(film_gauge(9)), "INVALID");
    EXPECT_EQ(edlstr_to_film_gauge("f35"), FILM_35MM);  // case-insensitive, but whole
    EXPECT_EQ(edlstr_to_film_gauge("F353 ") * 10 + edlstr_to_film_gauge(nullptr), FILM_INVALID * 11);
    EXPECT_EQ(int_to_film_gauge(35) * 10 + int_to_film_gauge(8), 14);
    EXPECT_EQ(frames_to_perfs(5, FILM_35MM_3PERF) * 10 + perfs_to_frames(-7, FILM_35MM), 149);  // toward zero
    EXPECT_EQ(perfs_to_frames(INT32_MIN, FILM_INVALID), INT32_MIN);
    const std::pair<TCInf, const char*> writes[] = {
        {{FR50, true}, "P"}, {{FR60, false}, "N"}, {{FR30M, true}, "ND"}, {{FR12_5, false}, "P24"}};
    for (const auto& [info, code] : writes) EXPECT_STREQ(tv_standard_to_edlstr(info), code);
    // Reading is case-sensitive, and "N" comes back as 29.97 whichever 30-type rate wrote it.
    const std::tuple<const char*, FrameRate, bool> reads[] = {{"P", FR25, false},   {"N", FR30M, false},
                                                              {"ND", FR30M, true},  {"N24", FR24, false},
                                                              {"ND24", FR24, true}, {"p", FRInvalid, false}};
    for (const auto& [code, rate, drop] : reads)
        EXPECT_TRUE(edlstr_to_tv_standard(code).rate == rate && edlstr_to_tv_standard(code).dropFrame == drop)
            << code;
    EXPECT_EQ(edlstr_to_tv_standard(nullptr).rate, FRInvalid);
    EXPECT_EQ(tv_standard_to_film_gauge(FR24) * 10 + film_gauge_to_tv_standard(FILM_35MM), 40);
}

TEST(FilmFootage, TextOfKnownCountsAndStrictReading) {
    EXPECT_EQ(feet(16, FILM_35MM) + feet(17, FILM_35MM) + feet(-17, FILM_35MM), "    1.00    1.01-   1.01");
    EXPECT_EQ(feet(-17, FILM_35MM, 1) + feet(485, FILM_16MM, 1) + feet(0, FILM_35MM),
              "-0001.01 0012.05    0.00");
    EXPECT_EQ(feet(16 * 123456 + 3, FILM_35MM) + feet(17, FILM_INVALID), " 123456.03INVALID");
    const char* threePerf[] = {"    0.20", "    1.00", "    1.01"};  // first foot starts two perfs in
    for (int n = 20; n <= 22; ++n) EXPECT_EQ(feet(n, FILM_35MM_3PERF), threePerf[n - 20]);
    // Reading: any one separator; the minus counts only as the first character.
    const std::tuple<const char*, film_gauge, int> reads[] = {
        {"12+05", FILM_16MM, 485}, {"ft 12.05", FILM_16MM, 485}, {"12..5", FILM_35MM, 192},
        {"abc", FILM_35MM, 0},     {" -12.05", FILM_16MM, 485},  {"12.05", FILM_INVALID, -1}};
    for (const auto& [text, gauge, frames] : reads) EXPECT_EQ(framesOf(text, gauge), frames) << text;
    framesOf("99999999999999999999999.99999999999999999", FILM_35MM_3PERF);  // must not overflow

    const std::pair<const char*, film_gauge> gauges[] = {
        {"16MM INK", FILM_16MM_INK}, {"f353", FILM_35MM_3PERF}, {"16", FILM_16MM}, {"INVALID", FILM_INVALID}};
    for (const auto& [text, gauge] : gauges) EXPECT_EQ(parseFilmGauge(text).value, gauge) << text;
    EXPECT_TRUE(!parseFilmGauge("70mm").ok() && parseTvStandard("ND").ok() && !parseTvStandard("p").ok());
    const std::tuple<const char*, film_gauge, int, const char*> rows[] = {
        {"12.05", FILM_35MM, 197, nullptr},           {" - 1+01 ", FILM_35MM, -17, nullptr},
        {"1.01", FILM_35MM_3PERF, 22, nullptr},       {"1.16", FILM_35MM, 0, "35mm film has no frame 16"},
        {"1.", FILM_35MM, 0, "is not footage"},       {"1.01x", FILM_35MM, 0, "is not footage"},
        {"1.01", FILM_INVALID, 0, "gauge is invalid"}};
    for (const auto& [text, gauge, frames, refusal] : rows) {
        const Parsed<int> parsed = parseFootage(text, gauge);
        EXPECT_EQ(parsed.value, frames) << text;
        EXPECT_TRUE(refusal ? parsed.refusal.find(refusal) != std::string::npos : parsed.ok())
            << parsed.refusal;
    }
}

TEST(FilmFootage, EveryGaugeBothWaysOverARange) {
    for (film_gauge g : {FILM_16MM, FILM_35MM, FILM_16MM_INK, FILM_35MM_3PERF}) {
        foot_num previous = frames_to_foot_num(0, g);
        for (int n = 1; n <= 5000; ++n) {
            const foot_num f = frames_to_foot_num(n, g);
            ASSERT_TRUE(f.feet == previous.feet ? f.frame == previous.frame + 1
                                                : f.feet == previous.feet + 1 && f.frame == 0)
                << g << " " << n;
            previous = f;
            ASSERT_EQ(framesOf(feet(n, g, n & 1), g), n) << g;
            ASSERT_EQ(framesOf(feet(-n, g, n & 1), g), -n) << g;
        }
    }
    EXPECT_TRUE(frames_to_foot_num(4000, FILM_16MM).feet == 100 &&
                frames_to_foot_num(1600, FILM_35MM).feet == 100);
    EXPECT_EQ(frames_to_foot_num(64 * 50, FILM_35MM_3PERF).feet, 150);  // 64 frames in 3 feet
    EXPECT_EQ(frames_to_foot_num(17, FILM_INVALID).feet, kInvalidFeet);
}

TEST(Pulldown, CyclesAndTheirArithmetic) {
    EXPECT_EQ(pd_film_cycle(FR60M) * 10 + pd_cycle_size(FR60M), 45);
    EXPECT_EQ(pd_film_cycle(FR50) * 100 + pd_cycle_size(FR50), 2425);
    for (FrameRate r : {FR24, FR24M, FR48, FR12_5, FR100, FR60D2}) {
        EXPECT_FALSE(can_add_pulldown(r) || can_remove_pulldown(r) || pd_cycle_size(r) != -1);
        EXPECT_EQ(add_pulldown(17, r, 2) * 100 + remove_pulldown(18, r, 2), 1718);
    }
    EXPECT_EQ(add_pulldown(4, FR30, 0) * 10 + remove_pulldown(4, FR30, 0), 53);  // video 5 repeats film 4
    EXPECT_EQ(remove_pulldown(24, FR25, 0), 23);
    EXPECT_EQ(add_pulldown(10, FR30M, -9), add_pulldown(10, FR30M, 3));  // phases wrap into the cycle
    EXPECT_EQ(remove_pulldown(10, FR30M, 7), remove_pulldown(10, FR30M, 2));
    for (FrameRate r : {FR30, FR60M, FR25, FR50})
        for (int phase = 0; phase < pd_film_cycle(r); ++phase)
            for (int n = 0; n <= 3000; ++n) {
                const int v = add_pulldown(n, r, phase);
                ASSERT_EQ(remove_pulldown(v, r, phase), n) << r << " " << phase;
                ASSERT_EQ(add_pulldown(n + pd_film_cycle(r), r, phase), v + pd_cycle_size(r));
            }
}

TEST(EffectCookies, BuiltInIdentifiers) {
    const std::pair<const Cookie*, const char*> rows[] = {
        {&video_black, "VZ0Z0001"},   {&audio_black, "SZ0Z0001"},    {&video_dissolve, "VZ0Z0002"},
        {&film_dissolve, "VZ0Z0004"}, {&audio_dissolve, "SZ0Z0002"}, {&video_mix50, "VZ0Z0003"},
        {&audio_mix50, "SZ0Z0003"}};
    for (const auto& [cookie, text] : rows) EXPECT_STREQ(cookie->asString(true).c_str(), text);
    EXPECT_TRUE(video_dissolve.isDissolve() && film_dissolve.isFilmDissolve() && !video_mix50.isDissolve());
}

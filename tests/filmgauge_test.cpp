#include <ole/misc/filmgauge.h>

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <utility>

using namespace Qv;

namespace {

std::string feet(int frames, film_gauge g, int zeroPad = 0) {
    return frames_to_feet(frames, g, zeroPad);
}

int framesOf(std::string text, film_gauge g) {
    return feet_to_frames(text.data(), g);
}

}  // namespace

TEST(FilmGauge, CodesAndPerforations) {
    const char* codes[] = {"F16", "F35", "F16R", "F353", "INVALID"};
    for (int g = 0; g <= FILM_INVALID; ++g) EXPECT_EQ(edlstr_to_film_gauge(codes[g]), g);
    EXPECT_STREQ(film_gauge_to_str(FILM_35MM_3PERF), "35mm 3-perf");
    EXPECT_STREQ(film_gauge_to_edlstr(film_gauge(9)), "INVALID");
    EXPECT_EQ(edlstr_to_film_gauge("f35"), FILM_35MM);  // case-insensitive, but whole
    for (const char* bad : {"F353 ", (const char*)nullptr})
        EXPECT_EQ(edlstr_to_film_gauge(bad), FILM_INVALID);
    EXPECT_EQ(int_to_film_gauge(35) * 10 + int_to_film_gauge(8), 14);
    EXPECT_EQ(frames_to_perfs(5, FILM_35MM_3PERF), 15);
    EXPECT_EQ(perfs_to_frames(-7, FILM_35MM), -1);  // toward zero
    EXPECT_EQ(perfs_to_frames(INT32_MIN, FILM_INVALID), INT32_MIN);
}

TEST(FilmFootage, TextOfKnownCounts) {
    EXPECT_EQ(feet(16, FILM_35MM) + feet(17, FILM_35MM) + feet(-17, FILM_35MM), "    1.00    1.01-   1.01");
    EXPECT_EQ(feet(-17, FILM_35MM, 1) + feet(485, FILM_16MM, 1), "-0001.01 0012.05");
    EXPECT_EQ(feet(16 * 123456 + 3, FILM_35MM), " 123456.03");
    EXPECT_EQ(feet(17, FILM_INVALID), "INVALID");
    // 3-perf footage starts two perforations into the first foot.
    const char* threePerf[] = {"    0.20", "    1.00", "    1.01"};
    for (int n = 20; n <= 22; ++n) EXPECT_EQ(feet(n, FILM_35MM_3PERF), threePerf[n - 20]);
    // Reading: any one separator; the minus counts only as the first character.
    const std::tuple<const char*, film_gauge, int> reads[] = {
        {"12+05", FILM_16MM, 485}, {"ft 12.05", FILM_16MM, 485}, {"12..5", FILM_35MM, 192},
        {"abc", FILM_35MM, 0},     {" -12.05", FILM_16MM, 485},  {"12.05", FILM_INVALID, -1}};
    for (const auto& [text, gauge, frames] : reads) EXPECT_EQ(framesOf(text, gauge), frames) << text;
    framesOf("99999999999999999999999.99999999999999999", FILM_35MM_3PERF);  // must not overflow
}

TEST(FilmFootage, EveryGaugeBothWaysOverARange) {
    for (film_gauge g : {FILM_16MM, FILM_35MM, FILM_16MM_INK, FILM_35MM_3PERF}) {
        foot_num previous = frames_to_foot_num(0, g);
        for (int n = 1; n <= 5000; ++n) {
            // The footage counts up one frame at a time, rolling over to the next foot.
            const foot_num f = frames_to_foot_num(n, g);
            const bool next = f.feet == previous.feet ? f.frame == previous.frame + 1
                                                      : f.feet == previous.feet + 1 && f.frame == 0;
            ASSERT_TRUE(next) << g << " " << n;
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

TEST(TvStandard, EdlCodesBothWays) {
    const std::pair<TCInf, const char*> writes[] = {
        {{FR50, true}, "P"}, {{FR60, false}, "N"}, {{FR30M, true}, "ND"}, {{FR12_5, false}, "P24"}};
    for (const auto& [info, code] : writes) EXPECT_STREQ(tv_standard_to_edlstr(info), code);
    // Reading is case-sensitive, and "N" comes back as 29.97 whichever 30-type rate wrote it.
    const std::pair<const char*, TCInf> reads[] = {{"P", {FR25, false}},   {"N", {FR30M, false}},
                                                   {"ND", {FR30M, true}},  {"N24", {FR24, false}},
                                                   {"ND24", {FR24, true}}, {"p", {FRInvalid, false}}};
    for (const auto& [code, info] : reads)
        EXPECT_TRUE(edlstr_to_tv_standard(code).rate == info.rate &&
                    edlstr_to_tv_standard(code).dropFrame == info.dropFrame)
            << code;
    EXPECT_EQ(edlstr_to_tv_standard(nullptr).rate, FRInvalid);
    EXPECT_EQ(tv_standard_to_film_gauge(FR24) * 10 + film_gauge_to_tv_standard(FILM_35MM), 40);
}

TEST(Pulldown, CyclesAndTheirArithmetic) {
    EXPECT_EQ(pd_film_cycle(FR60M) * 10 + pd_cycle_size(FR60M), 45);
    EXPECT_EQ(pd_film_cycle(FR50) * 100 + pd_cycle_size(FR50), 2425);
    for (FrameRate r : {FR24, FR24M, FR48, FR12_5, FR100, FR60D2}) {
        EXPECT_FALSE(can_add_pulldown(r) || can_remove_pulldown(r) || pd_cycle_size(r) != -1);
        EXPECT_EQ(add_pulldown(17, r, 2) * 100 + remove_pulldown(18, r, 2), 1718);
    }
    EXPECT_EQ(add_pulldown(4, FR30, 0), 5);
    EXPECT_EQ(remove_pulldown(4, FR30, 0), 3);  // the fifth video frame repeats the fourth film frame
    EXPECT_EQ(remove_pulldown(24, FR25, 0), 23);
    // Phases outside the cycle are brought into it: whole cycles added, or the remainder taken.
    EXPECT_EQ(add_pulldown(10, FR30M, -9), add_pulldown(10, FR30M, 3));
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
    const Cookie* cookies[] = {&video_black,    &audio_black, &video_dissolve, &film_dissolve,
                               &audio_dissolve, &video_mix50, &audio_mix50};
    const char* texts[] = {"VZ0Z0001", "SZ0Z0001", "VZ0Z0002", "VZ0Z0004",
                           "SZ0Z0002", "VZ0Z0003", "SZ0Z0003"};
    for (int i = 0; i < 7; ++i) EXPECT_STREQ(cookies[i]->asString(true).c_str(), texts[i]);
    EXPECT_TRUE(video_dissolve.isDissolve() && film_dissolve.isFilmDissolve() && !video_mix50.isDissolve());
}

TEST(FilmStrict, GaugesCodesAndFootageSayWhyNot) {
    const std::pair<const char*, film_gauge> gauges[] = {
        {"16MM INK", FILM_16MM_INK}, {"f353", FILM_35MM_3PERF}, {"16", FILM_16MM}, {"INVALID", FILM_INVALID}};
    for (const auto& [text, gauge] : gauges) EXPECT_EQ(parseFilmGauge(text).value, gauge) << text;
    EXPECT_FALSE(parseFilmGauge("70mm").ok());
    EXPECT_TRUE(parseTvStandard("ND").ok() && !parseTvStandard("p").ok());
    // Text, gauge, frames when accepted, refusal (null: accepted).
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

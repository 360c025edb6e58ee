#include <ole/misc/filmgauge.h>

#include <gtest/gtest.h>

#include <string>

using namespace Qv;

namespace {

const film_gauge kGauges[] = {FILM_16MM, FILM_35MM, FILM_16MM_INK, FILM_35MM_3PERF};

std::string feet(int frames, film_gauge g, int zeroPad) {
    return frames_to_feet(frames, g, zeroPad);
}

int framesOf(const std::string& text, film_gauge g) {
    std::string copy = text;
    return feet_to_frames(copy.data(), g);
}

}  // namespace

TEST(FilmGauge, NamesAndEdlCodes) {
    const char* names[] = {"16mm", "35mm", "16mm ink", "35mm 3-perf", "INVALID"};
    const char* codes[] = {"F16", "F35", "F16R", "F353", "INVALID"};
    for (int g = 0; g <= FILM_INVALID; ++g) {
        EXPECT_STREQ(film_gauge_to_str(film_gauge(g)), names[g]);
        EXPECT_STREQ(film_gauge_to_edlstr(film_gauge(g)), codes[g]);
        EXPECT_EQ(edlstr_to_film_gauge(codes[g]), g);
    }
    // EDL codes are read without regard to case, but whole.
    EXPECT_EQ(edlstr_to_film_gauge("f35"), FILM_35MM);
    EXPECT_EQ(edlstr_to_film_gauge("f16r"), FILM_16MM_INK);
    EXPECT_EQ(edlstr_to_film_gauge("F3"), FILM_INVALID);
    EXPECT_EQ(edlstr_to_film_gauge("F353 "), FILM_INVALID);
    EXPECT_EQ(edlstr_to_film_gauge(""), FILM_INVALID);
    EXPECT_EQ(edlstr_to_film_gauge(nullptr), FILM_INVALID);

    EXPECT_EQ(int_to_film_gauge(16), FILM_16MM);
    EXPECT_EQ(int_to_film_gauge(35), FILM_35MM);
    EXPECT_EQ(int_to_film_gauge(8), FILM_INVALID);
    EXPECT_EQ(int_to_film_gauge(-16), FILM_INVALID);
}

TEST(FilmGauge, Perforations) {
    EXPECT_EQ(frames_to_perfs(5, FILM_35MM_3PERF), 15);
    EXPECT_EQ(frames_to_perfs(5, FILM_35MM), 20);
    EXPECT_EQ(frames_to_perfs(5, FILM_16MM_INK), 5);
    EXPECT_EQ(frames_to_perfs(5, FILM_INVALID), -5);
    EXPECT_EQ(perfs_to_frames(7, FILM_35MM), 1);
    EXPECT_EQ(perfs_to_frames(-7, FILM_35MM), -1);  // toward zero
    EXPECT_EQ(perfs_to_frames(8, FILM_35MM_3PERF), 2);
    EXPECT_EQ(perfs_to_frames(7, FILM_16MM), 7);
    EXPECT_EQ(perfs_to_frames(INT32_MIN, FILM_INVALID), INT32_MIN);  // no overflow trap
}

TEST(FilmFootage, KnownFootage) {
    EXPECT_EQ(feet(16, FILM_35MM, 0), "    1.00");
    EXPECT_EQ(feet(17, FILM_35MM, 0), "    1.01");
    EXPECT_EQ(feet(-17, FILM_35MM, 0), "-   1.01");
    EXPECT_EQ(feet(17, FILM_35MM, 1), " 0001.01");
    EXPECT_EQ(feet(-17, FILM_35MM, 1), "-0001.01");
    EXPECT_EQ(feet(12 * 40 + 5, FILM_16MM, 1), " 0012.05");
    EXPECT_EQ(feet(12 * 40 + 5, FILM_16MM_INK, 0), "   12.05");
    EXPECT_EQ(feet(0, FILM_35MM, 0), "    0.00");
    EXPECT_EQ(feet(16 * 123456 + 3, FILM_35MM, 0), " 123456.03");  // wider than the field
    EXPECT_EQ(feet(17, FILM_INVALID, 0), "INVALID");

    // 3-perf footage starts two perforations into the first foot.
    EXPECT_EQ(feet(20, FILM_35MM_3PERF, 0), "    0.20");
    EXPECT_EQ(feet(21, FILM_35MM_3PERF, 0), "    1.00");
    EXPECT_EQ(feet(22, FILM_35MM_3PERF, 0), "    1.01");
    EXPECT_EQ(framesOf("    0.20", FILM_35MM_3PERF), 20);
    EXPECT_EQ(framesOf("    1.00", FILM_35MM_3PERF), 21);
    EXPECT_EQ(framesOf("    1.01", FILM_35MM_3PERF), 22);

    const foot_num invalid = frames_to_foot_num(17, FILM_INVALID);
    EXPECT_EQ(invalid.feet, kInvalidFeet);
    EXPECT_EQ(invalid.frame, 0);
}

TEST(FilmFootage, EveryGaugeBothWaysOverARange) {
    for (film_gauge g : kGauges) {
        SCOPED_TRACE(film_gauge_to_str(g));
        foot_num previous = frames_to_foot_num(0, g);
        for (int n = 0; n <= 5000; ++n) {
            const foot_num f = frames_to_foot_num(n, g);
            // The footage counts up one frame at a time, rolling over to the next foot.
            if (n > 0) {
                const bool nextFrame = f.feet == previous.feet && f.frame == previous.frame + 1;
                const bool nextFoot = f.feet == previous.feet + 1 && f.frame == 0;
                EXPECT_TRUE(nextFrame || nextFoot) << n;
            }
            previous = f;
            for (int zeroPad : {0, 1}) {
                EXPECT_EQ(framesOf(feet(n, g, zeroPad), g), n);
                EXPECT_EQ(framesOf(feet(-n, g, zeroPad), g), -n);
            }
        }
    }
    // Feet hold 40 frames of 16mm and 16 of 35mm; 3-perf repeats every 64 frames in 3 feet.
    EXPECT_EQ(frames_to_foot_num(4000, FILM_16MM).feet, 100);
    EXPECT_EQ(frames_to_foot_num(1600, FILM_35MM).feet, 100);
    for (int n = 0; n < 64; ++n) {
        const foot_num a = frames_to_foot_num(n, FILM_35MM_3PERF),
                       b = frames_to_foot_num(n + 64, FILM_35MM_3PERF);
        EXPECT_EQ(b.feet, a.feet + 3);
        EXPECT_EQ(b.frame, a.frame);
    }
}

TEST(FilmFootage, ReadingLooseText) {
    EXPECT_EQ(framesOf("12+05", FILM_16MM), 485);  // any one separator
    EXPECT_EQ(framesOf("ft 12.05", FILM_16MM), 485);
    EXPECT_EQ(framesOf("12", FILM_35MM), 192);
    EXPECT_EQ(framesOf("12.", FILM_35MM), 192);
    EXPECT_EQ(framesOf("12..5", FILM_35MM), 192);  // the frames must follow one separator
    EXPECT_EQ(framesOf("", FILM_35MM), 0);
    EXPECT_EQ(framesOf("abc", FILM_35MM), 0);
    EXPECT_EQ(framesOf(" -12.05", FILM_16MM), 485);  // only a minus in the very first place counts
    EXPECT_EQ(framesOf("12.05", FILM_INVALID), -1);
    EXPECT_EQ(feet_to_frames(nullptr, FILM_35MM), 0);
    // Absurdly long digit runs must not overflow the arithmetic.
    (void)framesOf("99999999999999999999999.99999999999999999", FILM_35MM_3PERF);
}

TEST(TvStandard, EdlCodesBothWays) {
    EXPECT_STREQ(tv_standard_to_edlstr({FR25, false}), "P");
    EXPECT_STREQ(tv_standard_to_edlstr({FR50, true}), "P");
    for (FrameRate r : {FR30, FR30M, FR60, FR60M}) {
        EXPECT_STREQ(tv_standard_to_edlstr({r, false}), "N");
        EXPECT_STREQ(tv_standard_to_edlstr({r, true}), "ND");
    }
    for (FrameRate r : {FR24, FR24M, FR48, FR12_5, FR240M, FRInvalid})
        EXPECT_STREQ(tv_standard_to_edlstr({r, true}), "P24");

    struct Read {
        const char* code;
        FrameRate rate;
        bool drop;
    };
    const Read reads[] = {{"P", FR25, false},      {"N", FR30M, false},       {"ND", FR30M, true},
                          {"P24", FR24, false},    {"N24", FR24, false},      {"ND24", FR24, true},
                          {"p", FRInvalid, false}, {"NDF", FRInvalid, false}, {"", FRInvalid, false}};
    for (const Read& r : reads) {
        const TCInf info = edlstr_to_tv_standard(r.code);
        EXPECT_EQ(info.rate, r.rate) << r.code;
        EXPECT_EQ(info.dropFrame, r.drop) << r.code;
    }
    EXPECT_EQ(edlstr_to_tv_standard(nullptr).rate, FRInvalid);
    // "N" was written by 30 fps but reads back as 29.97.
    EXPECT_EQ(edlstr_to_tv_standard(tv_standard_to_edlstr({FR30, false})).rate, FR30M);

    EXPECT_EQ(tv_standard_to_film_gauge(FR24), FILM_INVALID);
    EXPECT_EQ(film_gauge_to_tv_standard(FILM_35MM), FRInvalid);
}

TEST(Pulldown, Families) {
    for (FrameRate r : {FR30, FR30M, FR60, FR60M}) {
        EXPECT_TRUE(can_add_pulldown(r));
        EXPECT_EQ(pd_film_cycle(r), 4);
        EXPECT_EQ(pd_cycle_size(r), 5);
    }
    for (FrameRate r : {FR25, FR50}) {
        EXPECT_TRUE(can_remove_pulldown(r));
        EXPECT_EQ(pd_film_cycle(r), 24);
        EXPECT_EQ(pd_cycle_size(r), 25);
    }
    for (FrameRate r : {FRInvalid, FR24, FR24M, FR48, FR12_5, FR15, FR100, FR120M, FR60D2}) {
        EXPECT_FALSE(can_add_pulldown(r));
        EXPECT_FALSE(can_remove_pulldown(r));
        EXPECT_EQ(pd_film_cycle(r), -1);
        EXPECT_EQ(pd_cycle_size(r), -1);
        EXPECT_EQ(add_pulldown(17, r, 2), 17);
        EXPECT_EQ(remove_pulldown(17, r, 2), 17);
    }
    EXPECT_EQ(playback_fps(FR30M), 30 / 1.001);
    EXPECT_EQ(vid_fps(FR25), 25.0);
}

TEST(Pulldown, CycleArithmetic) {
    EXPECT_EQ(add_pulldown(4, FR30, 0), 5);
    EXPECT_EQ(remove_pulldown(4, FR30, 0), 3);  // the fifth video frame repeats the fourth film frame
    EXPECT_EQ(remove_pulldown(5, FR30, 0), 4);
    EXPECT_EQ(add_pulldown(24, FR25, 0), 25);
    EXPECT_EQ(remove_pulldown(24, FR25, 0), 23);
    EXPECT_EQ(add_pulldown(3, FR30, 1), 4);  // one frame into the cycle, the fourth film frame is its last
    // Phases outside the cycle are brought into it: whole cycles added, or the remainder taken.
    EXPECT_EQ(add_pulldown(10, FR30M, -1), add_pulldown(10, FR30M, 3));
    EXPECT_EQ(add_pulldown(10, FR30M, -9), add_pulldown(10, FR30M, 3));
    EXPECT_EQ(add_pulldown(10, FR30M, 6), add_pulldown(10, FR30M, 2));
    EXPECT_EQ(remove_pulldown(10, FR30M, 7), remove_pulldown(10, FR30M, 2));
}

TEST(Pulldown, RemoveUndoesAddForEveryPhase) {
    for (FrameRate r : {FR30, FR60M, FR25, FR50}) {
        const int film = pd_film_cycle(r), video = pd_cycle_size(r);
        for (int phase = 0; phase < film; ++phase) {
            for (int n = 0; n <= 3000; ++n) {
                const int v = add_pulldown(n, r, phase);
                ASSERT_EQ(remove_pulldown(v, r, phase), n) << r << " phase " << phase << " n " << n;
                // A whole cycle of film is a whole cycle of video.
                ASSERT_EQ(add_pulldown(n + film, r, phase), v + video);
            }
        }
        // Video frames map onto film frames without gaps: each film frame shows once or twice.
        int previous = remove_pulldown(0, r, 0);
        for (int v = 1; v <= 500; ++v) {
            const int f = remove_pulldown(v, r, 0);
            ASSERT_TRUE(f == previous || f == previous + 1);
            previous = f;
        }
    }
}

TEST(EffectCookies, BuiltInIdentifiers) {
    struct Expected {
        const Cookie& cookie;
        char type;
        unsigned number;
    };
    const Expected expected[] = {{video_black, 'V', 1},   {audio_black, 'S', 1},    {video_dissolve, 'V', 2},
                                 {film_dissolve, 'V', 4}, {audio_dissolve, 'S', 2}, {video_mix50, 'V', 3},
                                 {audio_mix50, 'S', 3}};
    for (const Expected& e : expected) {
        EXPECT_TRUE(e.cookie.valid());
        EXPECT_EQ(e.cookie.getType(), e.type);
        EXPECT_EQ(e.cookie.getNumber(), e.number);
        EXPECT_EQ(e.cookie.getMachineNumber(), 647u);
        EXPECT_FALSE(e.cookie.isUUID());
    }
    EXPECT_TRUE(video_dissolve.isDissolve());
    EXPECT_TRUE(film_dissolve.isFilmDissolve());
    EXPECT_FALSE(video_black.isDissolve());
    EXPECT_STREQ(video_black.asString(false).c_str(), "VZ0Z0001");
}

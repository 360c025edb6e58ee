// Identifiers against libuuid, the peer a user would reach for: a cookie's short text both ways against
// uuid_unparse / uuid_parse of a UUID, the 40-character UUID form for reference, and making IdStamps
// against uuid_generate_time.

#include <ole/misc/Cookie.h>
#include <ole/misc/IdStamp.h>

#include <benchmark/benchmark.h>
#include <uuid/uuid.h>

#include <cstdlib>
#include <cstring>

namespace {

// Making an IdStamp looks up the machine number, which may create files in the product's directories:
// root them in a temporary directory unless the caller chose one.
const bool kHomeRooted = [] {
    if (std::getenv("QUORVANE_HOME")) return false;
    char dir[] = "/tmp/ole-bench-XXXXXX";
    return mkdtemp(dir) && setenv("QUORVANE_HOME", dir, 1) == 0;
}();

// A handful of texts so that the branch predictor cannot learn a single one.
const char* const kShortTexts[] = {"P00B002S", "E~0~0001", "G0(0ZZZZ", "S05B0007",
                                   "V(0Z1A2B", "P1Z30000", "OZ0Z101K", "R@3$0XYZ"};
constexpr unsigned kTextCount = sizeof kShortTexts / sizeof kShortTexts[0];

const char* const kUUIDTexts[] = {
    "6ba7b810-9dad-11d1-80b4-00c04fd430c8", "6ba7b811-9dad-11d1-80b4-00c04fd430c8",
    "f47ac10b-58cc-4372-a567-0e02b2c3d479", "00000000-0000-0000-0000-000000000001",
    "123e4567-e89b-12d3-a456-426614174000", "9c5b94b1-35ad-49bb-b118-8e8fc24abf80",
    "a0eebc99-9c0b-4ef8-bb6d-6bb9bd380a11", "c73bcdcc-2669-4bf6-81d3-e4ae73fb11fd"};

Cookie shortCookie(unsigned i) {
    return Cookie(kShortTexts[i % kTextCount], true);
}

// --- text out ---------------------------------------------------------------------------------------------

void BM_CookieShortToString(benchmark::State& state) {
    Cookie cookies[kTextCount];
    for (unsigned i = 0; i < kTextCount; ++i) cookies[i] = shortCookie(i);
    unsigned i = 0;
    for (auto _ : state) {
        LightweightString<char> text = cookies[i++ % kTextCount].asString(true);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_CookieShortToString);

void BM_CookieShortWriteText(benchmark::State& state) {
    Cookie cookies[kTextCount];
    for (unsigned i = 0; i < kTextCount; ++i) cookies[i] = shortCookie(i);
    char text[Cookie::kUUIDTextLength + 1];
    unsigned i = 0;
    for (auto _ : state) {
        cookies[i++ % kTextCount].writeText(text, true);
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_CookieShortWriteText);

void BM_UuidUnparse(benchmark::State& state) {
    uuid_t ids[kTextCount];
    for (unsigned i = 0; i < kTextCount; ++i) uuid_parse(kUUIDTexts[i], ids[i]);
    char text[37];
    unsigned i = 0;
    for (auto _ : state) {
        uuid_unparse(ids[i++ % kTextCount], text);
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_UuidUnparse);

void BM_CookieUUIDFormToString(benchmark::State& state) {
    Cookie cookies[kTextCount];
    for (unsigned i = 0; i < kTextCount; ++i) cookies[i] = Cookie('P', Qv::UUID(kUUIDTexts[i]), 0);
    unsigned i = 0;
    for (auto _ : state) {
        LightweightString<char> text = cookies[i++ % kTextCount].asString(true);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_CookieUUIDFormToString);

// --- text in ----------------------------------------------------------------------------------------------

void BM_CookieShortParse(benchmark::State& state) {
    unsigned i = 0;
    for (auto _ : state) {
        Cookie cookie(kShortTexts[i++ % kTextCount], true);
        benchmark::DoNotOptimize(cookie);
    }
}
BENCHMARK(BM_CookieShortParse);

void BM_UuidParse(benchmark::State& state) {
    uuid_t id;
    unsigned i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(uuid_parse(kUUIDTexts[i++ % kTextCount], id));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_UuidParse);

void BM_CookieUUIDFormParse(benchmark::State& state) {
    char texts[kTextCount][Cookie::kUUIDTextLength + 1];
    for (unsigned i = 0; i < kTextCount; ++i) {
        std::memcpy(texts[i], "P00-", 4);
        std::memcpy(texts[i] + 4, kUUIDTexts[i], 37);
    }
    unsigned i = 0;
    for (auto _ : state) {
        Cookie cookie(texts[i++ % kTextCount], true);
        benchmark::DoNotOptimize(cookie);
    }
}
BENCHMARK(BM_CookieUUIDFormParse);

// --- both ways --------------------------------------------------------------------------------------------

void BM_CookieShortRoundTrip(benchmark::State& state) {
    unsigned i = 0;
    for (auto _ : state) {
        const Cookie cookie(kShortTexts[i++ % kTextCount], true);
        LightweightString<char> text = cookie.asString(true);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_CookieShortRoundTrip);

void BM_UuidRoundTrip(benchmark::State& state) {
    uuid_t id;
    char text[37];
    unsigned i = 0;
    for (auto _ : state) {
        uuid_parse(kUUIDTexts[i++ % kTextCount], id);
        uuid_unparse(id, text);
        benchmark::DoNotOptimize(text);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_UuidRoundTrip);

// --- making identifiers -----------------------------------------------------------------------------------

void BM_IdStampMake(benchmark::State& state) {
    for (auto _ : state) {
        IdStamp stamp;
        benchmark::DoNotOptimize(stamp);
    }
}
BENCHMARK(BM_IdStampMake);

void BM_UuidGenerateTime(benchmark::State& state) {
    uuid_t id;
    for (auto _ : state) {
        uuid_generate_time(id);
        benchmark::DoNotOptimize(id);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_UuidGenerateTime);

void BM_IdStampToString(benchmark::State& state) {
    const IdStamp stamp;
    for (auto _ : state) {
        LightweightString<char> text = stamp.asString();
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_IdStampToString);

}  // namespace

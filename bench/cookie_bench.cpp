// Identifiers against libuuid, the peer a user would reach for: a cookie's short text and its 40-character
// UUID form both ways against uuid_unparse / uuid_parse of a UUID, membership in a set of cookies against a
// std::set of UUIDs, and making IdStamps against uuid_generate_time.

#include <ole/misc/Cookie.h>
#include <ole/misc/CookieSet.h>
#include <ole/misc/IdStamp.h>

#include <benchmark/benchmark.h>
#include <uuid/uuid.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <vector>

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

// The k-th of a family of distinct UUID texts, spread over the leading digits so sets order them well.
std::string uuidText(unsigned k) {
    char text[37];
    std::snprintf(text, sizeof text, "%08x-9dad-11d1-80b4-%012x", k * 2654435761u, k);
    return text;
}

Cookie shortCookie(unsigned i) {
    return Cookie(kShortTexts[i % kTextCount], true);
}

// --- text out ---------------------------------------------------------------------------------------------

void BM_ToText_OleShortCookieString(benchmark::State& state) {
    Cookie cookies[kTextCount];
    for (unsigned i = 0; i < kTextCount; ++i) cookies[i] = shortCookie(i);
    unsigned i = 0;
    for (auto _ : state) {
        LightweightString<char> text = cookies[i++ % kTextCount].asString(true);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_ToText_OleShortCookieString);

void BM_ToText_OleShortCookieBuffer(benchmark::State& state) {
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
BENCHMARK(BM_ToText_OleShortCookieBuffer);

void BM_ToText_Libuuid(benchmark::State& state) {
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
BENCHMARK(BM_ToText_Libuuid);

void BM_ToText_OleUUIDCookieString(benchmark::State& state) {
    Cookie cookies[kTextCount];
    for (unsigned i = 0; i < kTextCount; ++i) cookies[i] = Cookie('P', Qv::UUID(kUUIDTexts[i]), 0);
    unsigned i = 0;
    for (auto _ : state) {
        LightweightString<char> text = cookies[i++ % kTextCount].asString(true);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_ToText_OleUUIDCookieString);

// --- text in ----------------------------------------------------------------------------------------------

void BM_Parse_OleShortCookie(benchmark::State& state) {
    unsigned i = 0;
    for (auto _ : state) {
        Cookie cookie(kShortTexts[i++ % kTextCount], true);
        benchmark::DoNotOptimize(cookie);
    }
}
BENCHMARK(BM_Parse_OleShortCookie);

void BM_Parse_Libuuid(benchmark::State& state) {
    uuid_t id;
    unsigned i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(uuid_parse(kUUIDTexts[i++ % kTextCount], id));
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_Parse_Libuuid);

void BM_Parse_OleUUIDCookie(benchmark::State& state) {
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
BENCHMARK(BM_Parse_OleUUIDCookie);

// --- both ways --------------------------------------------------------------------------------------------

void BM_RoundTrip_OleShortCookie(benchmark::State& state) {
    unsigned i = 0;
    for (auto _ : state) {
        const Cookie cookie(kShortTexts[i++ % kTextCount], true);
        LightweightString<char> text = cookie.asString(true);
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_RoundTrip_OleShortCookie);

void BM_RoundTrip_Libuuid(benchmark::State& state) {
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
BENCHMARK(BM_RoundTrip_Libuuid);

// --- cookies in a set -----------------------------------------------------------------------------------

// Membership tests in a set of N cookies against a std::set of N UUIDs; half the probes are present.
void BM_SetContains_OleCookieSet(benchmark::State& state) {
    const unsigned n = unsigned(state.range(0));
    CookieSet set;
    for (unsigned i = 0; i < n; ++i) set.add(Cookie('P', Qv::UUID(uuidText(2 * i).c_str()), 0));
    std::vector<Cookie> probes;
    for (unsigned i = 0; i < 1024; ++i)
        probes.push_back(Cookie('P', Qv::UUID(uuidText(i * 7919u % (2 * n)).c_str()), 0));
    unsigned i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(set.contains(probes[i++ & 1023]));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_SetContains_OleCookieSet)->RangeMultiplier(8)->Range(64, 32768)->Complexity();

void BM_SetContains_StdSetUuid(benchmark::State& state) {
    using Id = std::array<unsigned char, 16>;
    const unsigned n = unsigned(state.range(0));
    std::set<Id> set;
    const auto idOf = [](unsigned k) {
        Id id;
        uuid_parse(uuidText(k).c_str(), id.data());
        return id;
    };
    for (unsigned i = 0; i < n; ++i) set.insert(idOf(2 * i));
    std::vector<Id> probes;
    for (unsigned i = 0; i < 1024; ++i) probes.push_back(idOf(i * 7919u % (2 * n)));
    unsigned i = 0;
    for (auto _ : state) benchmark::DoNotOptimize(set.count(probes[i++ & 1023]));
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_SetContains_StdSetUuid)->RangeMultiplier(8)->Range(64, 32768)->Complexity();

// --- making identifiers -----------------------------------------------------------------------------------

void BM_MakeId_OleIdStamp(benchmark::State& state) {
    for (auto _ : state) {
        IdStamp stamp;
        benchmark::DoNotOptimize(stamp);
    }
}
BENCHMARK(BM_MakeId_OleIdStamp);

void BM_MakeId_LibuuidTime(benchmark::State& state) {
    uuid_t id;
    for (auto _ : state) {
        uuid_generate_time(id);
        benchmark::DoNotOptimize(id);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_MakeId_LibuuidTime);

void BM_IdStampToText_OleIdStamp(benchmark::State& state) {
    const IdStamp stamp;
    for (auto _ : state) {
        LightweightString<char> text = stamp.asString();
        benchmark::DoNotOptimize(text);
    }
}
BENCHMARK(BM_IdStampToText_OleIdStamp);

}  // namespace

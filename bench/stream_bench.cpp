// Layered packing against the serializer a user would write by hand: the same fields of 100,000 small
// objects, memcpy'd into a std::vector<uint8_t> and read back with bounds checks. MB/s counts the
// objects' field bytes (the same for both), so the figures compare work done, not output size; the
// "stream_bytes" counter shows what each format wrote.

#include "support/SampleShapes.h"

#include <ole/misc/strmable.h>

#include <benchmark/benchmark.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr int kObjects = 100000;

using BenchCircle = oletest::Circle;

struct PlainCircle {
    int32_t sides = 0;
    double radius = 0;
    std::string label;
};

const char* labelFor(int i) {
    return i % 3 == 0 ? "wheel" : i % 3 == 1 ? "rim" : "hub cap";
}

// Field bytes of one object: the two numbers and the label with its terminator.
int64_t payloadBytes(int i) {
    return 4 + 8 + int64_t(std::strlen(labelFor(i))) + 1;
}

int64_t totalPayload() {
    int64_t total = 0;
    for (int i = 0; i < kObjects; ++i) total += payloadBytes(i);
    return total;
}

std::vector<BenchCircle> makeCircles() {
    std::vector<BenchCircle> circles(kObjects);
    for (int i = 0; i < kObjects; ++i) {
        circles[i].sides = i;
        circles[i].radius = i * 0.5;
        circles[i].label = labelFor(i);
    }
    return circles;
}

std::vector<PlainCircle> makePlainCircles() {
    std::vector<PlainCircle> circles(kObjects);
    for (int i = 0; i < kObjects; ++i) circles[i] = PlainCircle{i, i * 0.5, labelFor(i)};
    return circles;
}

void packAll(const std::vector<BenchCircle>& circles, StreamFile& f) {
    f.clear();
    PStream s(&f);
    for (const BenchCircle& c : circles) c.STRM_hierarchyPack(s);
}

// The obvious hand-written format: fields in order, the label with a 32-bit length.
void packPlain(const std::vector<PlainCircle>& circles, std::vector<uint8_t>& out) {
    out.clear();
    auto put = [&out](const void* p, std::size_t n) {
        const uint8_t* b = static_cast<const uint8_t*>(p);
        out.insert(out.end(), b, b + n);
    };
    for (const PlainCircle& c : circles) {
        put(&c.sides, sizeof c.sides);
        put(&c.radius, sizeof c.radius);
        const uint32_t n = uint32_t(c.label.size());
        put(&n, sizeof n);
        put(c.label.data(), n);
    }
}

bool unpackPlain(const std::vector<uint8_t>& in, std::vector<PlainCircle>& circles) {
    std::size_t at = 0;
    auto get = [&](void* p, std::size_t n) {
        if (n > in.size() - at) return false;
        std::memcpy(p, in.data() + at, n);
        at += n;
        return true;
    };
    for (PlainCircle& c : circles) {
        uint32_t n = 0;
        if (!get(&c.sides, sizeof c.sides) || !get(&c.radius, sizeof c.radius) || !get(&n, sizeof n) ||
            n > in.size() - at) {
            return false;
        }
        c.label.assign(reinterpret_cast<const char*>(in.data() + at), n);
        at += n;
    }
    return true;
}

void report(benchmark::State& state, std::size_t streamBytes) {
    state.SetBytesProcessed(state.iterations() * totalPayload());
    state.SetItemsProcessed(state.iterations() * kObjects);
    state.counters["stream_bytes"] = double(streamBytes);
}

void BM_Pack100k_OleStreamable(benchmark::State& state) {
    const std::vector<BenchCircle> circles = makeCircles();
    StreamFile f;
    packAll(circles, f);
    f.reserve(f.size());
    for (auto _ : state) {
        packAll(circles, f);
        benchmark::DoNotOptimize(f.data());
    }
    report(state, f.size());
}
BENCHMARK(BM_Pack100k_OleStreamable)->Unit(benchmark::kMillisecond);

void BM_Pack100k_HandWritten(benchmark::State& state) {
    const std::vector<PlainCircle> circles = makePlainCircles();
    std::vector<uint8_t> out;
    packPlain(circles, out);
    for (auto _ : state) {
        packPlain(circles, out);
        benchmark::DoNotOptimize(out.data());
    }
    report(state, out.size());
}
BENCHMARK(BM_Pack100k_HandWritten)->Unit(benchmark::kMillisecond);

void BM_Unpack100k_OleStreamable(benchmark::State& state) {
    StreamFile f;
    packAll(makeCircles(), f);
    std::vector<BenchCircle> circles(kObjects);
    for (auto _ : state) {
        f.seek(0);
        PStream s(&f);
        for (BenchCircle& c : circles) {
            if (c.STRM_hierarchyUnpack(s) != STRM_OK) state.SkipWithError("unpack failed");
        }
        benchmark::DoNotOptimize(circles.data());
    }
    report(state, f.size());
}
BENCHMARK(BM_Unpack100k_OleStreamable)->Unit(benchmark::kMillisecond);

void BM_Unpack100k_HandWritten(benchmark::State& state) {
    std::vector<uint8_t> in;
    packPlain(makePlainCircles(), in);
    std::vector<PlainCircle> circles(kObjects);
    for (auto _ : state) {
        if (!unpackPlain(in, circles)) state.SkipWithError("unpack failed");
        benchmark::DoNotOptimize(circles.data());
    }
    report(state, in.size());
}
BENCHMARK(BM_Unpack100k_HandWritten)->Unit(benchmark::kMillisecond);

}  // namespace

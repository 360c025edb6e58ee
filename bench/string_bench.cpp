// Core types against the standard library: LightweightString<char> vs std::string, Qv::Ptr vs
// std::shared_ptr. Each benchmark is a template run once per type so the two read side by side.

#include <ole/Qv/LightweightString.h>
#include <ole/Qv/Ptr.h>

#include <benchmark/benchmark.h>

#include <memory>
#include <string>
#include <thread>

namespace {

const char kText64[] = "0123456789abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ-_";
static_assert(sizeof(kText64) == 65, "the copied text is 64 characters");

// libstdc++ gives std::shared_ptr a plain, non-interlocked count until the process starts its first
// thread. The editor always runs worker threads, and other benchmarks in this binary may start some, so
// one thread is started before any benchmark runs: every count measured here is interlocked, whatever
// ran first.
const bool kThreadsStarted = [] {
    std::thread([] {}).join();
    return true;
}();

// Copy and destroy: a shared block costs a count increment and decrement, std::string a heap copy.
template <class String>
void BM_StringCopy64(benchmark::State& state) {
    const String source(kText64);
    for (auto _ : state) {
        String copy(source);
        benchmark::DoNotOptimize(copy);
        benchmark::ClobberMemory();
    }
}
BENCHMARK_TEMPLATE(BM_StringCopy64, LightweightString<char>);
BENCHMARK_TEMPLATE(BM_StringCopy64, std::string);

// The same copy over lengths from 16 characters to 64 KiB: a shared block costs the same at every length.
template <class String>
void BM_StringCopy(benchmark::State& state) {
    const std::string text(std::size_t(state.range(0)), 'x');
    const String source(text.c_str());
    for (auto _ : state) {
        String copy(source);
        benchmark::DoNotOptimize(copy);
        benchmark::ClobberMemory();
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK_TEMPLATE(BM_StringCopy, LightweightString<char>)
    ->RangeMultiplier(4)
    ->Range(16, 65536)
    ->Complexity();
BENCHMARK_TEMPLATE(BM_StringCopy, std::string)->RangeMultiplier(4)->Range(16, 65536)->Complexity();

// Grows one character at a time from empty; exercises the in-place test and the doubling growth.
template <class String>
void BM_StringPushBack1M(benchmark::State& state) {
    constexpr unsigned kCount = 1000000;
    for (auto _ : state) {
        String text;
        for (unsigned i = 0; i < kCount; ++i) text.push_back(char('a' + (i & 15)));
        benchmark::DoNotOptimize(text.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * kCount);
}
BENCHMARK_TEMPLATE(BM_StringPushBack1M, LightweightString<char>)->Unit(benchmark::kMillisecond);
BENCHMARK_TEMPLATE(BM_StringPushBack1M, std::string)->Unit(benchmark::kMillisecond);

// Two equal texts in separate blocks, so no shortcut on a shared block applies.
template <class String>
void BM_StringEqual64(benchmark::State& state) {
    String a(kText64);
    String b(kText64);
    if (a.data() == b.data()) state.SkipWithError("the two strings share a block");
    for (auto _ : state) {
        benchmark::DoNotOptimize(a);
        benchmark::DoNotOptimize(b);
        bool equal = a == b;
        benchmark::DoNotOptimize(equal);
    }
}
BENCHMARK_TEMPLATE(BM_StringEqual64, LightweightString<char>);
BENCHMARK_TEMPLATE(BM_StringEqual64, std::string);

struct SharedThing : iObject {
    int value = 7;
};

// Copy and release of a pointer to an object that stays alive: one interlocked increment and decrement.
Qv::Ptr<SharedThing> makeOwner(Qv::Ptr<SharedThing>*) {
    return Qv::Ptr<SharedThing>(new SharedThing);
}
std::shared_ptr<SharedThing> makeOwner(std::shared_ptr<SharedThing>*) {
    return std::make_shared<SharedThing>();
}

template <class Pointer>
void BM_PtrCopyRelease(benchmark::State& state) {
    const Pointer owner = makeOwner(static_cast<Pointer*>(nullptr));
    for (auto _ : state) {
        Pointer copy(owner);
        benchmark::DoNotOptimize(copy);
        benchmark::ClobberMemory();
    }
}
BENCHMARK_TEMPLATE(BM_PtrCopyRelease, Qv::Ptr<SharedThing>);
BENCHMARK_TEMPLATE(BM_PtrCopyRelease, std::shared_ptr<SharedThing>);

}  // namespace

// The command map against the containers a caller would otherwise use: findCommand against a
// std::unordered_map from name to identifier, findCommandByDisplayName against a linear scan of wide
// strings, both over 5,000 commands; key dispatch through CommandMapMMC against a hash map of function
// pointers; and zlib through QvDataCompression against calling zlib directly.

#include <ole/misc/CommandMap.h>
#include <ole/misc/CommandMapMMC.h>
#include <ole/misc/QvDataCompression.h>

#include <benchmark/benchmark.h>
#include <zlib.h>

#include <cwchar>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

constexpr int kCommands = 5000;
long counter = 0;
void bump(const Cmd::Context&) {
    ++counter;
}
void bumpPlain() {
    ++counter;
}

std::string commandName(int i) {
    return "cmd.group" + std::to_string(i % 50) + ".item" + std::to_string(i);
}
std::wstring displayName(int i) {
    return L"Command Number " + std::to_wstring(i);
}

// A private map with kCommands commands (the singleton is left alone).
struct Fixture {
    CommandMap map;
    std::vector<std::string> names;
    Fixture() {
        for (int i = 0; i < kCommands; ++i) {
            names.push_back(commandName(i));
            map.registerCommand(names.back().c_str(), &bump, nullptr, 0, UIString(displayName(i).c_str()),
                                UIString(), MapItem());
        }
    }
};

void BM_FindCommand_CommandMap(benchmark::State& state) {
    Fixture f;
    int i = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(f.map.findCommand(f.names[i].c_str()));
        i = (i + 7919) % kCommands;
    }
}
BENCHMARK(BM_FindCommand_CommandMap);

void BM_FindCommand_StdUnorderedMap(benchmark::State& state) {
    std::vector<std::string> names;
    std::unordered_map<std::string, unsigned long> map;
    for (int i = 0; i < kCommands; ++i) {
        names.push_back(commandName(i));
        map.emplace(names.back(), i);
    }
    int i = 0;
    for (auto _ : state) {
        const auto it = map.find(std::string(names[i].c_str()));  // callers hold a const char*
        benchmark::DoNotOptimize(it == map.end() ? ~0ul : it->second);
        i = (i + 7919) % kCommands;
    }
}
BENCHMARK(BM_FindCommand_StdUnorderedMap);

// The display name looked up sits in the middle of the 5,000 and is given in another case.
void BM_FindByDisplayName_CommandMap(benchmark::State& state) {
    Fixture f;
    const LightweightString<wchar_t> wanted = L"COMMAND NUMBER 2500";
    for (auto _ : state) benchmark::DoNotOptimize(f.map.findCommandByDisplayName(wanted));
}
BENCHMARK(BM_FindByDisplayName_CommandMap);

void BM_FindByDisplayName_LinearScan(benchmark::State& state) {
    std::vector<std::wstring> names;
    for (int i = 0; i < kCommands; ++i) names.push_back(displayName(i));
    const std::wstring wanted = L"COMMAND NUMBER 2500";
    for (auto _ : state) {
        unsigned long found = ~0ul;
        for (std::size_t i = 0; i < names.size(); ++i)
            if (::wcscasecmp(names[i].c_str(), wanted.c_str()) == 0) {
                found = i;
                break;
            }
        benchmark::DoNotOptimize(found);
    }
}
BENCHMARK(BM_FindByDisplayName_LinearScan);

// A key press dispatched to one of 5,000 commands in the singleton map.
void BM_TryKey_CommandMapMMC(benchmark::State& state) {
    CommandMap* map = CommandMap::theCommandMap();
    for (int i = 0; i < kCommands; ++i)
        map->registerCommand(("key." + commandName(i)).c_str(), &bumpPlain, UIString(), UIString(),
                             CommandMap::eScopeInternal, MapItem(i == 2500 ? KeyCode::kCtrl | 'K' : 0));
    CommandMapMMC mmc;
    for (auto _ : state) benchmark::DoNotOptimize(mmc.tryKey(KeyCode::kCtrl | 'K', KeyEvent::Press));
}
BENCHMARK(BM_TryKey_CommandMapMMC);

void BM_TryKey_StdUnorderedMap(benchmark::State& state) {
    std::unordered_map<int, void (*)()> keys;
    for (int i = 0; i < kCommands; ++i) keys.emplace(0x10000 + i, &bumpPlain);
    keys[KeyCode::kCtrl | 'K'] = &bumpPlain;
    for (auto _ : state) {
        const auto it = keys.find(KeyCode::kCtrl | 'K');
        if (it != keys.end()) it->second();
        benchmark::DoNotOptimize(counter);
    }
}
BENCHMARK(BM_TryKey_StdUnorderedMap);

// ---- zlib -----------------------------------------------------------------------------------------------

const std::vector<uint8_t>& sample() {
    static const std::vector<uint8_t> bytes = [] {
        std::vector<uint8_t> b(std::size_t(4) << 20);
        uint32_t x = 1;
        for (std::size_t i = 0; i < b.size(); ++i) {
            x = x * 1103515245u + 12345u;
            b[i] = uint8_t((x >> 16) % 13 + 'a');
        }
        return b;
    }();
    return bytes;
}

const std::vector<uint8_t>& packedSample() {
    static const std::vector<uint8_t> packed = [] {
        std::vector<uint8_t> p;
        QvDataCompression::zlibCompress(sample().data(), sample().size(), p);
        return p;
    }();
    return packed;
}

void BM_ZlibCompress_QvDataCompression(benchmark::State& state) {
    const std::vector<uint8_t>& in = sample();
    for (auto _ : state) {
        std::vector<uint8_t> out;
        QvDataCompression::zlibCompress(in.data(), in.size(), out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(in.size()));
}
BENCHMARK(BM_ZlibCompress_QvDataCompression)->Unit(benchmark::kMillisecond);

void BM_ZlibCompress_Direct(benchmark::State& state) {
    const std::vector<uint8_t>& in = sample();
    for (auto _ : state) {
        uLongf length = compressBound(in.size());
        std::vector<uint8_t> out(length);
        compress2(out.data(), &length, in.data(), in.size(), Z_DEFAULT_COMPRESSION);
        out.resize(length);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(in.size()));
}
BENCHMARK(BM_ZlibCompress_Direct)->Unit(benchmark::kMillisecond);

// Arg 1: the uncompressed size is passed as a hint, as the direct call needs it; arg 0: it is not.
void BM_ZlibUncompress_QvDataCompression(benchmark::State& state) {
    const std::vector<uint8_t>& in = packedSample();
    const std::size_t hint = state.range(0) ? sample().size() : 0;
    for (auto _ : state) {
        std::vector<uint8_t> out;
        QvDataCompression::zlibUncompress(in.data(), in.size(), out, std::size_t(1) << 30, hint);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(sample().size()));
}
BENCHMARK(BM_ZlibUncompress_QvDataCompression)->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond);

void BM_ZlibUncompress_Direct(benchmark::State& state) {
    const std::vector<uint8_t>& in = packedSample();
    for (auto _ : state) {
        uLongf length = sample().size();
        std::vector<uint8_t> out(length);
        uncompress(out.data(), &length, in.data(), in.size());
        benchmark::DoNotOptimize(out.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(sample().size()));
}
BENCHMARK(BM_ZlibUncompress_Direct)->Unit(benchmark::kMillisecond);

}  // namespace

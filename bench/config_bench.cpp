// configb text form against the obvious alternative: a std::map<std::string, std::string> filled by a
// getline loop and written back with string appends. Both read and write the same 10,000-entry text, so
// the MB/s figures compare directly.

#include <ole/misc/configb.h>

#include <benchmark/benchmark.h>

#include <cstdio>
#include <map>
#include <sstream>
#include <string>

namespace {

constexpr int kEntries = 10000;

// A record of mixed entries, the way settings files look: integers, decimals, flags and short texts.
const configb& sampleRecord() {
    static const configb record = [] {
        configb c;
        char name[32];
        for (int i = 0; i < kEntries; ++i) {
            std::snprintf(name, sizeof name, "Setting%05d", i);
            switch (i % 4) {
                case 0:
                    c.set(name, i * 37);
                    break;
                case 1:
                    c.set(name, i / 7.0);
                    break;
                case 2:
                    c.set(name, i % 3 == 0);
                    break;
                default:
                    c.set(name, "a short text value: with spaces");
                    break;
            }
        }
        return c;
    }();
    return record;
}

const LightweightString<char>& sampleText() {
    static const LightweightString<char> text = sampleRecord().asString();
    return text;
}

using PlainMap = std::map<std::string, std::string>;

// The baseline reader: one getline per line, trim, split the name token off, store the rest.
PlainMap readPlain(const std::string& text) {
    PlainMap out;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        const std::size_t first = line.find_first_not_of(" \t\r");
        if (first == std::string::npos || line[first] == '#' || line == "{") continue;
        if (line == "}") break;
        const std::size_t nameEnd = line.find_first_of(" \t", first);
        std::string value;
        if (nameEnd != std::string::npos) {
            const std::size_t valueStart = line.find_first_not_of(" \t", nameEnd);
            const std::size_t valueEnd = line.find_last_not_of(" \t\r");
            if (valueStart != std::string::npos) value = line.substr(valueStart, valueEnd - valueStart + 1);
        }
        out[line.substr(first, nameEnd - first)] = value;
    }
    return out;
}

std::string writePlain(const PlainMap& map) {
    std::string out = "{\n";
    for (const auto& [name, value] : map) out += "  " + name + " " + value + "\n";
    out += "}";
    return out;
}

void BM_ConfigRead_OleConfigb(benchmark::State& state) {
    const LightweightString<char>& text = sampleText();
    for (auto _ : state) {
        configb c;
        if (!c.fromString(text) || c.size() != unsigned(kEntries))
            state.SkipWithError("text did not read back");
        benchmark::DoNotOptimize(c);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * text.size());
}
BENCHMARK(BM_ConfigRead_OleConfigb)->Unit(benchmark::kMillisecond);

void BM_ConfigRead_StdMap(benchmark::State& state) {
    const std::string text = sampleText().c_str();
    for (auto _ : state) {
        PlainMap map = readPlain(text);
        if (map.size() != std::size_t(kEntries)) state.SkipWithError("text did not read back");
        benchmark::DoNotOptimize(map);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * text.size());
}
BENCHMARK(BM_ConfigRead_StdMap)->Unit(benchmark::kMillisecond);

// Reading N entries, N from a thousand to a quarter of a million: both readers should stay linear.
const std::string& scaledText(int n) {
    static std::map<int, std::string> texts;
    std::string& text = texts[n];
    if (text.empty()) {
        text = "{\n";
        char line[64];
        for (int i = 0; i < n; ++i) {
            std::snprintf(line, sizeof line, "  Entry%07d:int %d\n", i, i);
            text += line;
        }
        text += "}";
    }
    return text;
}

void BM_ConfigReadEntries_OleConfigb(benchmark::State& state) {
    const LightweightString<char> text(scaledText(int(state.range(0))).c_str());
    for (auto _ : state) {
        configb c;
        if (!c.fromString(text) || c.size() != unsigned(state.range(0)))
            state.SkipWithError("text did not read back");
        benchmark::DoNotOptimize(c);
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ConfigReadEntries_OleConfigb)
    ->RangeMultiplier(8)
    ->Range(1 << 10, 1 << 18)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

void BM_ConfigReadEntries_StdMap(benchmark::State& state) {
    const std::string& text = scaledText(int(state.range(0)));
    for (auto _ : state) {
        PlainMap map = readPlain(text);
        if (map.size() != std::size_t(state.range(0))) state.SkipWithError("text did not read back");
        benchmark::DoNotOptimize(map);
    }
    state.SetComplexityN(state.range(0));
}
BENCHMARK(BM_ConfigReadEntries_StdMap)
    ->RangeMultiplier(8)
    ->Range(1 << 10, 1 << 18)
    ->Unit(benchmark::kMillisecond)
    ->Complexity();

void BM_ConfigWrite_OleConfigb(benchmark::State& state) {
    const configb& record = sampleRecord();
    std::size_t bytes = 0;
    for (auto _ : state) {
        const LightweightString<char> text = record.asString();
        bytes = text.size();
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(int64_t(state.iterations() * bytes));
}
BENCHMARK(BM_ConfigWrite_OleConfigb)->Unit(benchmark::kMillisecond);

void BM_ConfigWrite_StdMap(benchmark::State& state) {
    const PlainMap map = readPlain(sampleText().c_str());
    std::size_t bytes = 0;
    for (auto _ : state) {
        const std::string text = writePlain(map);
        bytes = text.size();
        benchmark::DoNotOptimize(text);
    }
    state.SetBytesProcessed(int64_t(state.iterations() * bytes));
}
BENCHMARK(BM_ConfigWrite_StdMap)->Unit(benchmark::kMillisecond);

}  // namespace

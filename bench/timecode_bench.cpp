// Timecode conversions, ours beside FFmpeg's libavutil, at 29.97 drop frame and 25 non-drop:
//   frame number -> timecode text: frames_to_tc + tc_to_string   vs  av_timecode_make_string
//   timecode text -> frame number: string_to_tc + tc_to_frames   vs  av_timecode_init_from_string
// Both sides see the same frame numbers, spread over a whole day, and read the same texts (FFmpeg's).

extern "C" {
#include <libavutil/timecode.h>
}

#include <ole/misc/ProjectRate.h>
#include <ole/misc/tccvt.h>

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace {

struct Kind {
    Qv::FrameRate rate;
    bool drop;
    AVRational avRate;
    int framesPerDay;
};

const Kind kDrop2997{Qv::FR30M, true, {30000, 1001}, DropFrame::kFramesPerDay};
const Kind kPal25{Qv::FR25, false, {25, 1}, 25 * 86400};

AVTimecode avTimecode(const Kind& kind) {
    AVTimecode tc;
    av_timecode_init(&tc, kind.avRate,
                     AV_TIMECODE_FLAG_24HOURSMAX | (kind.drop ? AV_TIMECODE_FLAG_DROPFRAME : 0), 0, nullptr);
    return tc;
}

// 4096 frame numbers that stride across the day, so no branch of the label arithmetic is favoured.
std::vector<int> frameNumbers(const Kind& kind) {
    std::vector<int> frames(4096);
    for (size_t i = 0; i < frames.size(); ++i)
        frames[i] = int((i * 7919u * 97u) % unsigned(kind.framesPerDay));
    return frames;
}

std::vector<std::string> texts(const Kind& kind) {
    const AVTimecode tc = avTimecode(kind);
    std::vector<std::string> out;
    char buffer[AV_TIMECODE_STR_SIZE];
    for (int n : frameNumbers(kind)) out.emplace_back(av_timecode_make_string(&tc, buffer, n));
    return out;
}

void BM_FrameToText_Ole(benchmark::State& state, const Kind& kind) {
    const std::vector<int> frames = frameNumbers(kind);
    char buffer[13];
    size_t i = 0;
    for (auto _ : state) {
        const double seconds = frames_to_tc(frames[i++ & 4095], kind.rate, 0, 0);
        tc_to_string(seconds, buffer, kTcFull, kind.rate, kind.drop);
        benchmark::DoNotOptimize(buffer);
    }
}

void BM_FrameToText_FFmpeg(benchmark::State& state, const Kind& kind) {
    const std::vector<int> frames = frameNumbers(kind);
    const AVTimecode tc = avTimecode(kind);
    char buffer[AV_TIMECODE_STR_SIZE];
    size_t i = 0;
    for (auto _ : state) {
        av_timecode_make_string(&tc, buffer, frames[i++ & 4095]);
        benchmark::DoNotOptimize(buffer);
    }
}

void BM_TextToFrame_Ole(benchmark::State& state, const Kind& kind) {
    const std::vector<std::string> input = texts(kind);
    size_t i = 0;
    for (auto _ : state) {
        const double seconds = string_to_tc(input[i++ & 4095].c_str(), kind.rate, kind.drop);
        benchmark::DoNotOptimize(tc_to_frames(seconds, kind.rate, 0, 0));
    }
}

void BM_TextToFrame_FFmpeg(benchmark::State& state, const Kind& kind) {
    const std::vector<std::string> input = texts(kind);
    AVTimecode tc;
    size_t i = 0;
    for (auto _ : state) {
        av_timecode_init_from_string(&tc, kind.avRate, input[i++ & 4095].c_str(), nullptr);
        benchmark::DoNotOptimize(tc.start);
    }
}

}  // namespace

BENCHMARK_CAPTURE(BM_FrameToText_Ole, 2997DF, kDrop2997);
BENCHMARK_CAPTURE(BM_FrameToText_FFmpeg, 2997DF, kDrop2997);
BENCHMARK_CAPTURE(BM_FrameToText_Ole, 25, kPal25);
BENCHMARK_CAPTURE(BM_FrameToText_FFmpeg, 25, kPal25);
BENCHMARK_CAPTURE(BM_TextToFrame_Ole, 2997DF, kDrop2997);
BENCHMARK_CAPTURE(BM_TextToFrame_FFmpeg, 2997DF, kDrop2997);
BENCHMARK_CAPTURE(BM_TextToFrame_Ole, 25, kPal25);
BENCHMARK_CAPTURE(BM_TextToFrame_FFmpeg, 25, kPal25);

// The workers of the audio wizard: those that wait for memory, in bytes of float samples a second, and the
// search for loops.
#include <benchmark/benchmark.h>

#include <cmath>
#include <random>

#include "model/wave.h"
#include "model/wave_data.h"
#include "model/workspace.h"
#include "wizards/loop_search.h"
#include "wizards/wave_edit.h"

namespace {

using namespace kv;

constexpr u32 kFrames = 60 * 44100, kChannels = 2;

Wave& floatWave() {
    Wave& wave = *store().Create<Wave>(kNextFreeNumber, nullptr, "noise");
    wave.frames = kFrames;
    wave.channels = kChannels;
    wave.sourceFile = kMemoryOnly;
    wave.reloadable = false;
    wave.samplesFloat.allocate(std::size_t{kFrames} * kChannels);
    std::mt19937 random(1);
    for (std::size_t i = 0; i < std::size_t{kFrames} * kChannels; ++i)
        wave.samplesFloat.data()[i] = static_cast<f32>(random()) / 4294967296.0F - 0.4F;
    return wave;
}

template <class Work>
void onFloats(benchmark::State& state, Work work) {
    Workspace space;
    const WorkspaceScope scope(space);
    Wave& wave = floatWave();
    for (auto _ : state) work(wave);
    state.SetBytesProcessed(static_cast<i64>(state.iterations()) * i64{kFrames} * kChannels * 4);
}

constexpr FrameRange kAll{};
void BM_Adjust(benchmark::State& state) {
    f64 decibels = -1; // up and down, so that nothing gets limited or vanishes
    onFloats(state, [&](Wave& wave) { AdjustVolume(wave, decibels = -decibels); });
}
void BM_FadeIn(benchmark::State& state) {
    onFloats(state, [](Wave& wave) { FadeRange(wave, kAll, Fade::LinearIn); });
}
void BM_Invert(benchmark::State& state) {
    onFloats(state, [](Wave& wave) { InvertRange(wave, kAll); });
}
void BM_Reverse(benchmark::State& state) {
    onFloats(state, [](Wave& wave) { ReverseRange(wave, kAll); });
}
void BM_RemoveDcOffset(benchmark::State& state) {
    onFloats(state, [](Wave& wave) { RemoveDcOffset(wave); });
}
BENCHMARK(BM_Adjust)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_FadeIn)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Invert)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Reverse)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_RemoveDcOffset)->Unit(benchmark::kMillisecond);

/// What memory gives: read and written in place.
void BM_Copy(benchmark::State& state) {
    std::vector<f32> from(std::size_t{kFrames} * kChannels), to(from.size());
    for (auto _ : state) {
        std::copy(from.begin(), from.end(), to.begin());
        benchmark::DoNotOptimize(to.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<i64>(state.iterations()) * static_cast<i64>(from.size() * 4));
}
BENCHMARK(BM_Copy)->Unit(benchmark::kMillisecond);

/// Ten seconds, ends in the last quarter. A tone, and noise in thousandths of the whole.
void BM_AutoLoop(benchmark::State& state) {
    constexpr u32 kRate = 44100, kLength = 10 * kRate;
    std::mt19937 random(1);
    std::vector<f32> samples(kLength);
    const f64 noise = static_cast<f64>(state.range(0)) / 1000;
    for (u32 i = 0; i < kLength; ++i) {
        const f64 tone = std::sin(2 * 3.14159265358979 * 440 * i / kRate);
        samples[i] =
            static_cast<f32>((1 - noise) * tone + noise * (static_cast<f64>(random()) / 2147483648 - 1));
    }
    for (auto _ : state) {
        const LoopScore score(samples);
        benchmark::DoNotOptimize(
            findLoop(score, loopSearchRange(score, kRate, 440, 0.75F), [](u64, u64) { return true; }));
    }
}
BENCHMARK(BM_AutoLoop)
    ->Arg(0)
    ->Arg(1)
    ->Arg(3)
    ->Arg(10)
    ->Arg(30)
    ->Arg(100)
    ->Arg(1000)
    ->Unit(benchmark::kMillisecond);

} // namespace

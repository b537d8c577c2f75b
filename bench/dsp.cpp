// The signal engines, in seconds of stereo for each second of one core; beside them libsoxr and
// libsamplerate where they are installed.
#include <benchmark/benchmark.h>

#include <cmath>
#include <vector>

#include "dsp/loudness.h"
#include "dsp/resampler.h"
#include "dsp/time_stretch.h"
#ifdef KV_HAS_SOXR
#include <soxr.h>
#endif
#ifdef KV_HAS_SAMPLERATE
#include <samplerate.h>
#endif

namespace kv {
namespace {

constexpr u32 kInRate = 44100, kOutRate = 48000;
constexpr std::size_t kSeconds = 20, kFrames = kSeconds * kInRate, kBlock = 4096;

std::vector<f32> music() {
    std::vector<f32> wave(2 * kFrames);
    for (std::size_t i = 0; i < wave.size(); ++i)
        wave[i] = static_cast<f32>(0.5 * std::sin(static_cast<f64>(i * i % 44101)));
    return wave;
}

void report(benchmark::State& state) {
    state.counters["xRealTime"] =
        benchmark::Counter(static_cast<f64>(state.iterations()) * kSeconds, benchmark::Counter::kIsRate);
}

void BM_Resampler(benchmark::State& state) {
    const auto in = music();
    std::vector<f32> out(4 * kFrames);
    for (auto _ : state) {
        Resampler resampler;
        resampler.open({kInRate, kOutRate, static_cast<int>(state.range(0)), 2});
        std::size_t done = 0;
        const auto pull = [&] { done += 2 * resampler.pullInterleaved(std::span(out).subspan(done)); };
        for (std::size_t at = 0; at < in.size(); at += 2 * kBlock) {
            resampler.pushInterleaved(std::span(in).subspan(at, std::min(2 * kBlock, in.size() - at)));
            pull();
        }
        resampler.finish();
        pull();
        benchmark::DoNotOptimize(out.data());
    }
    report(state);
}
BENCHMARK(BM_Resampler)->DenseRange(0, 7)->Unit(benchmark::kMillisecond);

void BM_OddRatio(benchmark::State& state) { // phases by interpolation
    const auto in = music();
    std::vector<f32> out;
    for (auto _ : state) {
        resample({kInRate, kInRate + 3, static_cast<int>(state.range(0)), 2}, in, out);
        benchmark::DoNotOptimize(out.data());
    }
    report(state);
}
BENCHMARK(BM_OddRatio)->DenseRange(5, 7)->Unit(benchmark::kMillisecond);

void BM_StretchBySpectrum(benchmark::State& state) {
    const auto in = music();
    std::vector<f32> out;
    for (auto _ : state) {
        stretchBySpectrum(in, 2, kOutRate, static_cast<f64>(state.range(0)) / 100, out);
        benchmark::DoNotOptimize(out.data());
    }
    report(state);
}
BENCHMARK(BM_StretchBySpectrum)->Arg(50)->Arg(130)->Arg(200)->Unit(benchmark::kMillisecond);

void BM_Loudness(benchmark::State& state) {
    const auto in = music();
    for (auto _ : state) {
        LoudnessMeter meter(state.range(0) != 0);
        meter.add(in, 2, kInRate);
        benchmark::DoNotOptimize(meter.result());
    }
    report(state);
}
BENCHMARK(BM_Loudness)->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);

#ifdef KV_HAS_SOXR
void BM_Soxr(benchmark::State& state) {
    const auto in = music();
    std::vector<f32> out(4 * kFrames);
    for (auto _ : state) {
        const auto io = soxr_io_spec(SOXR_FLOAT32_I, SOXR_FLOAT32_I);
        const auto quality = soxr_quality_spec(static_cast<unsigned long>(state.range(0)), 0);
        const auto threads = soxr_runtime_spec(1);
        const soxr_t soxr = soxr_create(kInRate, kOutRate, 2, nullptr, &io, &quality, &threads);
        std::size_t done = 0, part = 0;
        for (std::size_t at = 0; at < kFrames; at += kBlock) {
            soxr_process(soxr, in.data() + 2 * at, std::min(kBlock, kFrames - at), nullptr,
                         out.data() + 2 * done, 2 * kFrames - done, &part);
            done += part;
        }
        soxr_process(soxr, nullptr, 0, nullptr, out.data() + 2 * done, 2 * kFrames - done, &part);
        soxr_delete(soxr);
        benchmark::DoNotOptimize(out.data());
    }
    report(state);
}
BENCHMARK(BM_Soxr)->Arg(SOXR_QQ)->Arg(SOXR_LQ)->Arg(SOXR_MQ)->Arg(SOXR_HQ)->Arg(SOXR_VHQ)->Unit(
    benchmark::kMillisecond);
#endif

#ifdef KV_HAS_SAMPLERATE
void BM_Samplerate(benchmark::State& state) {
    const auto in = music();
    std::vector<f32> out(4 * kFrames);
    for (auto _ : state) {
        SRC_DATA data{};
        data.data_in = in.data();
        data.data_out = out.data();
        data.input_frames = static_cast<long>(kFrames);
        data.output_frames = static_cast<long>(2 * kFrames);
        data.src_ratio = static_cast<f64>(kOutRate) / kInRate;
        src_simple(&data, static_cast<int>(state.range(0)), 2);
        benchmark::DoNotOptimize(out.data());
    }
    report(state);
}
BENCHMARK(BM_Samplerate)->Arg(SRC_SINC_BEST_QUALITY)->Arg(SRC_SINC_FASTEST)->Unit(benchmark::kMillisecond);
#endif

} // namespace
} // namespace kv

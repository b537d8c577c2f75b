// Decoders and encoders of the coded sample forms. Items are samples.
#include <benchmark/benchmark.h>

#include <cmath>

#include "formats/codecs/coded_stream.h"

namespace {

using namespace kv;

/// Sines that swell and fall, with a little noise.
std::vector<i16> signal(std::size_t count) {
    std::vector<i16> samples(count);
    u32 random = 1;
    for (std::size_t i = 0; i < count; ++i) {
        random = random * 1664525 + 1013904223;
        const f64 t = static_cast<f64>(i) / 44100, swell = 0.6 + 0.4 * std::sin(t * 5);
        const f64 tone = std::sin(t * 2764) + 0.5 * std::sin(t * 8231) + 0.1 * (random / 4294967296.0 - 0.5);
        samples[i] = static_cast<i16>(18000 * swell * tone);
    }
    return samples;
}

constexpr std::size_t kSamples = 44100 * 20;

struct Codec {
    const char* name;
    CodedWriter writer;
    CodedForm form;
};

std::vector<Codec> codecs() {
    constexpr u32 kBlock = 1024, kAll = 0xFFFFFFFF;
    const std::vector<MsCoefficients> pairs(msStandardCoefficients().begin(), msStandardCoefficients().end());
    return {{"ima/mono", imaWriter({1, 4, kBlock, kAll}), imaForm({1, 4, kBlock, kAll})},
            {"ima/stereo", imaWriter({2, 4, 2 * kBlock, kAll}), imaForm({2, 4, 2 * kBlock, kAll})},
            {"ms/mono", msWriter(1, kBlock), msForm(1, kBlock, kAll, pairs)},
            {"ms/stereo", msWriter(2, 2 * kBlock), msForm(2, 2 * kBlock, kAll, pairs)},
            {"dialogic", dialogicWriter(), dialogicForm()},
            {"yamaha", yamahaWriter(false), yamahaForm(false)},
            {"rockwell/4", rockwellWriter(4), rockwellForm(4)},
            {"g726/4", g726Writer(4, true), g726Form(4, true)},
            {"g722/8", g722Writer(8, true), g722Form(8, true)},
            {"gsm", gsmWriter(false), gsmForm(false)}};
}

void encode(benchmark::State& state, const Codec& codec) {
    const std::vector<i16> samples = signal(kSamples);
    Bytes out;
    for (auto _ : state) {
        CodedWriter writer = codec.writer;
        out.clear();
        writer.encode(samples, out);
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(static_cast<i64>(state.iterations() * samples.size()));
}

void decode(benchmark::State& state, const Codec& codec) {
    Bytes coded;
    CodedWriter(codec.writer).encode(signal(kSamples), coded);
    std::vector<i16> out(kSamples + 8192);
    for (auto _ : state) {
        CodedForm form = codec.form;
        benchmark::DoNotOptimize(form.decode(coded, out));
    }
    state.SetItemsProcessed(static_cast<i64>(state.iterations() * kSamples));
}

const int kRegistered = [] {
    for (const Codec& codec : codecs()) {
        benchmark::RegisterBenchmark((std::string("encode/") + codec.name).c_str(),
                                     [codec](benchmark::State& state) { encode(state, codec); });
        benchmark::RegisterBenchmark((std::string("decode/") + codec.name).c_str(),
                                     [codec](benchmark::State& state) { decode(state, codec); });
    }
    return 0;
}();

} // namespace

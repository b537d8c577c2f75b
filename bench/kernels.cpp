// Each kernel beside its definition, over blocks that stay in the cache as the converters use them.
#include "samples/kernels.h"

#include <benchmark/benchmark.h>

#include <vector>

namespace kv {
namespace {

constexpr std::size_t kSamples = 16384;

struct Data {
    std::vector<i16> integers = std::vector<i16>(kSamples);
    std::vector<f32> floats = std::vector<f32>(kSamples);
    Bytes packed = Bytes(3 * kSamples);
    Data() {
        for (std::size_t i = 0; i < kSamples; ++i) {
            integers[i] = static_cast<i16>(i * 7919);
            floats[i] = static_cast<f32>(integers[i]) / 40000;
            packed[3 * i + 2] = static_cast<std::byte>(i);
        }
    }
};

template <class Run>
void measure(benchmark::State& state, Run run) {
    Data data;
    for (auto _ : state) {
        run(data);
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(static_cast<i64>(state.iterations()) * static_cast<i64>(kSamples));
}

#define KV_BENCH(kernel, from, to)                                        \
    void BM_##kernel(benchmark::State& state) {                           \
        measure(state, [](Data& d) { kernel(d.from, d.to); });            \
    }                                                                     \
    BENCHMARK(BM_##kernel);                                               \
    void BM_##kernel##Reference(benchmark::State& state) {                \
        measure(state, [](Data& d) { reference::kernel(d.from, d.to); }); \
    }                                                                     \
    BENCHMARK(BM_##kernel##Reference)

KV_BENCH(int16ToFloat, integers, floats);
KV_BENCH(floatToInt16, floats, integers);
KV_BENCH(packed24ToFloat, packed, floats);
KV_BENCH(floatToPacked24, floats, packed);
KV_BENCH(int16ToPacked24, integers, packed);

} // namespace
} // namespace kv

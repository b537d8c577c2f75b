// How long one detection over all rows takes: a file dialog runs it on each selection.
#include "formats/framework/detection.h"

#include <benchmark/benchmark.h>

#include <random>

#include "formats/table/format_table_rows.h"

namespace {

kv::Bytes buffer(std::string_view start, bool random) {
    kv::Bytes bytes(kv::kDetectionBytes);
    std::mt19937 generator(1);
    if (random) {
        for (std::byte& b : bytes) b = static_cast<std::byte>(generator());
    }
    std::copy_n(kv::bytesOf(start).begin(), start.size(), bytes.begin());
    return bytes;
}

void detect(benchmark::State& state, const char* path, std::string_view start, bool random) {
    const kv::Bytes bytes = buffer(start, random);
    const kv::FormatTable& table = kv::formatTable();
    int confidence = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(kv::DetectBytes(table, path, bytes, bytes.size(), confidence));
    }
}

BENCHMARK_CAPTURE(detect, zeros, "/samples/unknown.bin", "", false);
BENCHMARK_CAPTURE(detect, noise, "/samples/noise.xyz", "", true);
BENCHMARK_CAPTURE(detect, wave, "/samples/kick.wav", std::string_view("RIFF\0\0\0\0WAVEfmt ", 16), false);
// The longest search: the text of a bank without the word that is looked for.
BENCHMARK_CAPTURE(detect, almostText, "/samples/bank.sfz", std::string(2000, '<'), false);

} // namespace

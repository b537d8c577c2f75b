// The bytes as a packed stream of each kind: what a probe accepts is read, whole and from the middle.
#include <algorithm>
#include <vector>

#include "base/run_context.h"
#include "formats/codecs/aac_stream.h"
#include "formats/codecs/flac_stream.h"
#include "formats/codecs/mpeg_stream.h"
#include "formats/codecs/opus_stream.h"
#include "formats/codecs/vorbis_stream.h"
#include "formats/codecs/wavpack_stream.h"
#include "require.h"

namespace {

using namespace kv;
using fuzz::require;

constexpr u64 kMostSamples = 1 << 16; // what damaged streams make of silence is worth no more time

template <class Probe, class Open>
void check(const std::shared_ptr<ByteSource>& source, Probe probe, Open open) {
    runContext() = {};
    const auto info = probe(source);
    require(info || !runContext().error.message.empty(), "a refusal says why");
    if (!info) return;
    require(info->channels > 0, "there are channels");
    const auto frames = static_cast<u32>(std::min(info->frames, kMostSamples / info->channels));
    for (const u32 start : {0U, frames / 2}) {
        const auto blocks = open(source, start, frames - start, info->channels);
        require(blocks || !runContext().error.message.empty(), "a refusal says why");
        if (!blocks) continue;
        require(blocks->isFloat() == info->isFloat, "samples come as they were announced");
        std::vector<f32> samples(std::size_t{blocks->channels()} * blocks->frames());
        runContext().error = {};
        require(blocks->read(std::span(samples)) || !runContext().error.message.empty(),
                "a failure says why");
    }
}

} // namespace

/// libvorbisfile 1.3.7 loses a list of serial numbers, a few bytes, when the headers of a later stream of a
/// chain are damaged. Leaks of our own are still found.
extern "C" const char* __lsan_default_suppressions() { // NOLINT(bugprone-reserved-identifier)
    return "leak:libvorbisfile.so";
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using Source = std::shared_ptr<ByteSource>;
    const ByteSpan bytes = std::as_bytes(std::span(data, size));
    const Source source = std::make_shared<MemorySource>(bytes);
    check(source, probeWavPack, openWavPack);
    check(source, probeVorbis, openVorbis);
    check(source, probeFlac, openFlac);
    check(source, probeOpus, openOpus);
    check(source, probeMpeg, openMpeg);
    check(
        source, [](const Source& stream) { return probeAac(stream); }, openAac);
    const ByteSpan config = bytes.first(std::min<std::size_t>(size, 2));
    check(
        std::make_shared<MemorySource>(bytes.subspan(config.size())),
        [&](const Source& stream) { return probeAac(stream, config); },
        [&](const Source& stream, u32 start, u32 frames, u32 channels) {
            return openBareAac(stream, config, start, frames, channels);
        });
    return 0;
}

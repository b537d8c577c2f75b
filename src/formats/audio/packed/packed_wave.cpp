#include "formats/audio/packed/packed_wave.h"

#include <algorithm>

#include "base/run_context.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

/// Layout of the private area of such a wave.
enum Private : std::size_t { kStreamChannels, kStreamLow, kStreamHigh };

constexpr u32 kMostChannels = 64;     // of a stream of which two are kept
constexpr u32 kMostRate = 10'000'000; // Hz

} // namespace

std::shared_ptr<ByteSource> packedSource(const FileContext& file, const PackedPlace& place) {
    if (place.start == 0 && place.bytes >= file.size()) return file.source;
    return std::make_shared<RangeSource>(file.source, place.start, place.bytes);
}

Wave* importPacked(FileContext& file, const PackedStreamInfo& info, const PackedPlace& place, u32 code,
                   const WaveReader& reader, std::string_view context) {
    if (info.channels == 0 || info.channels > kMostChannels) {
        Fail(context, "{} channels are not supported", info.channels);
        return nullptr;
    }
    if (info.sampleRate == 0 || info.sampleRate > kMostRate) {
        Fail(context, "{} Hz are not supported", info.sampleRate);
        return nullptr;
    }
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &reader);
    wave->channels = std::min(info.channels, 2U);
    wave->sampleRate = info.sampleRate;
    wave->frames = static_cast<u32>(std::min<u64>(info.frames, std::numeric_limits<u32>::max()));
    wave->bits = info.bits != 0 ? info.bits : 16; // the noise of a lossy codec is above that
    wave->dataFormat = code;
    // What was coded with losses is saved again as plain samples, unless a bit rate is asked for.
    if (code != kCompressed) wave->preferredFormat = code;
    wave->sourceOffset = place.start;
    const u64 bytes = std::min(place.bytes, file.size() - std::min(place.start, file.size()));
    if (code == kCompressed && info.frames > 0) {
        wave->compressedKbps = static_cast<f32>(static_cast<f64>(bytes) * 8 * info.sampleRate /
                                                (static_cast<f64>(info.frames) * 1000));
    }
    wave->sourcePrivate[kStreamChannels] = info.channels;
    wave->sourcePrivate[kStreamLow] = static_cast<u32>(bytes);
    wave->sourcePrivate[kStreamHigh] = static_cast<u32>(bytes >> 32);
    if (info.channels > 2) {
        runContext().diagnostics.add(
            {Severity::Loss, place.start, wave->name().str(), "channels",
             fmt::format("{} channels: only the first two are kept", info.channels)});
    }
    return wave;
}

u32 losslessCode(const PackedStreamInfo& info) {
    return info.bits <= 8 ? kPcm8 : info.bits <= 16 ? kPcm16 : info.bits <= 24 ? kPcm24 : kPcm32;
}

std::shared_ptr<ByteSource> packedSourceOf(const Wave& wave, const FileContext& file) {
    if (!file.source) {
        Fail(wave.reader->name, "Reading from file failed");
        return nullptr;
    }
    const u64 bytes = wave.sourcePrivate[kStreamLow] | u64{wave.sourcePrivate[kStreamHigh]} << 32;
    return packedSource(file, {file.position, bytes});
}

u32 packedChannels(const Wave& wave) {
    return wave.sourcePrivate[kStreamChannels];
}

f32 chosenRate(f32 asked, const Wave& wave, f32 usual) {
    return asked > 0 ? asked : wave.compressedKbps > 0 ? wave.compressedKbps : usual;
}

f32 offeredRate(std::span<const u32> rates, int index, std::string_view name, std::string* label) {
    if (index < 0 || static_cast<std::size_t>(index) >= rates.size()) return 0;
    const u32 rate = rates[static_cast<std::size_t>(index)];
    if (label) *label = fmt::format("{} {} kbit/s", name, rate);
    return static_cast<f32>(rate);
}

} // namespace kv

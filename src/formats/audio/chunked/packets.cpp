#include "formats/audio/chunked/packets.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/run_context.h"
#include "formats/audio/chunked/ima4.h"
#include "formats/codecs/coded_stream.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

/// Layout of the private area of such a wave.
enum Private : std::size_t { kCoding, kBits, kChannels, kBytesLow, kBytesHigh };

CodedForm formOf(PacketCoding coding, u32 bits, u32 channels) {
    if (coding == PacketCoding::Ima4) return ima4Form(channels);
    if (channels != 1) return {};
    switch (coding) {
        case PacketCoding::Gsm:
            return gsmForm(true);
        case PacketCoding::G722:
            return g722Form(8, false);
        case PacketCoding::G726:
            return g726Form(bits, false);
        default:
            return {};
    }
}

std::unique_ptr<SampleBlocks> openPackets(const Wave& wave, FileContext& file) {
    const auto& area = wave.sourcePrivate;
    CodedForm form = formOf(static_cast<PacketCoding>(area[kCoding]), area[kBits], area[kChannels]);
    if (form.channels != wave.channels) form.decode = nullptr;
    const u64 bytes = area[kBytesLow] | u64{area[kBytesHigh]} << 32;
    const u64 end = file.position + std::min(bytes, std::numeric_limits<u64>::max() - file.position);
    return openCoded(file.source, file.position, end, wave.frames, std::move(form));
}

const WaveReader packetReader{"packet_ImpWave", loadThroughBlocks, openPackets};

void sayWhatIsMissing(const Wave& wave, u32 channels, u64 bytes, u64 there) {
    if (channels > wave.channels) {
        runContext().diagnostics.add({Severity::Loss, wave.sourceOffset, std::string(wave.name().view()),
                                      "channels",
                                      fmt::format("{} channels: only the first two are kept", channels)});
    }
    if (there < bytes) {
        runContext().diagnostics.warn(wave.sourceOffset, "data",
                                      fmt::format("{} of {} bytes are there", there, bytes));
    }
}

} // namespace

Wave* importPackets(FileContext& file, const PacketLayout& layout, std::string_view context) {
    const auto refuse = [&](std::string_view why) -> Wave* {
        Fail(context, why);
        return nullptr;
    };
    constexpr u32 kMostChannels = 1024;
    if (layout.channels == 0) return refuse("No channels");
    if (layout.channels > kMostChannels) return refuse("Too many channels");
    if (layout.rate == 0) return refuse("No sample rate");
    const CodedForm form = formOf(layout.coding, layout.bits, layout.channels);
    if (!form.decode) return refuse("Can only handle mono files of this compression type");

    Wave* wave = store().Create<Wave>(kNextFreeNumber, &packetReader);
    wave->channels = form.channels;
    wave->sampleRate = layout.rate;
    wave->preferredFormat = kPcm16; // coding it once more would lose again
    wave->bits = layout.coding == PacketCoding::Gsm ? 2 : layout.bits;
    wave->sourceOffset = std::min(layout.offset, file.size());
    const u64 there = std::min(layout.bytes, file.size() - wave->sourceOffset);
    wave->sourcePrivate[kCoding] = static_cast<u32>(layout.coding);
    wave->sourcePrivate[kBits] = layout.bits;
    wave->sourcePrivate[kChannels] = layout.channels;
    wave->sourcePrivate[kBytesLow] = static_cast<u32>(there);
    wave->sourcePrivate[kBytesHigh] = static_cast<u32>(there >> 32);
    const u64 held = form.framesIn(there);
    const bool unstated = layout.countsPackets && layout.frames <= ceilDiv(there, form.unitBytes);
    const u64 frames = layout.frames == 0 || unstated ? held : std::min(held, layout.frames);
    wave->frames = saturate<u32>(static_cast<f64>(frames));
    sayWhatIsMissing(*wave, layout.channels, layout.bytes, there);
    return wave;
}

Wave* importWhole(FileContext& file, const SampleLayout& layout, std::string_view context) {
    Wave* wave = importSamples(file, layout, context);
    if (!wave) return nullptr;
    const u32 code = layout.word & kCodeMask;
    wave->preferredFormat = code == kFloat64 ? kFloat32 : code;
    sayWhatIsMissing(*wave, layout.channels, layout.bytes,
                     std::min(layout.bytes, file.size() - wave->sourceOffset));
    return wave;
}

u32 wholeRate(f64 rate) {
    constexpr f64 kMost = std::numeric_limits<u32>::max();
    return rate >= 0.5 && rate <= kMost ? static_cast<u32>(std::lround(rate)) : 0;
}

} // namespace kv

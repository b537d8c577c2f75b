#include "formats/banks/soundfont/sf_samples.h"

#include <algorithm>

#include "base/run_context.h"
#include "formats/codecs/vorbis_stream.h"
#include "formats/codecs/wavpack_stream.h"
#include "model/sample_blocks.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "sf2_ImpWave";

/// What the readers keep in a wave's private area, two words each.
enum Private : std::size_t {
    kLowBytes = 0,   ///< place of the third bytes
    kStreamSize = 0, ///< of a packed stream, in bytes
    kFirstFrame = 2  ///< within the stream
};

void remember(Wave& wave, Private at, u64 value) {
    wave.sourcePrivate[at] = static_cast<u32>(value);
    wave.sourcePrivate[at + 1] = static_cast<u32>(value >> 32);
}
u64 remembered(const Wave& wave, Private at) {
    return wave.sourcePrivate[at] | u64{wave.sourcePrivate[at + 1]} << 32;
}

class Sf24Blocks final : public SampleBlocks {
public:
    Sf24Blocks(const Wave& wave, std::shared_ptr<ByteSource> source, u64 upper, u64 lower)
        : SampleBlocks(1, wave.frames, true), source_(std::move(source)), upper_(upper), lower_(lower) {}

protected:
    bool readNative(std::span<f32> to) override {
        constexpr std::size_t kStep = 16384;
        while (!to.empty()) {
            const std::span<f32> part = to.first(std::min(kStep, to.size()));
            high_.resize(part.size() * 2);
            low_.resize(part.size());
            if (source_->readAt(upper_, high_) != high_.size() ||
                source_->readAt(lower_, low_) != low_.size()) {
                return Fail(kContext, "Reading from file failed");
            }
            upper_ += high_.size();
            lower_ += low_.size();
            for (std::size_t i = 0; i < part.size(); ++i) part[i] = value(i);
            to = to.subspan(part.size());
        }
        return true;
    }

private:
    f32 value(std::size_t i) const {
        const u32 word = std::to_integer<u32>(high_[2 * i + 1]) << 24 |
                         std::to_integer<u32>(high_[2 * i]) << 16 | std::to_integer<u32>(low_[i]) << 8;
        return static_cast<f32>(static_cast<i32>(word)) * 0x1p-31F;
    }

    std::shared_ptr<ByteSource> source_;
    u64 upper_, lower_;
    Bytes high_, low_;
};

std::unique_ptr<SampleBlocks> open24(const Wave& wave, FileContext& file) {
    const u64 lower = remembered(wave, kLowBytes);
    const u64 end = lower + wave.frames;
    if (!file.source || end > file.size() || file.position + u64{wave.frames} * 2 > file.size()) {
        Fail(kContext, "Reading from file failed");
        return nullptr;
    }
    return std::make_unique<Sf24Blocks>(wave, file.source, file.position, lower);
}

using OpenStream = decltype(openWavPack);
using ProbeStream = decltype(probeWavPack);

template <OpenStream* openStream>
std::unique_ptr<SampleBlocks> openPacked(const Wave& wave, FileContext& file) {
    if (!file.source) {
        Fail(kContext, "Reading from file failed");
        return nullptr;
    }
    const auto stream =
        std::make_shared<RangeSource>(file.source, file.position, remembered(wave, kStreamSize));
    return openStream(stream, remembered(wave, kFirstFrame), wave.frames, wave.channels);
}

/// Points the wave at a stream, of which it has the frames from `first` on.
bool placePacked(Wave& wave, ProbeStream* probe, const FileContext& context, u64 start, u64 size, u32 first,
                 u32 frames) {
    const auto info = probe(std::make_shared<RangeSource>(context.source, start, size));
    if (!info || info->channels < 1 || info->channels > 2) return false;
    wave.sourceOffset = start;
    wave.channels = info->channels;
    wave.bits = info->bits != 0 ? info->bits : 16; // a lossy codec's noise is above that
    wave.frames = first >= info->frames ? 0 : static_cast<u32>(std::min<u64>(frames, info->frames - first));
    remember(wave, kStreamSize, size);
    remember(wave, kFirstFrame, first);
    return true;
}

u32 framesBetween(u32 start, u32 end, u64 room) {
    if (end <= start || start >= room) return 0;
    return static_cast<u32>(std::min<u64>(end, room) - start);
}

} // namespace

const WaveReader sf24Reader{"sf2_ImpWave", loadThroughBlocks, open24};
const WaveReader sfPackReader{"sf2_ImpWavPack", loadThroughBlocks, openPacked<openWavPack>};
const WaveReader sfVorbisReader{"sf2_ImpVorbis", loadThroughBlocks, openPacked<openVorbis>};

Sf2Sample readSf2Sample(ByteCursor record) {
    Sf2Sample sample;
    sample.name = textFromBytes(record.bytes(kSfNameBytes));
    sample.start = record.u32le();
    sample.end = record.u32le();
    sample.loopStart = record.u32le();
    sample.loopEnd = record.u32le();
    sample.rate = record.u32le();
    sample.rootKey = record.u8le();
    sample.correction = record.s8();
    sample.link = record.u16le();
    sample.type = record.u16le();
    return sample;
}

bool placeSf2Samples(Wave& wave, const SfFile& file, const Sf2Sample& sample, const FileContext& context) {
    wave.frames = 0;
    if (!file.smpl) return true;
    const Chunk& smpl = *file.smpl;
    if (file.form == fourcc("sfpk")) {
        wave.reader = &sfPackReader;
        return placePacked(wave, probeWavPack, context, smpl.start, smpl.size, sample.start,
                           framesBetween(sample.start, sample.end, UINT32_MAX));
    }
    if ((sample.type & kSf3Vorbis) != 0 && file.major == 3) {
        wave.reader = &sfVorbisReader;
        const u32 bytes = framesBetween(sample.start, sample.end, smpl.size);
        return placePacked(wave, probeVorbis, context, smpl.start + sample.start, bytes, 0, UINT32_MAX);
    }
    wave.frames = framesBetween(sample.start, sample.end, smpl.size / 2);
    wave.sourceOffset = smpl.start + u64{sample.start} * 2;
    wave.dataFormat = kPcm16;
    if (!file.sm24 || wave.frames == 0) return true;
    wave.reader = &sf24Reader;
    wave.dataFormat = kPcm24;
    wave.bits = 24;
    wave.preferredFormat = kPcm24;
    remember(wave, kLowBytes, file.sm24->start + sample.start);
    return true;
}

} // namespace kv

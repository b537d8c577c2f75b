#include "formats/framework/sample_file.h"

#include <algorithm>
#include <cstring>

#include "base/run_context.h"
#include "model/store.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

/// Layout of the private area of a wave with more channels in its file than it has.
enum Private : std::size_t { kFrameBytes, kKeptBytes };

/// The first bytes of each frame of another source, one after the other.
class FrameHeadsSource final : public ByteSource {
public:
    FrameHeadsSource(std::shared_ptr<ByteSource> whole, u64 start, u32 frameBytes, u32 keptBytes)
        : whole_(std::move(whole)), start_(start), frameBytes_(frameBytes), keptBytes_(keptBytes) {}

    u64 size() const override {
        return whole_->size() <= start_ ? 0 : (whole_->size() - start_) / frameBytes_ * keptBytes_;
    }

    std::size_t readAt(u64 offset, std::span<std::byte> to) override {
        if (offset >= size()) return 0;
        const std::size_t wanted = static_cast<std::size_t>(std::min<u64>(to.size(), size() - offset));
        std::size_t done = 0;
        while (done < wanted) {
            const u64 frame = (offset + done) / keptBytes_;
            auto within = static_cast<std::size_t>((offset + done) % keptBytes_);
            const std::size_t frames = std::min<std::size_t>(
                (within + wanted - done + keptBytes_ - 1) / keptBytes_, std::max(1U, 65536 / frameBytes_));
            block_.resize(frames * frameBytes_);
            const std::size_t got = whole_->readAt(start_ + frame * frameBytes_, block_) / frameBytes_;
            if (got == 0) break;
            for (std::size_t i = 0; i < got && done < wanted; ++i, within = 0) {
                const std::size_t count = std::min(keptBytes_ - within, wanted - done);
                std::memcpy(to.data() + done, block_.data() + i * frameBytes_ + within, count);
                done += count;
            }
        }
        return done;
    }

private:
    std::shared_ptr<ByteSource> whole_;
    u64 start_;
    u32 frameBytes_, keptBytes_;
    Bytes block_;
};

std::unique_ptr<SampleBlocks> openFirstChannels(const Wave& wave, FileContext& file) {
    FileContext heads = file;
    heads.source = std::make_shared<FrameHeadsSource>(
        file.source, file.position, wave.sourcePrivate[kFrameBytes], wave.sourcePrivate[kKeptBytes]);
    heads.position = 0;
    return genericReader.open(wave, heads);
}

const WaveReader firstChannelsReader{"first_channels_ImpWave", loadThroughBlocks, openFirstChannels};

constexpr u32 kMostChannels = 65535;

/// Bits per sample; 0 for a code that has none of its own.
u32 bitsOf(u32 word) {
    u32 bits = 0;
    FormatCodeInfo(word & kCodeMask, nullptr, &bits);
    return bits;
}

bool canImport(const SampleLayout& layout, std::string_view context) {
    const u32 bits = bitsOf(layout.word);
    if (bits == 0) return Fail(context, "Unsupported subformat");
    if (layout.channels == 0) return Fail(context, "No channels");
    if (layout.channels > (bits % 8 == 0 ? kMostChannels : 2)) return Fail(context, "Too many channels");
    return layout.rate > 0 || Fail(context, "No sample rate");
}

} // namespace

Wave* importSamples(FileContext& file, const SampleLayout& layout, std::string_view context) {
    if (!canImport(layout, context)) return nullptr;
    const u32 bits = bitsOf(layout.word);
    const u32 channels = std::min(layout.channels, 2U);
    const bool many = layout.channels > channels;
    Wave* wave = store().Create<Wave>(kNextFreeNumber, many ? &firstChannelsReader : &genericReader);
    wave->dataFormat = layout.word;
    wave->bits = bits;
    wave->channels = channels;
    wave->sampleRate = layout.rate;
    wave->sourceOffset = std::min(layout.offset, file.size());
    const u64 frameBits = std::max<u64>(u64{layout.channels} * bits, 1);
    const u64 held = std::min(layout.bytes, file.size() - wave->sourceOffset) * 8 / frameBits;
    wave->frames = saturate<u32>(static_cast<f64>(layout.frames == 0 ? held : std::min(held, layout.frames)));
    wave->sourcePrivate[kFrameBytes] = many ? layout.channels * bits / 8 : 0;
    wave->sourcePrivate[kKeptBytes] = many ? channels * bits / 8 : 0;
    return wave;
}

SampleExport openExport(std::string_view context, Item& item, u32 formatWord, bool perWave) {
    SampleExport out;
    if (classOf(item.id()) != kWaveClass) {
        Fail(context, "The file format can not save this item");
        return out;
    }
    out.wave = static_cast<const Wave*>(&item);
    if (perWave && (formatWord & kCodeMask) == 0) formatWord |= out.wave->preferredFormat & kCodeMask;
    out.channels = writableChannels(out.wave->channels, formatWord);
    if (out.channels == 0) return out;
    const u32 bits = bitsOf(formatWord);
    out.sampleBytes = bits % 8 == 0 ? bits / 8 : 0;
    out.word = formatWord & (kCodeMask | kMonoBit | kStereoBit);
    out.blocks = openSamples(*out.wave, encodesFromFloat(formatWord));
    return out;
}

} // namespace kv

#include "formats/audio/wav_reader.h"

#include <algorithm>
#include <cstring>

#include "base/run_context.h"
#include "formats/audio/wav_chunks.h"
#include "formats/audio/wav_codecs.h"
#include "model/collection.h"
#include "model/store.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "samples/stored_form.h"

namespace kv {
namespace {

/// Layout of a WAV wave's private area.
enum Private : std::size_t { kTag, kFmtLow, kFmtHigh, kDataLow, kDataHigh, kShape, kBits };

constexpr u32 kBigEndianShape = 1U << 31;

struct Layout {
    u16 tag;
    u16 channels;
    u16 bits;
    std::endian order;
    u64 fmtOffset, dataBytes;

    explicit Layout(const Wave& wave)
        : tag(static_cast<u16>(wave.sourcePrivate[kTag])),
          channels(static_cast<u16>(wave.sourcePrivate[kShape])),
          bits(static_cast<u16>(wave.sourcePrivate[kBits])),
          order((wave.sourcePrivate[kShape] & kBigEndianShape) != 0 ? std::endian::big : std::endian::little),
          fmtOffset(wave.sourcePrivate[kFmtLow] | u64{wave.sourcePrivate[kFmtHigh]} << 32),
          dataBytes(wave.sourcePrivate[kDataLow] | u64{wave.sourcePrivate[kDataHigh]} << 32) {}

    u32 sampleBytes() const { return (u32{bits} + 7) / 8; }
    /// Of a sample, the bytes that are kept.
    u32 keptBytes() const { return tag == kWavPcm ? std::min(sampleBytes(), 4U) : sampleBytes(); }
    u32 frameBytes() const { return sampleBytes() * channels; }

    /// Data format word of the kept bytes.
    u32 word() const {
        u32 code = kPcm32;
        if (tag == kWavFloat)
            code = bits == 64 ? kFloat64 : kFloat32;
        else if (tag == kWavALaw || tag == 0x0172)
            code = kALaw;
        else if (tag == kWavMuLaw || tag == 0x0171)
            code = kMuLaw;
        else if (keptBytes() == 1)
            return kPcm8 | kUnsigned;
        else if (keptBytes() == 2)
            code = kPcm16;
        else if (keptBytes() == 3)
            code = kPcm24;
        return order == std::endian::big && keptBytes() > 1 ? code | kByteswap : code;
    }
};

/// Picks the channels and bytes that the wave has out of frames that hold more, then decodes them.
class WavBlocks final : public SampleBlocks {
public:
    WavBlocks(const Wave& wave, const Layout& layout, u32 frames, std::shared_ptr<ByteSource> source,
              u64 start)
        : SampleBlocks(wave.channels, frames, StoredForm(layout.word()).isFloat()),
          layout_(layout),
          decoder_(layout.word()),
          source_(std::move(source)),
          at_(start) {}

protected:
    bool readNative(std::span<i16> to) override { return readInto(to); }
    bool readNative(std::span<f32> to) override { return readInto(to); }

private:
    template <class T>
    bool readInto(std::span<T> to) {
        const std::size_t step = std::max<std::size_t>(1, kBufferBytes / layout_.frameBytes()) * channels();
        while (!to.empty()) {
            const std::span<T> part = to.first(std::min(step, to.size()));
            const std::size_t frames = part.size() / channels();
            raw_.resize(frames * layout_.frameBytes());
            if (source_->readAt(at_, raw_) != raw_.size())
                return Fail("wav_ImpWave", "Reading from file failed");
            at_ += raw_.size();
            decoder_.decode(compact(frames), part);
            to = to.subspan(part.size());
        }
        return true;
    }

    /// Moves what is kept of each frame together, in place.
    ByteSpan compact(std::size_t frames) {
        const std::size_t sample = layout_.sampleBytes(), kept = layout_.keptBytes(),
                          frame = layout_.frameBytes();
        if (frame == kept * channels()) return raw_;
        // Of a long sample the most significant bytes count, wherever the byte order puts them.
        const std::size_t skip = layout_.order == std::endian::little ? sample - kept : 0;
        std::byte* out = raw_.data();
        for (std::size_t f = 0; f < frames; ++f) {
            for (std::size_t c = 0; c < channels(); ++c, out += kept) {
                std::memmove(out, raw_.data() + f * frame + c * sample + skip, kept);
            }
        }
        return ByteSpan(raw_).first(frames * channels() * kept);
    }

    static constexpr std::size_t kBufferBytes = 65536;
    Layout layout_;
    SampleDecoder decoder_;
    std::shared_ptr<ByteSource> source_;
    u64 at_;
    Bytes raw_;
};

std::unique_ptr<SampleBlocks> openWav(const Wave& wave, FileContext& file) {
    const Layout layout(wave);
    const WavCodec* codec = wavCodec(layout.tag);
    if (file.source && codec && codec->isStream()) {
        const WavStream stream =
            wavStream(*codec, file.source, layout.fmtOffset, layout.order, file.position, layout.dataBytes);
        return wavOpenStream(stream, layout.channels, wave);
    }
    if (file.source && codec) {
        CodedForm form = wavCodedForm(*file.source, layout.fmtOffset, layout.order);
        const u64 end =
            file.position + std::min(layout.dataBytes, std::numeric_limits<u64>::max() - file.position);
        if (form.channels != wave.channels) form.decode = nullptr;
        return openCoded(file.source, file.position, end, wave.frames, std::move(form));
    }
    if (!file.source || layout.frameBytes() == 0 || layout.channels < wave.channels || wave.channels == 0) {
        Fail("wav_ImpWave", "Reading from file failed");
        return nullptr;
    }
    const u64 there = std::min(layout.dataBytes, file.size() - std::min(file.size(), file.position));
    const u32 frames =
        saturate<u32>(static_cast<f64>(std::min<u64>(wave.frames, there / layout.frameBytes())));
    return std::make_unique<WavBlocks>(wave, layout, frames, file.source, file.position);
}

} // namespace

const WaveReader wavReader{"wav_ImpWave", loadThroughBlocks, openWav};

void rememberWavLayout(Wave& wave, const WavFormat& format, u64 dataBytes) {
    wave.sourcePrivate[kTag] = format.tag;
    wave.sourcePrivate[kFmtLow] = static_cast<u32>(format.offset);
    wave.sourcePrivate[kFmtHigh] = static_cast<u32>(format.offset >> 32);
    wave.sourcePrivate[kDataLow] = static_cast<u32>(dataBytes);
    wave.sourcePrivate[kDataHigh] = static_cast<u32>(dataBytes >> 32);
    wave.sourcePrivate[kShape] = format.channels | (format.order == std::endian::big ? kBigEndianShape : 0);
    wave.sourcePrivate[kBits] = format.bits;
}

bool wav_Imp(Collection&, FileContext& file, u32) {
    return wav_ImpEmbedded(file, kNextFreeNumber, 0, file.size(), {}) != nullptr;
}

} // namespace kv

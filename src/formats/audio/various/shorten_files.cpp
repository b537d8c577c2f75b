#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/various/various_files.h"
#include "formats/audio/wav_chunks.h"
#include "formats/audio/wav_writer.h"
#include "formats/codecs/sample_pieces.h"
#include "formats/codecs/shorten.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

class ShortenBlocks final : public SampleBlocks {
public:
    ShortenBlocks(std::unique_ptr<ShortenDecoder> decoder, u32 channels, u32 frames)
        : SampleBlocks(channels, frames, false), decoder_(std::move(decoder)) {}

protected:
    bool readNative(std::span<i16> to) override {
        while (!to.empty()) {
            if (ready_.empty() && !decode()) return Fail("shn_ImpWave", "Reading from file failed");
            const std::size_t count = std::min(ready_.size(), to.size());
            std::copy_n(ready_.begin(), count, to.begin());
            ready_ = ready_.subspan(count);
            to = to.subspan(count);
        }
        return true;
    }

private:
    bool decode() {
        const std::size_t frames = decoder_->nextBlock();
        block_.resize(frames * channels());
        decoder_->interleave(channels(), block_);
        ready_ = block_;
        return frames > 0;
    }

    std::unique_ptr<ShortenDecoder> decoder_;
    std::vector<i16> block_;
    std::span<const i16> ready_; ///< decoded and not fetched yet
};

std::unique_ptr<SampleBlocks> openShorten(const Wave& wave, FileContext& file) {
    std::unique_ptr<ShortenDecoder> decoder = ShortenDecoder::open(file.source);
    if (!decoder) return nullptr;
    if (decoder->header().channels < wave.channels) {
        Fail("shn_ImpWave", "Wrong number of channels");
        return nullptr;
    }
    return std::make_unique<ShortenBlocks>(std::move(decoder), wave.channels, wave.frames);
}

const WaveReader shortenReader{"shn_ImpWave", loadThroughBlocks, openShorten};

u32 codeOf(ShortenType type) {
    switch (type) {
        case ShortenType::Signed8:
        case ShortenType::Unsigned8:
            return kPcm8;
        case ShortenType::MuLawRanks:
        case ShortenType::MuLawAllRanks:
        case ShortenType::MuLawValues:
            return kMuLaw;
        case ShortenType::ALawValues:
            return kALaw;
        default:
            return kPcm16;
    }
}

/// The sample rate of an AIFF header, an 80-bit float (IEEE 754) in the chunk COMM; 0 without.
u32 aiffRate(ByteSpan head) {
    const std::string_view text = textOf(head);
    const std::size_t at = text.find("COMM");
    if (!text.starts_with("FORM") || at == text.npos) return 0;
    ByteCursor in(head.subspan(at));
    in.skip(16);
    const int exponent = in.u16be() & 0x7FFF;
    const u32 mantissa = in.u32be();
    const int shift = 16383 + 31 - exponent;
    return shift < 0 || shift > 31 ? 0 : mantissa >> shift;
}

/// Takes over what the foreign bytes of a packed WAV file say: its header, and what stood behind its samples.
void takeForeign(Wave& wave, const ShortenDecoder& decoder) {
    const ByteSpan all = decoder.foreignBytes();
    const ByteSpan head = all.first(decoder.foreignHeadBytes());
    const std::size_t data = textOf(head).rfind("data");
    if (!textOf(head).starts_with("RIFF") || data == std::string_view::npos) {
        if (const u32 rate = aiffRate(head)) wave.sampleRate = rate;
        return;
    }
    // As a WAV file without samples, and without the pad byte behind them.
    ByteCursor in(head.subspan(data + 4));
    const bool padded = in.u32le() % 2 != 0;
    const ByteSpan tail = all.subspan(head.size());
    ByteWriter file;
    file.bytes(head.first(data + 4)).u32le(0);
    file.bytes(padded && !tail.empty() ? tail.subspan(1) : tail);
    FileContext context;
    context.source = std::make_shared<MemorySource>(file.view());
    if (!wav_ImpChunks(context, 0, context.size(), wave)) wave.sampleRate = std::max(wave.sampleRate, 1U);
}

} // namespace

bool shn_Imp(Collection&, FileContext& file, u32) {
    const std::unique_ptr<ShortenDecoder> decoder = ShortenDecoder::open(file.source);
    if (!decoder) return false;
    // No file says how long it is.
    u64 frames = 0;
    while (const std::size_t more = decoder->nextBlock()) {
        frames += more;
        if (CancelRequested()) return Fail("shn_Imp", "Cancelled");
    }
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &shortenReader);
    takeForeign(*wave, *decoder);
    wave->reader = &shortenReader;
    wave->sourceOffset = 0;
    wave->dataFormat = wave->preferredFormat = codeOf(decoder->header().type);
    wave->bits = wave->dataFormat == kPcm16 ? 16 : 8;
    wave->channels = std::min(decoder->header().channels, 2U);
    wave->frames = saturate<u32>(static_cast<f64>(frames));
    return true;
}

bool shn_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    const SampleExport out = openExport("shn_Exp", item, formatWord, perWave);
    if (!out) return false;
    const u32 code = out.word & kCodeMask;
    if ((code & (kPcm8 | kPcm16 | kMuLaw)) == 0) return Fail("shn_Exp", "Unsupported subformat");
    WavParts parts;
    if (!wavParts(*out.wave, out.blocks->frames(), out.word, 0, parts)) return false;

    ShortenEncoder encoder(code == kPcm8    ? ShortenType::Unsigned8
                           : code == kPcm16 ? ShortenType::Signed16Little
                                            : ShortenType::MuLawAllRanks,
                           out.channels);
    encoder.foreign(parts.head);
    constexpr std::size_t kPieceFrames = 64 * ShortenEncoder::kBlockFrames;
    std::vector<i32> numbers;
    const bool packed =
        writePieces<i16>(*out.blocks, out.channels, kPieceFrames, "shn_Exp", [&](std::span<const i16> from) {
            numbers.resize(from.size());
            std::transform(from.begin(), from.end(), numbers.begin(), [code](i16 v) {
                return code == kMuLaw ? i32{muLawByte(v)} : code == kPcm8 ? (v >> 8) + 128 : i32{v};
            });
            encoder.samples(numbers);
            return file.write(encoder.take()) || Fail("shn_Exp", "Writing to file failed");
        });
    if (!packed) return false;
    encoder.foreign(parts.tail);
    encoder.finish();
    return file.write(encoder.take()) || Fail("shn_Exp", "Writing to file failed");
}

} // namespace kv

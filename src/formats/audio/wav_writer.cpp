#include "formats/audio/wav_writer.h"

#include <algorithm>
#include <array>

#include "base/run_context.h"
#include "formats/audio/wav_fmt.h"
#include "formats/audio/wav_info.h"
#include "formats/audio/wav_smpl.h"
#include "formats/codecs/mpeg_encoder.h"
#include "model/resampled_blocks.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

/// How the samples of a data format code stand in a WAV file.
struct WavCode {
    u32 code;
    u16 tag;
    u16 bits;    ///< per sample
    u16 block;   ///< block align of coded samples; 0: as the samples or the encoder have it
    u16 fmtSize; ///< bytes of the fmt chunk; with the extension that `wavWriter` gives
    u32 subType; ///< of the writer, for a code that has several tags; 0: whatever else it is
};
// Of several rows of a code the one without a sub-type comes last.
constexpr WavCode kCodes[] = {
    {kPcm8, kWavPcm, 8, 0, 16, 0},
    {kPcm16, kWavPcm, 16, 0, 16, 0},
    {kPcm24, kWavPcm, 24, 0, 16, 0},
    {kPcm32, kWavPcm, 32, 0, 16, 0},
    {kFloat32, kWavFloat, 32, 0, 16, 0},
    {kMuLaw, kWavMuLaw, 8, 0, 18, 0},
    {kALaw, kWavALaw, 8, 0, 18, 0},
    {kGsm, 0x303, 0, 38, 18, kWavSubUsrGsm},
    {kGsm, 0x31, 0, 65, 20, 0},
    {kAdpcm2, 0x64, 2, 32, 16, 0},
    {kAdpcm3, 0x14, 3, 48, 20, 0},
    {kAdpcm4, 0x02, 4, 0, 50, kWavSubMs},
    {kAdpcm4, 0x11, 4, 0, 20, kWavSubIma},
    {kAdpcm4, 0x20, 4, 1024, 18, kWavSubYamaha},
    {kAdpcm4, 0x40, 4, 64, 20, 0},
    {kAdpcm5, 0x14, 5, 80, 20, 0},
};
bool isCoded(const WavCode& row) {
    return (row.code & (kGsm | kAdpcm2 | kAdpcm3 | kAdpcm4 | kAdpcm5)) != 0;
}
bool holdsStereo(const WavCode& row) {
    return !isCoded(row) || (row.subType != 0 && row.code != kGsm);
}

bool isExtensible(u32 subType) {
    return subType == kWavSubExtensible;
}
const WavCode* findCode(u32 formatWord, u32 subType) {
    for (const WavCode& row : kCodes) {
        if (row.code != (formatWord & kCodeMask) || (row.subType != 0 && row.subType != subType)) continue;
        if (isExtensible(subType) && (row.fmtSize != 16 || isCoded(row))) break;
        return &row;
    }
    Fail("wav_Exp", "Unsupported subformat");
    return nullptr;
}

/// Bytes of a block for one channel: about as long in time at any rate.
u32 channelBlock(u32 rate) {
    u32 bytes = 256;
    for (u32 limit = 11025; limit < rate && bytes < 2048; limit *= 2) bytes *= 2;
    return bytes;
}

/// The encoder of a coded row; none for plain samples.
std::optional<CodedWriter> codedWriter(const WavCode& row, u32 rate, u32 channels) {
    const u32 block = channelBlock(rate) * channels;
    switch (row.tag) {
        case 0x02:
            return msWriter(channels, block);
        case 0x11:
            return imaWriter({channels, 4, block, std::numeric_limits<u32>::max()});
        case 0x20:
            return yamahaWriter(channels == 2);
        case 0x31:
            return gsmWriter(false);
        case 0x303:
            return usrGsmWriter(0xFE);
        default:
            break;
    }
    if (!isCoded(row)) return {};
    return g726Writer(row.bits, true);
}

/// What follows the 16 bytes that all fmt chunks have.
void writeExtension(ByteWriter& out, const WavCode& row, const CodedWriter* coded) {
    if (row.fmtSize < 18) return;
    out.u16le(static_cast<u16>(row.fmtSize - 18));
    if (row.fmtSize < 20) return;
    const bool inBlocks = coded->wholeUnits && coded->unitFrames > 1;
    out.u16le(static_cast<u16>(inBlocks ? coded->unitFrames : 0));
    if (row.tag != 0x02) return;
    out.u16le(static_cast<u16>(msStandardCoefficients().size()));
    for (const MsCoefficients& pair : msStandardCoefficients())
        out.u16le(static_cast<u16>(pair.c1)).u16le(static_cast<u16>(pair.c2));
}

u32 bytesPerSecond(const WavCode& row, const CodedWriter* coded, u32 rate, u32 block) {
    if (!coded) return rate * block;
    if (coded->wholeUnits) return static_cast<u32>(u64{rate} * coded->unitBytes / coded->unitFrames);
    return static_cast<u32>((u64{rate} * row.bits * coded->channels + 7) / 8);
}

void writeFmt(ByteWriter& out, const WavCode& row, const Wave& wave, u32 channels, const CodedWriter* coded,
              bool extensible) {
    const auto block = static_cast<u16>(!coded             ? row.bits / 8 * channels
                                        : row.subType != 0 ? coded->unitBytes
                                                           : row.block);
    out.text("fmt ").u32le(extensible ? 40 : row.fmtSize);
    out.u16le(extensible ? u16{kWavExtensible} : row.tag).u16le(static_cast<u16>(channels));
    out.u32le(wave.sampleRate).u32le(bytesPerSecond(row, coded, wave.sampleRate, block));
    out.u16le(block).u16le(row.bits);
    if (extensible) {
        constexpr std::array<u8, 12> kGuidTail{0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71};
        out.u16le(22).u16le(row.bits).u32le(channels == 1 ? 4 : 3).u32le(row.tag);
        out.bytes(std::as_bytes(std::span(kGuidTail)));
    } else {
        writeExtension(out, row, coded);
    }
}

/// A cue point as it is written.
struct OutCue {
    u32 position;
    u32 length;
    std::string_view purpose; ///< of the length; empty: no length is written
    std::string_view label, note;
};

void writeCueText(ByteWriter& out, std::string_view id, u32 name, std::string_view text) {
    const std::size_t size = text.size() + 1;
    out.text(id).u32le(static_cast<u32>(4 + size + size % 2)).u32le(name).text(text).fill(1 + size % 2);
}

/// The cue points and their texts: first the three that stand for the loop, then the wave's own.
void writeCues(ByteWriter& out, const Wave& wave) {
    std::vector<OutCue> cues;
    const SampleParams& params = wave.params;
    if (params.looped()) {
        const u32 start = saturate<u32>(params.loopStart + 0.5);
        cues.push_back({start, saturate<u32>(params.loopEnd - params.loopStart), "mark", "Loop Range", {}});
        cues.push_back({start, 0, {}, "Loop Start", {}});
        cues.push_back({saturate<u32>(params.loopEnd - 1 + 0.5), 0, {}, "Loop End", {}});
    }
    for (const CuePoint& cue : wave.cuePoints) {
        cues.push_back({cue.position, cue.length, cue.length > 0 ? "rgn " : "", cue.label, cue.note});
    }
    if (cues.empty()) return;

    const auto count = static_cast<u32>(cues.size());
    out.text("cue ").u32le(4 + count * 24).u32le(count);
    for (u32 i = 0; i < count; ++i) {
        out.u32le(i).u32le(i < 3 && params.looped() ? i : cues[i].position).text("data");
        out.u32le(0).u32le(0).u32le(cues[i].position);
    }
    const std::size_t list = out.size();
    out.text("LIST").u32le(0).text("adtl");
    for (u32 i = 0; i < count; ++i) {
        if (cues[i].purpose.empty()) continue;
        out.text("ltxt").u32le(20).u32le(i).u32le(cues[i].length).text(cues[i].purpose).fill(8);
    }
    for (u32 i = 0; i < count; ++i) {
        if (!cues[i].label.empty()) writeCueText(out, "labl", i, cues[i].label);
        if (!cues[i].note.empty()) writeCueText(out, "note", i, cues[i].note);
    }
    out.patchU32le(list + 4, static_cast<u32>(out.size() - list - 8));
}

void writeSmpl(ByteWriter& out, const Wave& wave, u32 frames, bool cwdt) {
    SmplHeader header;
    SmplLoop loop;
    wav_BuildSmpl(header, loop, wave, frames);
    const bool looped = wave.params.looped();
    if (cwdt) {
        header.samplePeriod = 0;
        header.loopCount = 1;
        header.samplerDataSize = 28;
        if (looped) ++loop.end; // a reader that finds the data takes it back
    }
    const u32 size =
        static_cast<u32>(kSmplHeaderBytes + header.loopCount * kSmplLoopBytes + header.samplerDataSize);
    out.text("smpl").u32le(size);
    writeSmplHeader(out, header);
    if (header.loopCount > 0) writeSmplLoop(out, loop);
    if (!cwdt) return;
    const u32 loopKind = !looped ? 2 : (wave.params.loopFlags & kLoopUntilRelease) != 0 ? 1 : 0;
    out.text("CWDT")
        .u32le(0x08DA1B00)
        .u32le(loopKind)
        .u32le(0)
        .u32le(frames)
        .u32le(0)
        .u32le(wave.params.rootKey);
}

/// Sizes of the form: in the header, or beyond 4 GB in a chunk of their own (EBU Tech 3306).
void writeFormHeader(ByteWriter& out, u64 formBytes, u64 dataBytes, u64 frames) {
    constexpr u64 kLimit = 0xFFFFFFFF;
    if (formBytes <= kLimit) {
        out.text("RIFF").u32le(static_cast<u32>(formBytes)).text("WAVE");
        return;
    }
    constexpr u32 kDs64Bytes = 28;
    out.text("RF64").u32le(0xFFFFFFFF).text("WAVE").text("ds64").u32le(kDs64Bytes);
    out.u64le(formBytes + 8 + kDs64Bytes).u64le(dataBytes).u64le(frames).u32le(0);
}

} // namespace

u32 wavPlainCodes() {
    u32 codes = 0;
    for (const WavCode& row : kCodes) codes |= isCoded(row) ? 0 : row.code;
    return codes;
}

u64 WavEncoding::bytesFor(u32 frames) const {
    if (packed) return packed->size();
    return coded ? coded->bytesFor(frames) : u64{frames} * frameBytes;
}

bool wavEncoding(const Wave& wave, u32 formatWord, u32 subType, WavEncoding& encoding) {
    const WavCode* row = findCode(formatWord, subType);
    if (!row) return false;
    u32 channels = writableChannels(wave.channels, formatWord);
    if (channels == 0) return false;
    if (!holdsStereo(*row)) channels = 1;
    encoding.coded = codedWriter(*row, wave.sampleRate, channels);
    ByteWriter fmt;
    writeFmt(fmt, *row, wave, channels, encoding.coded ? &*encoding.coded : nullptr, isExtensible(subType));
    encoding.fmt = fmt.take();
    encoding.word = formatWord & (kCodeMask | kMonoBit | kStereoBit);
    if (row->code == kPcm8) encoding.word |= kUnsigned;
    encoding.frameBytes = channels * row->bits / 8;
    encoding.linear = row->tag == kWavPcm;
    return true;
}

bool writeEncoded(SampleBlocks& blocks, const WavEncoding& encoding, ByteSink& sink) {
    if (encoding.packed) return sink.write(*encoding.packed) || Fail("wav_Exp", "Writing to file failed");
    return encoding.coded ? writeCoded(blocks, *encoding.coded, sink)
                          : writeSamples(blocks, encoding.word, sink);
}

bool wavParts(const Wave& wave, u32 frames, u32 formatWord, u32 subType, WavParts& parts) {
    WavEncoding& encoding = parts.encoding;
    if (!encoding.packed && !wavEncoding(wave, formatWord, subType, encoding)) return false;
    const bool bare = subType == kWavSubBare, cwdt = subType == kWavSubCwdt;
    const u32 code = formatWord & kCodeMask;
    parts.dataBytes = encoding.bytesFor(frames);

    // A float or Extensible file takes over what the last file of another kind left in its fact chunk.
    u32& fact = workspace().wavFact;
    if (encoding.coded || code == kMuLaw || code == kALaw) fact = frames;
    if (code == kGsm) fact = saturate<u32>(static_cast<f64>(ceilDiv(frames, 320) * 320));
    if (encoding.packed) fact = frames + kMp3Delay;
    ByteWriter chunks;
    chunks.bytes(encoding.fmt);
    if (!encoding.linear || isExtensible(subType)) chunks.text("fact").u32le(4).u32le(fact);
    if (bare) writeSmpl(chunks, wave, frames, false);

    ByteWriter tail;
    if (parts.dataBytes % 2 != 0) tail.u8le(0x80);
    if (!bare) {
        wav_WriteInfo(tail, wave, !cwdt);
        if (!cwdt) writeCues(tail, wave);
        writeSmpl(tail, wave, frames, cwdt);
    }
    ByteWriter head;
    writeFormHeader(head, 4 + chunks.size() + 8 + parts.dataBytes + tail.size(), parts.dataBytes, frames);
    head.bytes(chunks.view()).text("data");
    head.u32le(parts.dataBytes > 0xFFFFFFFF ? 0xFFFFFFFF : static_cast<u32>(parts.dataBytes));
    parts.head = head.take();
    parts.tail = tail.take();
    return true;
}

namespace {

/// The bit rate in kbit/s: what is asked for, else what a compressed wave has.
u32 compressedRate(const Wave& wave, f32 kbps) {
    constexpr u32 kUsual = 128, kLeast = 8, kMost = 320;
    if (kbps == 0 && wave.preferredFormat == kCompressed) kbps = wave.compressedKbps;
    const u32 rate = saturate<u32>(static_cast<f64>(kbps) + 0.5);
    return rate < kLeast || rate > kMost ? kUsual : rate;
}

/// Packs samples as MPEG layer III, which the fmt chunk of MPEGLAYER3WAVEFORMAT describes.
bool packCompressed(SampleBlocks& blocks, u32 channels, u32 rate, u32 kbps, WavEncoding& encoding) {
    constexpr u16 kMp3Id = 1;
    constexpr u32 kFmtBytes = 30, kExtensionBytes = 12;
    MemorySink sink;
    MpegSettings settings{channels, rate, MpegRate::Constant, static_cast<f32>(kbps), false};
    const std::unique_ptr<PackingSink> encoder = makeMp3Encoder(sink, settings);
    if (!encoder || !packSamples(blocks, *encoder)) return false;
    encoding.packed = sink.take();
    encoding.linear = false;
    const u32 block = (kbps * (rate < 28000 ? 72000 : 144000) + rate / 2) / rate;
    ByteWriter fmt;
    fmt.text("fmt ").u32le(kFmtBytes);
    fmt.u16le(kWavMp3).u16le(static_cast<u16>(channels)).u32le(rate);
    fmt.u32le((kbps * 1000 + 4) / 8).u16le(1).u16le(0).u16le(kExtensionBytes);
    fmt.u16le(kMp3Id).u32le(0).u16le(static_cast<u16>(block)).u16le(1).u16le(kMp3Delay);
    encoding.fmt = fmt.take();
    return true;
}

/// A copy of a wave, without samples, of another rate: its places follow.
class RateCopy {
public:
    RateCopy(const Wave& wave, u32 rate) : copy_(store().Create<Wave>(wave, kNextFreeNumber)) {
        const f64 factor = static_cast<f64>(rate) / wave.sampleRate;
        copy_->sampleRate = rate;
        copy_->params.loopStart *= factor;
        copy_->params.loopEnd *= factor;
        for (CuePoint& cue : copy_->cuePoints) {
            cue.position = saturate<u32>(cue.position * factor + 0.5);
            cue.length = saturate<u32>(cue.length * factor + 0.5);
        }
    }
    ~RateCopy() { store().Delete(copy_); }
    RateCopy(const RateCopy&) = delete;
    RateCopy& operator=(const RateCopy&) = delete;
    const Wave& wave() const { return *copy_; }

private:
    Wave* copy_;
};

bool exportCompressed(const Wave& wave, FileContext& file, u32 formatWord, u32 subType, f32 kbps) {
    constexpr int kQuality = 5;
    if (isExtensible(subType)) return Fail("wav_Exp", "Unsupported subformat");
    const u32 channels = writableChannels(wave.channels, formatWord);
    const u32 rate = mpegRateFor(wave.sampleRate, 3);
    const std::unique_ptr<SampleBlocks> blocks =
        resampled(openSamples(wave, true), wave.sampleRate, rate, kQuality, sourceBitsOf(wave));
    if (channels == 0 || !blocks) return false;
    WavParts parts;
    if (!packCompressed(*blocks, channels, rate, compressedRate(wave, kbps), parts.encoding)) return false;
    std::optional<RateCopy> copy;
    if (rate != wave.sampleRate) copy.emplace(wave, rate);
    if (!wavParts(copy ? copy->wave() : wave, blocks->frames(), formatWord, subType, parts)) return false;
    return (file.write(parts.head) && file.write(*parts.encoding.packed) && file.write(parts.tail)) ||
           Fail("wav_Exp", "Writing to file failed");
}

} // namespace

bool wav_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 kbps) {
    if (classOf(item.id()) != kWaveClass) return Fail("wav_Exp", "The file format can not save this item");
    const auto& wave = static_cast<const Wave&>(item);
    if (perWave) formatWord |= wave.preferredFormat & kCodeMask;
    if ((formatWord & kCodeMask) == kCompressed)
        return exportCompressed(wave, file, formatWord, subType, kbps);
    const std::unique_ptr<SampleBlocks> blocks = openSamples(wave, encodesFromFloat(formatWord));
    if (!blocks) return false;
    WavParts parts;
    if (!wavParts(wave, blocks->frames(), formatWord, subType, parts)) return false;
    if (!file.write(parts.head)) return Fail("wav_Exp", "Writing to file failed");
    if (!writeEncoded(*blocks, parts.encoding, *file.sink)) return false;
    return file.write(parts.tail) || Fail("wav_Exp", "Writing to file failed");
}

bool wav_Build(Item& item, Bytes& bytes, u32 formatWord, u32 subType, f32 kbps) {
    MemorySink sink;
    FileContext file;
    file.sink = &sink;
    if (!item.LoadData() || !wav_Exp(item, file, formatWord, subType, false, kbps)) return false;
    bytes = sink.take();
    return true;
}

} // namespace kv

// FORM 8SVX. Documents: "8SVX IFF 8-bit sampled voice" (Electronic Arts, 1985), and the chunks that came
// later: CHAN for stereo, 16SV for 16 bits, exponential deltas. Stereo stands in two planes.
#include <algorithm>
#include <array>
#include <cmath>

#include "base/run_context.h"
#include "formats/audio/classic/classic_files.h"
#include "formats/audio/classic/classic_kit.h"
#include "formats/framework/chunks.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::string_view kImport = "svx_Imp", kExport = "svx_Exp";
constexpr u32 kStereoChannels = 6;
constexpr u32 kFullVolume = 0x10000;
constexpr u32 kSlipVolume = 0x100; ///< writers that count volume from 0 to 64 put that here
constexpr u32 kMostOctaves = 16;
constexpr std::size_t kTextBytes = 4096; ///< that are read of a text

/// The VHDR chunk; counts are of the highest octave, in samples of a channel.
struct VoiceHeader {
    u32 oneShot = 0, repeat = 0, perCycle = 0;
    u16 rate = 0;
    u8 octaves = 1, compression = 0;
    u32 volume = kFullVolume;
};
constexpr u32 kVoiceHeaderBytes = 20;

struct SvxFile {
    VoiceHeader voice;
    bool is16 = false, stereo = false;
    Chunk body;
    std::string name, author, comments, copyright;
};

// ---- Delta compression

using DeltaTable = std::array<i8, 16>;
constexpr DeltaTable kFibonacci{-34, -21, -13, -8, -5, -3, -2, -1, 0, 1, 2, 3, 5, 8, 13, 21};
constexpr DeltaTable kExponential{-128, -64, -32, -16, -8, -4, -2, -1, 0, 1, 2, 4, 8, 16, 32, 64};
constexpr u8 kFibonacciDelta = 1, kExponentialDelta = 2;
constexpr u64 kDeltaHeaderBytes = 2; ///< nothing, and the value ahead of the first sample

/// Two samples to a byte, the high half first.
CodedForm deltaForm(const DeltaTable& table, u8 before) {
    return {1,
            1,
            2,
            [&table, value = before](ByteSpan from, std::span<i16> to) mutable {
                const std::size_t count = std::min(to.size(), from.size() * 2);
                for (std::size_t i = 0; i < count; ++i) {
                    const u32 byte = std::to_integer<u32>(from[i / 2]);
                    const u32 code = i % 2 == 0 ? byte >> 4 : byte & 15;
                    value = static_cast<u8>(value + table[code]);
                    const auto sample = static_cast<i8>(value);
                    to[i] = static_cast<i16>(sample * 257 + 128); // as plain 8-bit samples are
                }
                return count;
            },
            {}};
}

/// Layout of the private area of such a wave.
enum Private : std::size_t { kCompression, kBodyBytes };

u64 deltaFrames(u64 bodyBytes, u32 channels) {
    const u64 plane = bodyBytes / channels;
    return plane <= kDeltaHeaderBytes ? 0 : (plane - kDeltaHeaderBytes) * 2;
}

std::unique_ptr<SampleBlocks> openPlane(const Wave& wave, FileContext& file, u64 start, u64 end) {
    Bytes head(kDeltaHeaderBytes);
    if (!file.source || file.source->readAt(start, head) != head.size()) {
        Fail(kImport, "Reading from file failed");
        return nullptr;
    }
    const DeltaTable& table = wave.sourcePrivate[kCompression] == kFibonacciDelta ? kFibonacci : kExponential;
    return openCoded(file.source, start + kDeltaHeaderBytes, end, wave.frames,
                     deltaForm(table, std::to_integer<u8>(head[1])));
}

std::unique_ptr<SampleBlocks> openDelta(const Wave& wave, FileContext& file) {
    const u64 plane = wave.sourcePrivate[kBodyBytes] / std::max(wave.channels, 1U);
    const u64 middle = file.position + plane;
    std::unique_ptr<SampleBlocks> left = openPlane(wave, file, file.position, middle);
    if (!left || wave.channels != 2) return left;
    return twoChannels(std::move(left), openPlane(wave, file, middle, middle + plane));
}
const WaveReader deltaReader{"svx_ImpWave", loadThroughBlocks, openDelta};

Wave* importDelta(const SvxFile& svx, u32 channels) {
    if (svx.voice.rate == 0) {
        Fail(kImport, "No sample rate");
        return nullptr;
    }
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &deltaReader);
    wave->dataFormat = kAdpcm4;
    wave->preferredFormat = kPcm8;
    wave->bits = 8;
    wave->channels = channels;
    wave->sampleRate = svx.voice.rate;
    wave->sourceOffset = svx.body.start;
    wave->sourcePrivate[kCompression] = svx.voice.compression;
    wave->sourcePrivate[kBodyBytes] = static_cast<u32>(svx.body.size);
    wave->frames = static_cast<u32>(std::min<u64>(deltaFrames(svx.body.size, channels), 0xFFFFFFFF));
    return wave;
}

// ---- Reading

VoiceHeader readVoice(ByteSpan bytes) {
    ByteCursor in(bytes);
    VoiceHeader voice;
    voice.oneShot = in.u32be();
    voice.repeat = in.u32be();
    voice.perCycle = in.u32be();
    voice.rate = in.u16be();
    voice.octaves = in.u8le();
    voice.compression = in.u8le();
    voice.volume = in.u32be();
    return voice;
}

std::string chunkText(ByteSource& source, const Chunk& chunk) {
    return fieldText(readContents(source, chunk, kTextBytes));
}

void addLine(std::string& text, const std::string& line) {
    if (text.size() < kTextBytes) text += (text.empty() ? "" : "\n") + line;
}

bool readForm(FileContext& file, SvxFile& svx) {
    const Bytes head = headOf(file, 12);
    const std::string_view form = head.size() == 12 ? textOf(ByteSpan(head).last(4)) : "";
    if (!textOf(head).starts_with("FORM") || (form != "8SVX" && form != "16SV"))
        return Fail(kImport, "Not an 8SVX file");
    svx.is16 = form == "16SV";
    ByteSource& source = *file.source;
    ChunkWalker walker(source, head.size(), file.size(), std::endian::big, ChunkPadding::Doubtful);
    bool voiceSeen = false;
    for (Chunk chunk; walker.next(chunk);) {
        if (chunk.id == fourcc("VHDR")) {
            svx.voice = readVoice(readContents(source, chunk, kVoiceHeaderBytes));
            voiceSeen = true;
        } else if (chunk.id == fourcc("CHAN")) {
            const Bytes channels = readContents(source, chunk, 4);
            svx.stereo = ByteCursor(channels).u32be() == kStereoChannels;
        } else if (chunk.id == fourcc("BODY") && svx.body.start == 0) {
            svx.body = chunk;
        } else if (chunk.id == fourcc("NAME")) {
            svx.name = chunkText(source, chunk);
        } else if (chunk.id == fourcc("AUTH")) {
            svx.author = chunkText(source, chunk);
        } else if (chunk.id == fourcc("(c) ")) {
            svx.copyright = chunkText(source, chunk);
        } else if (chunk.id == fourcc("ANNO")) {
            addLine(svx.comments, chunkText(source, chunk));
        }
    }
    if (!voiceSeen) return Fail(kImport, "Couldn't find VHDR chunk!");
    return svx.body.start != 0 || Fail(kImport, "Couldn't find BODY chunk!");
}

/// The key whose pitch a cycle of so many samples has.
u32 keyOfCycle(u32 rate, u32 perCycle) {
    return static_cast<u32>(std::lround(std::max(0.0, 69 + 12 * std::log2(f64{1} * rate / perCycle / 440))));
}

/// What all octaves of a voice have alike, and the loop and key of one.
void describe(Wave& wave, const SvxFile& svx, u32 octave) {
    const VoiceHeader& voice = svx.voice;
    wave.artist = svx.author;
    wave.comments = svx.comments;
    wave.copyright = svx.copyright;
    if (voice.repeat != 0)
        setLoop(wave, u64{voice.oneShot} << octave, (u64{voice.oneShot} + voice.repeat) << octave, kLooped);
    if (voice.perCycle != 0 && voice.perCycle <= voice.rate)
        setRootKey(wave, keyOfCycle(voice.rate, voice.perCycle << octave));
    if (voice.volume < kFullVolume && voice.volume >= kSlipVolume) {
        wave.params.override = true;
        wave.params.gainDb = static_cast<f32>(20 * std::log10(f64{1} * voice.volume / kFullVolume));
    }
}

SampleLayout plainLayout(const SvxFile& svx) {
    SampleLayout layout;
    layout.word = (svx.is16 ? kPcm16 | kByteswap : kPcm8) | (svx.stereo ? kSequential : 0);
    layout.channels = svx.stereo ? 2 : 1;
    layout.rate = svx.voice.rate;
    layout.offset = svx.body.start;
    layout.bytes = svx.body.size;
    return layout;
}

/// Each octave has twice the samples of the one above it, which stands ahead of it.
bool importOctaves(FileContext& file, const SvxFile& svx) {
    const std::string name = svx.name.empty() ? file.path.stem().string() : svx.name;
    const u64 first = (u64{svx.voice.oneShot} + svx.voice.repeat) * (svx.is16 ? 2 : 1);
    u64 at = svx.body.start;
    for (u32 octave = 0; octave < std::min<u32>(svx.voice.octaves, kMostOctaves); ++octave) {
        SampleLayout layout = plainLayout(svx);
        if (at >= svx.body.end()) break;
        layout.offset = at;
        layout.bytes = std::min(first << octave, svx.body.end() - at);
        at += layout.bytes;
        Wave* wave = importSamples(file, layout, kImport);
        if (!wave) return false;
        wave->SetName(fmt::format("{} (octave {})", name, octave + 1));
        describe(*wave, svx, octave);
    }
    return true;
}

} // namespace

bool svx_Imp(Collection&, FileContext& file, u32) {
    SvxFile svx;
    if (!readForm(file, svx)) return false;
    const VoiceHeader& voice = svx.voice;
    if (voice.compression > kExponentialDelta || (voice.compression != 0 && svx.is16))
        return Fail(kImport, "Unsupported compression type");
    const bool octaves = voice.octaves > 1 && voice.oneShot + u64{voice.repeat} > 0;
    if (octaves && voice.compression == 0 && !svx.stereo) return importOctaves(file, svx);
    Wave* wave = voice.compression == 0 ? importSamples(file, plainLayout(svx), kImport)
                                        : importDelta(svx, svx.stereo ? 2 : 1);
    if (!wave) return false;
    if (!svx.name.empty()) wave->SetName(svx.name);
    describe(*wave, svx, 0);
    return true;
}

// ---- Writing

namespace {

void putChunk(ByteWriter& out, std::string_view id, ByteSpan contents) {
    out.text(id).u32be(static_cast<u32>(contents.size())).bytes(contents).pad(2);
}

/// Samples of a cycle of the wave's root key; 0 unless the wave names one.
u32 cycleOf(const Wave& wave) {
    if (!wave.params.override) return 0;
    const f64 hz = 440 * std::exp2((wave.params.rootKey - 69) / 12.0);
    return saturate<u32>(wave.sampleRate / hz + 0.5);
}

u32 volumeOf(const Wave& wave) {
    const f64 gain = std::pow(10, std::min(0.0F, wave.params.gainDb) / 20);
    return std::max(kSlipVolume, saturate<u32>(gain * kFullVolume + 0.5));
}

/// All chunks but the body.
Bytes buildChunks(const SampleExport& out, const std::optional<FrameLoop>& loop) {
    const Wave& wave = *out.wave;
    ByteWriter voice;
    voice.u32be(loop ? loop->start : out.blocks->frames()).u32be(loop ? loop->end - loop->start : 0);
    voice.u32be(cycleOf(wave)).u16be(static_cast<u16>(wave.sampleRate)).u8le(1).u8le(0);
    voice.u32be(volumeOf(wave));
    ByteWriter chunks;
    putChunk(chunks, "VHDR", voice.view());
    const std::pair<std::string_view, std::string_view> texts[] = {
        {"NAME", wave.name()}, {"AUTH", wave.artist}, {"(c) ", wave.copyright}, {"ANNO", wave.comments}};
    for (const auto& [id, text] : texts) {
        if (!text.empty()) putChunk(chunks, id, bytesOf(Utf8ToAnsi(text)));
    }
    if (out.channels == 2) putChunk(chunks, "CHAN", ByteWriter().u32be(kStereoChannels).view());
    return chunks.take();
}

/// One channel after the other, each by a pass of its own over the samples.
bool writePlanes(const SampleExport& out, Item& item, ByteSink& sink) {
    for (u32 channel = 0; channel < 2; ++channel) {
        SampleExport pass = openExport(kExport, item, out.word, false);
        if (!pass) return false;
        const std::unique_ptr<SampleBlocks> plane =
            pass.wave->channels == 2 ? oneChannel(std::move(pass.blocks), channel) : std::move(pass.blocks);
        if (!writeSamples(*plane, (out.word & kCodeMask) | kMonoBit, sink)) return false;
    }
    return true;
}

} // namespace

bool svx_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    const SampleExport out = openExport(kExport, item, formatWord, perWave);
    if (!out) return false;
    const Wave& wave = *out.wave;
    const std::optional<FrameLoop> loop = frameLoop(wave);
    const Bytes chunks = buildChunks(out, loop);
    const u64 padded = out.dataBytes() + out.dataBytes() % 2;
    const u64 formBytes = 4 + chunks.size() + 8 + padded;
    if (!rateFits(kExport, wave, 0xFFFF) || !sizeFits(kExport, formBytes + 8)) return false;

    const bool tuningFits = wave.params.fineTune == 0 && wave.params.gainDb <= 0;
    reportLosses(wave,
                 kKeepsRate | kKeepsTexts | (loop ? kKeepsLoop : 0U) | (tuningFits ? kKeepsTuning : 0U));
    ByteWriter head;
    head.text("FORM").u32be(static_cast<u32>(formBytes)).text("8SVX").bytes(chunks);
    head.text("BODY").u32be(static_cast<u32>(out.dataBytes()));
    if (!file.write(head.view())) return Fail(kExport, "Writing to file failed");
    const bool written = out.channels == 2 ? writePlanes(out, item, *file.sink)
                                           : writeSamples(*out.blocks, out.word, *file.sink);
    if (!written) return false;
    const std::byte padding{};
    return padded == out.dataBytes() || file.write({&padding, 1}) || Fail(kExport, "Writing to file failed");
}

} // namespace kv

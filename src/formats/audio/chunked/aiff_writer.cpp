#include <algorithm>
#include <vector>

#include "base/run_context.h"
#include "formats/audio/chunked/aiff.h"
#include "formats/audio/chunked/aiff_fields.h"
#include "formats/audio/chunked/wave_notes.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "aif_Exp";
constexpr u32 kVersion1 = 0xA2805140; // of AIFF-C, the only one there is

/// How a data format code is named in AIFF-C; linear codes need no name.
struct Compression {
    u32 code;
    std::string_view id, name;
    u16 bits; ///< as COMM has them: of a law's sample once it is decoded
};
constexpr Compression kCompressions[] = {
    {kFloat32, "fl32", "32-bit floating point", 32},
    {kFloat64, "fl64", "64-bit floating point", 64},
    {kMuLaw, "ulaw", "\xB5Law 2:1", 16},
    {kALaw, "alaw", "ALaw 2:1", 16},
};

const Compression* findCompression(u32 word) {
    const auto* found = std::find_if(std::begin(kCompressions), std::end(kCompressions),
                                     [&](const Compression& c) { return c.code == (word & kCodeMask); });
    return found == std::end(kCompressions) ? nullptr : found;
}

/// A chunk around what a function writes, padded to an even size.
template <class Write>
void writeChunk(ByteWriter& out, std::string_view id, Write write) {
    const std::size_t start = out.text(id).size();
    out.u32be(0);
    write();
    out.patchU32be(start, static_cast<u32>(out.size() - start - 4));
    out.pad(2);
}

void writeCommon(ByteWriter& out, const SampleExport& samples) {
    const Compression* compression = findCompression(samples.word);
    writeChunk(out, "COMM", [&] {
        out.u16be(static_cast<u16>(samples.channels)).u32be(samples.blocks->frames());
        out.u16be(compression ? compression->bits : static_cast<u16>(samples.sampleBytes * 8));
        writeExtended(out, samples.wave->sampleRate);
        if (!compression) return;
        out.text(compression->id);
        writeCountedText(out, compression->name);
    });
}

struct Marker {
    u32 position;
    std::string name;
    std::string_view note;
};

/// The loop's two markers, then those of the cue points.
std::vector<Marker> markersOf(const Wave& wave, u32 frames) {
    std::vector<Marker> markers;
    if (wave.params.looped()) {
        const FrameLoop loop = wholeLoop(wave, frames);
        markers.push_back({loop.start, "Loop Start", {}});
        markers.push_back({loop.end, "Loop End", {}});
    }
    constexpr std::size_t kMost = 65535;
    for (const CuePoint& cue : wave.cuePoints) {
        if (markers.size() + 2 > kMost) {
            noteLoss(wave, "cuePoints", "the format has no room for so many");
            break;
        }
        markers.push_back({cue.position, cue.label.str(), cue.note});
        if (cue.length == 0) continue;
        const u32 end = cue.position + std::min(cue.length, 0xFFFFFFFF - cue.position);
        markers.push_back({end, cue.label.str() + std::string(kRangeEndMark), {}});
    }
    return markers;
}

void writeMarkers(ByteWriter& out, const std::vector<Marker>& markers) {
    if (markers.empty()) return;
    writeChunk(out, "MARK", [&] {
        out.u16be(static_cast<u16>(markers.size()));
        u16 id = 0;
        for (const Marker& marker : markers) {
            out.u16be(++id).u32be(marker.position);
            writeCountedText(out, marker.name);
        }
    });
    const auto noted = std::count_if(markers.begin(), markers.end(),
                                     [](const Marker& marker) { return !marker.note.empty(); });
    if (noted == 0) return;
    writeChunk(out, "COMT", [&] {
        out.u16be(static_cast<u16>(noted));
        u16 id = 0;
        for (const Marker& marker : markers) {
            ++id;
            if (marker.note.empty()) continue;
            out.u32be(0).u16be(id).u16be(static_cast<u16>(marker.note.size())).text(marker.note).pad(2);
        }
    });
}

/// Tuning and loop; a loop has the first two markers. It is the sustain loop alone, as other programs write
/// and read it.
void writeInstrument(ByteWriter& out, const Wave& wave) {
    const SampleParams& params = wave.params;
    const bool plain = params.rootKey == 60 && params.fineTune == 0 && params.gainDb == 0;
    if (plain && !params.looped() && !params.override) return;
    const f64 gain = params.gainDb;
    const auto wholeGain = static_cast<i16>(std::clamp(roundHalf(gain), -32768, 32767));
    if (wholeGain != gain) noteLoss(wave, "gainDb", "the format has whole decibels only");
    if (params.looped() && (params.loopFlags & kLoopUntilRelease) != 0)
        noteLoss(wave, "loop", "the format doesn't tell a loop until release from others");
    if (params.looped() && (params.loopFlags & kLoopReverse) != 0)
        noteLoss(wave, "loop", "the format has no loops that play backwards only");
    const u16 mode = !params.looped() ? 0 : (params.loopFlags & kLoopBidirectional) != 0 ? 2 : 1;
    writeChunk(out, "INST", [&] {
        out.u8le(params.rootKey).u8le(static_cast<u8>(params.fineTune));
        out.u8le(0).u8le(127).u8le(1).u8le(127).u16be(static_cast<u16>(wholeGain));
        out.u16be(mode).u16be(mode != 0 ? 1 : 0).u16be(mode != 0 ? 2 : 0).fill(6);
    });
}

void writeTexts(ByteWriter& out, const Wave& wave) {
    const std::pair<std::string_view, std::string_view> texts[] = {
        {"NAME", wave.name()}, {"AUTH", wave.artist}, {"(c) ", wave.copyright}, {"ANNO", wave.comments}};
    for (const auto& [id, text] : texts) {
        if (!text.empty()) writeChunk(out, id, [&, shown = text] { out.text(shown); });
    }
    if (!wave.album.empty() || !wave.engineer.empty())
        noteLoss(wave, "album, engineer", "the format has no place for it");
}

} // namespace

bool aif_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    const SampleExport samples = openExport(kContext, item, formatWord, perWave);
    if (!samples) return false;
    const Compression* compression = findCompression(samples.word);
    constexpr u32 kLinear = kPcm8 | kPcm16 | kPcm24 | kPcm32;
    if (!compression && (samples.word & kLinear) == 0) return Fail(kContext, "Unsupported subformat");

    const Wave& wave = *samples.wave;
    ByteWriter chunks;
    chunks.text(compression ? "AIFC" : "AIFF");
    if (compression) writeChunk(chunks, "FVER", [&] { chunks.u32be(kVersion1); });
    writeCommon(chunks, samples);
    writeMarkers(chunks, markersOf(wave, samples.blocks->frames()));
    writeInstrument(chunks, wave);
    writeTexts(chunks, wave);

    const u64 dataBytes = samples.dataBytes(), pad = dataBytes % 2;
    constexpr u64 kSoundHeaderBytes = 8;
    const u64 formBytes = chunks.size() + 8 + kSoundHeaderBytes + dataBytes + pad;
    if (formBytes > 0xFFFFFFFF) return Fail(kContext, "An AIFF file can't hold more than 4 GB");
    ByteWriter head;
    head.text("FORM").u32be(static_cast<u32>(formBytes)).bytes(chunks.view());
    head.text("SSND").u32be(static_cast<u32>(kSoundHeaderBytes + dataBytes)).fill(kSoundHeaderBytes);

    const u32 word = samples.sampleBytes > 1 ? samples.word | kByteswap : samples.word;
    if (!file.write(head.view())) return Fail(kContext, "Writing to file failed");
    if (!writeSamples(*samples.blocks, word, *file.sink)) return false;
    const Bytes padding(static_cast<std::size_t>(pad));
    return file.write(padding) || Fail(kContext, "Writing to file failed");
}

} // namespace kv

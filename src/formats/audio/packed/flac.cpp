#include "formats/audio/packed/flac.h"

#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/packed/packed_wave.h"
#include "formats/audio/packed/wav_metadata.h"
#include "formats/audio/tags/id3_tag.h"
#include "formats/audio/tags/tag_texts.h"
#include "formats/codecs/flac_encoder.h"
#include "formats/codecs/flac_stream.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

enum BlockType : u8 { kApplication = 2, kComments = 4, kCueSheet = 5 };

constexpr std::size_t kMostRiffBytes = 1 << 26; // of chunks in all

/// What stands in the metadata blocks besides the stream's own description.
struct FlacMetadata {
    Bytes riff;
    Bytes comments;
    Bytes cueSheet;
};

FlacMetadata readMetadata(ByteSource& source) {
    FlacMetadata found;
    std::array<std::byte, 4> header{};
    u64 at = 4;
    for (bool last = false; !last && source.readAt(at, header) == header.size();) {
        const u32 word = loadInteger<u32>(header, std::endian::big);
        last = (word >> 31) != 0;
        const auto type = static_cast<u8>(word >> 24 & 0x7F);
        const std::size_t size = word & 0xFFFFFF;
        at += header.size();
        if (type == kApplication || type == kComments || type == kCueSheet) {
            Bytes contents(static_cast<std::size_t>(std::min<u64>(size, source.size() - at)));
            contents.resize(source.readAt(at, contents));
            if (type == kComments) {
                found.comments = std::move(contents);
            } else if (type == kCueSheet) {
                found.cueSheet = std::move(contents);
            } else if (textOf(contents).starts_with("riff") &&
                       contents.size() <= kMostRiffBytes - found.riff.size()) {
                found.riff.insert(found.riff.end(), contents.begin() + 4, contents.end());
            }
        }
        at += size;
        if (at >= source.size()) break;
    }
    return found;
}

/// The tracks of a cue sheet but the last, which is its end.
void takeCueSheet(ByteSpan block, Wave& wave) {
    ByteCursor in(block);
    in.skip(128 + 8 + 1 + 258);
    u32 tracks = in.u8le();
    for (; tracks > 1 && in.ok(); --tracks) {
        const u64 offset = in.u64be();
        const u32 number = in.u8le();
        in.skip(12 + 1 + 13);
        const u32 points = in.u8le();
        for (u32 i = 0; i < points && in.ok(); ++i) {
            const u64 position = offset + in.u64be();
            const u32 index = in.u8le();
            in.skip(3);
            if (!in.ok() || position >= wave.frames) continue;
            CuePoint& cue = wave.cuePoints.emplace_back();
            cue.position = static_cast<u32>(position);
            cue.label = index == 1 ? fmt::format("Track {}", number) : fmt::format("{}.{}", number, index);
        }
    }
}

const WaveReader kFlacReader{"flac_ImpWave", loadThroughBlocks, openPacked<openFlac>};

} // namespace

bool flac_Imp(Collection&, FileContext& file, u32) {
    const PackedPlace place = betweenTags(*file.source);
    const std::shared_ptr<ByteSource> stream = packedSource(file, place);
    const std::optional<PackedStreamInfo> info = probeFlac(stream);
    Wave* wave =
        info ? importPacked(file, *info, place, losslessCode(*info), kFlacReader, "flac_Imp") : nullptr;
    if (!wave) return false;
    const FlacMetadata metadata = readMetadata(*stream);
    if (!metadata.riff.empty()) takeWavChunks(metadata.riff, *wave);
    TextTaker texts(*wave);
    takeVorbisComments(metadata.comments, texts);
    takeTags(*file.source, texts);
    texts.finish();
    if (wave->cuePoints.empty()) takeCueSheet(metadata.cueSheet, *wave);
    return true;
}

bool flac_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32) {
    const SampleExport out = openExport("flac_Exp", item, formatWord, perWave);
    if (!out) return false;
    reportLosses(*out.wave, kKeepsRate | kKeepsLoop | kKeepsTuning | kKeepsTexts | kKeepsCues);
    FlacSettings settings;
    settings.code = out.word & kCodeMask;
    settings.channels = out.channels;
    settings.sampleRate = out.wave->sampleRate;
    settings.frames = out.blocks->frames();
    settings.level = subType;
    settings.comments = commentsOf(*out.wave, 0);
    if (needsWavMetadata(*out.wave)) {
        WavMetadata metadata;
        if (!wavMetadata(*out.wave, out.blocks->frames(), out.word, metadata)) return false;
        settings.applications = splitWav(metadata);
    }
    const std::unique_ptr<PackingSink> encoder = makeFlacEncoder(*file.sink, settings);
    return encoder && packSamples(*out.blocks, *encoder);
}

} // namespace kv

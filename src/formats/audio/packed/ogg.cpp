#include "formats/audio/packed/ogg.h"

#include "base/run_context.h"
#include "formats/audio/packed/packed_wave.h"
#include "formats/audio/tags/tag_texts.h"
#include "formats/codecs/opus_encoder.h"
#include "formats/codecs/opus_stream.h"
#include "formats/codecs/vorbis_encoder.h"
#include "formats/codecs/vorbis_stream.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "formats/media/media_import.h"
#include "formats/media/media_kinds.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr f32 kUsualVorbisRate = 128, kUsualOpusRate = 96; // kbit/s
constexpr u32 kOpusRate = 48000;                           // Hz

const WaveReader kVorbisReader{"ogg_ImpWave", loadThroughBlocks, openPacked<openVorbis>};
const WaveReader kOpusReader{"opus_ImpWave", loadThroughBlocks, openPacked<openOpus>};

bool importOgg(FileContext& file, const std::optional<PackedStreamInfo>& info, const WaveReader& reader,
               std::string_view context) {
    const PackedPlace place{0, file.size()};
    Wave* wave = info ? importPacked(file, *info, place, kCompressed, reader, context) : nullptr;
    if (!wave) return false;
    TextTaker texts(*wave);
    for (const std::string& comment : info->comments) texts.take(comment);
    texts.finish();
    return true;
}

/// A number that is the same for the same wave, so that a file comes out the same each time.
u32 serialOf(const SampleExport& out) {
    return out.blocks->frames() * 2654435761U ^ out.wave->sampleRate;
}

SampleExport openFloat(std::string_view context, Item& item, u32 formatWord) {
    return openExport(context, item, (formatWord & ~kCodeMask) | kFloat32, false);
}

} // namespace

bool ogg_Imp(Collection& collection, FileContext& file, u32) {
    // The first packet of a stream begins with a name for its codec.
    Bytes start(28 + 7);
    start.resize(file.source->readAt(0, start));
    const std::string_view codec = textOf(start).substr(std::min<std::size_t>(start.size(), 28));
    if (!codec.empty() && codec != "\1vorbis") return media_Imp(collection, file, kMediaOgg);
    return importOgg(file, probeVorbis(file.source), kVorbisReader, "ogg_Imp");
}

bool opus_Imp(Collection&, FileContext& file, u32) {
    return importOgg(file, probeOpus(file.source), kOpusReader, "opus_Imp");
}

bool ogg_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool, f32 bitRate) {
    const SampleExport out = openFloat("ogg_Exp", item, formatWord);
    if (!out) return false;
    reportLosses(*out.wave, kKeepsRate | kKeepsLoop | kKeepsTexts);
    const std::unique_ptr<PackingSink> encoder = makeVorbisEncoder(
        *file.sink, {out.channels, out.wave->sampleRate, chosenRate(bitRate, *out.wave, kUsualVorbisRate),
                     serialOf(out), commentsOf(*out.wave, 1)});
    return encoder && packSamples(*out.blocks, *encoder);
}

bool opus_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool, f32 bitRate) {
    const SampleExport out = openFloat("opus_Exp", item, formatWord);
    if (!out) return false;
    const u32 rate = out.wave->sampleRate;
    reportLosses(*out.wave, kKeepsLoop | kKeepsTexts | (rate == kOpusRate ? u32{kKeepsRate} : 0));
    const std::unique_ptr<PackingSink> encoder =
        makeOpusEncoder(*file.sink, {out.channels, rate, chosenRate(bitRate, *out.wave, kUsualOpusRate),
                                     static_cast<OpusSound>(subType), serialOf(out),
                                     commentsOf(*out.wave, static_cast<f64>(kOpusRate) / rate)});
    return encoder && packSamples(*out.blocks, *encoder);
}

f32 ogg_Options(int index, u32, std::string* label) {
    return offeredRate(compressedRates(), index, "OGG", label);
}

f32 opus_Options(int index, u32, std::string* label) {
    return offeredRate(compressedRates(), index, "Opus", label);
}

} // namespace kv

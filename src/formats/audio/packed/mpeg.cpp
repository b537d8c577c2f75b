#include "formats/audio/packed/mpeg.h"

#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/packed/aac.h"
#include "formats/audio/packed/flac.h"
#include "formats/audio/packed/packed_wave.h"
#include "formats/audio/tags/id3_tag.h"
#include "formats/codecs/mpeg_encoder.h"
#include "formats/codecs/mpeg_stream.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/resampled_blocks.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

constexpr f32 kUsualMp3Rate = 192, kUsualMp2Rate = 192; // kbit/s
constexpr int kResamplingQuality = 5;

const WaveReader kMpegReader{"mpeg_ImpWave", loadThroughBlocks, openPacked<openMpeg>};

using MakeEncoder = std::unique_ptr<PackingSink> (*)(ByteSink&, const MpegSettings&);

bool exportMpeg(Item& item, FileContext& file, u32 formatWord, int layer, MpegRate mode, f32 kbps,
                MakeEncoder makeEncoder) {
    const std::string_view context = layer == 3 ? "mp3_Exp" : "mp2_Exp";
    SampleExport out = openExport(context, item, (formatWord & ~kCodeMask) | kFloat32, false);
    if (!out) return false;
    const Wave& wave = *out.wave;
    const u32 rate = mpegRateFor(wave.sampleRate, layer);
    reportLosses(wave, kKeepsTexts | (rate == wave.sampleRate ? u32{kKeepsRate} : 0));
    out.blocks =
        resampled(std::move(out.blocks), wave.sampleRate, rate, kResamplingQuality, sourceBitsOf(wave));
    if (!out.blocks) return false;
    if (!file.write(id3v2Tag(wave))) return Fail(context, "Writing to file failed");
    const f32 usual = layer == 3 ? kUsualMp3Rate : kUsualMp2Rate;
    const std::unique_ptr<PackingSink> encoder =
        makeEncoder(*file.sink, {out.channels, rate, mode, chosenRate(kbps, wave, usual)});
    return encoder && packSamples(*out.blocks, *encoder);
}

} // namespace

bool mpeg_Imp(Collection& collection, FileContext& file, u32) {
    const PackedPlace place = betweenTags(*file.source);
    const std::shared_ptr<ByteSource> stream = packedSource(file, place);
    Bytes start(4);
    if (place.start > 0 && stream->readAt(0, start) == start.size()) {
        if (textOf(start) == "fLaC") return flac_Imp(collection, file, 0);
        if (start[0] == std::byte{0xFF} && (start[1] & std::byte{0xF6}) == std::byte{0xF0})
            return aac_Imp(collection, file, 0);
    }
    const std::optional<PackedStreamInfo> info = probeMpeg(stream);
    Wave* wave = info ? importPacked(file, *info, place, kCompressed, kMpegReader, "mpeg_Imp") : nullptr;
    if (!wave) return false;
    TextTaker texts(*wave);
    takeTags(*file.source, texts);
    texts.finish();
    return true;
}

bool mp3_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool, f32 bitRate) {
    return exportMpeg(item, file, formatWord, 3, static_cast<MpegRate>(subType), bitRate, makeMp3Encoder);
}

bool mp2_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool, f32 bitRate) {
    return exportMpeg(item, file, formatWord, 2, MpegRate::Constant, bitRate, makeMp2Encoder);
}

f32 mp3_Options(int index, u32 subType, std::string* label) {
    constexpr std::string_view kNames[] = {"CBR", "ABR", "VBR"};
    const std::span<const u32> rates = subType == kMp3Variable ? mp3VariableRates() : compressedRates();
    return offeredRate(rates, index, fmt::format("MP3 {}", kNames[subType]), label);
}

f32 mp2_Options(int index, u32, std::string* label) {
    return offeredRate(mp2Rates(), index, "MP2 CBR", label);
}

} // namespace kv

#include "formats/audio/packed/wavpack.h"

#include "base/run_context.h"
#include "formats/audio/packed/packed_wave.h"
#include "formats/audio/packed/wav_metadata.h"
#include "formats/audio/tags/id3_tag.h"
#include "formats/codecs/wavpack_encoder.h"
#include "formats/codecs/wavpack_stream.h"
#include "formats/framework/losses.h"
#include "formats/framework/sample_file.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

const WaveReader kWavPackReader{"wv_ImpWave", loadThroughBlocks, openPacked<openWavPack>};

} // namespace

bool wv_Imp(Collection&, FileContext& file, u32) {
    const std::optional<PackedStreamInfo> info = probeWavPack(file.source);
    const u32 code = !info ? 0 : info->wasFloat ? kFloat32 : losslessCode(*info);
    Wave* wave = info ? importPacked(file, *info, {0, file.size()}, code, kWavPackReader, "wv_Imp") : nullptr;
    if (!wave) return false;
    WavPackWrapper wrapper = readWavPackWrapper(file.source);
    wrapper.head.insert(wrapper.head.end(), wrapper.tail.begin(), wrapper.tail.end());
    if (!wrapper.head.empty()) takeWavChunks(wrapper.head, *wave);
    TextTaker texts(*wave);
    takeTags(*file.source, texts);
    texts.finish();
    return true;
}

bool wv_Exp(Item& item, FileContext& file, u32 formatWord, u32, bool perWave, f32) {
    const SampleExport out = openExport("wv_Exp", item, formatWord, perWave);
    if (!out) return false;
    const Wave& wave = *out.wave;
    reportLosses(wave, kKeepsRate | kKeepsLoop | kKeepsTuning | kKeepsTexts | kKeepsCues);
    WavPackSettings settings{out.word & kCodeMask, out.channels, wave.sampleRate,
                             out.blocks->frames(), {},           {}};
    if (needsWavMetadata(wave)) {
        WavMetadata metadata;
        if (!wavMetadata(wave, out.blocks->frames(), out.word, metadata)) return false;
        settings.head = std::move(metadata.head);
        settings.tail = std::move(metadata.tail);
    }
    const std::unique_ptr<PackingSink> encoder = makeWavPackEncoder(*file.sink, settings);
    if (!encoder || !packSamples(*out.blocks, *encoder)) return false;
    return file.write(apeTag(wave)) || Fail("wv_Exp", "Writing to file failed");
}

} // namespace kv

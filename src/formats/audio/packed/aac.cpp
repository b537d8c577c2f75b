#include "formats/audio/packed/aac.h"

#include "formats/audio/packed/packed_wave.h"
#include "formats/audio/tags/id3_tag.h"
#include "formats/codecs/aac_stream.h"
#include "model/wave.h"
#include "samples/data_format.h"

namespace kv {
namespace {

const WaveReader kAacReader{"aac_ImpWave", loadThroughBlocks, openPacked<openAac>};

} // namespace

bool aac_Imp(Collection&, FileContext& file, u32) {
    const PackedPlace place = betweenTags(*file.source);
    const std::optional<PackedStreamInfo> info = probeAac(packedSource(file, place));
    Wave* wave = info ? importPacked(file, *info, place, kCompressed, kAacReader, "aac_Imp") : nullptr;
    if (!wave) return false;
    TextTaker texts(*wave);
    takeTags(*file.source, texts);
    texts.finish();
    return true;
}

} // namespace kv

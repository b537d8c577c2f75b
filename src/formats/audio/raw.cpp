#include "formats/audio/raw.h"

#include <algorithm>

#include "base/run_context.h"
#include "formats/audio/raw_coded.h"
#include "formats/framework/losses.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/wave_data.h"
#include "model/workspace.h"
#include "samples/data_format.h"

namespace kv {
namespace {

/// Bits per sample of a code; 8 for one that has none of its own.
u32 bitsOf(u32 word) {
    u32 bits = 0;
    FormatCodeInfo(word & kCodeMask, nullptr, &bits);
    return bits == 0 ? 8 : bits;
}

void setSource(Wave& wave, const RawSource& source, u64 fileSize, u64 size) {
    wave.dataFormat = source.dataFormat;
    wave.channels = std::clamp(source.channels, 1U, 2U);
    wave.sourceOffset = source.offset > fileSize ? 0 : source.offset;
    size = std::min(size, fileSize - wave.sourceOffset);
    wave.bits = bitsOf(source.dataFormat);
    wave.frames = saturate<u32>(static_cast<f64>(size * 8 / (u64{wave.channels} * wave.bits)));
}

} // namespace

bool importRaw(FileContext& file, u32 word) {
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &genericReader);
    RawSource source;
    source.dataFormat = word;
    setSource(*wave, source, file.size(), file.size());
    return true;
}

bool raw_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool, f32) {
    if (classOf(item.id()) != kWaveClass) return Fail("raw_Exp", "The file format can not save this item");
    reportLosses(static_cast<const Wave&>(item), 0);
    constexpr u32 kFlags = kSequential | kUnsigned | kByteswap | kPaddedMsb;
    return gen_ExpWave(*file.sink, static_cast<const Wave&>(item), formatWord | (subType & kFlags));
}

bool unrecognized_Imp(Collection&, FileContext& file, u32) {
    static constexpr std::string_view kButtons[] = {"OK", "Cancel"};
    const int answer =
        Ask("Unknown file type!",
            "The selected file can not be detected as any of the supported import types. Select OK "
            "to manually supply additional information and treat it as raw data.",
            kButtons, 1);
    if (answer != 0) return true;
    const RawSource& source = workspace().rawSource;
    Wave* wave = store().Create<Wave>(kNextFreeNumber, &genericReader);
    wave->sampleRate = source.sampleRate;
    setSource(*wave, source, file.size(), file.size());
    return true;
}

bool reinterpretSource(Wave& wave, const RawSource& source, u64 size) {
    if (!wave.reloadable) return true;
    const std::shared_ptr<ByteSource> file = openFileSource(wave.sourceFile);
    if (!file) return Fail("Read wave-data from disk", "Could not open file");
    if (wave.reader == &genericReader) {
        wave.sampleRate = source.sampleRate;
        wave.preferredFormat = 0;
        setSource(wave, source, file->size(), size);
    } else if (!reinterpretCoded(wave, source, file->size())) {
        return true;
    }
    wave.scratch() = 0;
    FreeData(wave, true);
    wave.FixUp();
    return true;
}

} // namespace kv

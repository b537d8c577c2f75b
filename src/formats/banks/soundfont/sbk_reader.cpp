#include <fmt/format.h>

#include "base/run_context.h"
#include "formats/banks/soundfont/sbk_mapping.h"
#include "formats/banks/soundfont/sf_bank_builder.h"
#include "formats/banks/soundfont/sf_reader.h"
#include "formats/banks/soundfont/sf_samples.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/workspace.h"
#include "samples/text_codec.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "sbk_Imp";

Sf2Sample sampleOf(const SfFile& file, std::size_t row) {
    Sf2Sample sample;
    ByteCursor record = file.samples[row];
    sample.start = record.u32le();
    sample.end = record.u32le();
    sample.loopStart = record.u32le();
    sample.loopEnd = record.u32le();
    sample.rate = 44100;
    sample.name = textFromBytes(file.names[row].bytes(kSfNameBytes));
    return sample;
}

/// Sounds of the card's own memory stand first, up to the first one at the start of the file's. The last
/// row only closes the list.
std::vector<SfWave> readSamples(const SfFile& file, FileContext& context) {
    std::vector<SfWave> waves;
    bool inFile = false;
    std::size_t skipped = 0;
    for (std::size_t row = 0; row < file.samples.count(); ++row) {
        const Sf2Sample sample = sampleOf(file, row);
        if (row + 1 == file.samples.count() && sample.end <= sample.start) break;
        inFile = inFile || sample.start == 0;
        waves.emplace_back();
        if (!inFile) {
            ++skipped;
            continue;
        }
        Wave& wave = *store().Create<Wave>(kNextFreeNumber, &genericReader, sample.name);
        static_cast<void>(placeSf2Samples(wave, file, sample, context)); // plain ones can't fail
        wave.sampleRate = sample.rate;
        wave.params.override = true;
        wave.params.loopStart = static_cast<f64>(i64{sample.loopStart} - sample.start);
        wave.params.loopEnd = static_cast<f64>(i64{sample.loopEnd} - sample.start);
        waves.back().wave = &wave;
    }
    if (skipped > 0) ShowMessage({}, fmt::format("Skipped {} ROM sample(s)", skipped));
    return waves;
}

} // namespace

bool sbk_Imp(Collection& collection, FileContext& file, u32) {
    SfFile bank;
    if (!bank.read(file, collection)) return Fail(kContext, "Not a Sound Font file");
    if (bank.major != 1) return Fail(kContext, "Not a SoundFont v1.x file");
    const std::vector<SfWave> waves = readSamples(bank, file);
    SfBankBuilder builder(bank, waves, sbkInstrumentDefaults(),
                          [](const SfZone& preset, const SfZone& zone, const SfWave& played, Region& region) {
                              region.keyGroup = static_cast<u8>(zone.generators[kExclusiveClass]);
                              sbk_ReadZone({preset, zone}, region.articulation, region.params);
                              played.wave->params.loopFlags = region.params.loopFlags;
                              played.wave->sampleRate = sbk_SampleRate({preset, zone});
                          });
    builder.build();
    FixUpAll(kAllClasses);
    tidySoundFont();
    return true;
}

} // namespace kv

#include "base/run_context.h"
#include "formats/banks/soundfont/sf2_mapping.h"
#include "formats/banks/soundfont/sf_bank_builder.h"
#include "formats/banks/soundfont/sf_reader.h"
#include "formats/banks/soundfont/sf_samples.h"
#include "model/collection.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/sample_blocks.h"
#include "model/store.h"
#include "model/workspace.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "sf2_Imp";
constexpr u16 kHighestType = 8; // of samples that stand in the file

/// A bank while it is read.
class Sf2Reader {
public:
    explicit Sf2Reader(FileContext& file) : context_(file) {}

    bool read(Collection& collection);

private:
    bool readSamples();
    bool makeWave(const Sf2Sample& sample, std::size_t row);
    void settleOverrides() const;

    FileContext& context_;
    SfFile file_;
    std::vector<SfWave> waves_;
    std::vector<bool> unpitched_; ///< by row
};

/// Numbers of stereo pairs go around, as a region has a byte for them and 0 is none.
u8 phaseGroupOf(std::size_t row) {
    return static_cast<u8>(row % 255 + 1);
}

bool Sf2Reader::makeWave(const Sf2Sample& sample, std::size_t row) {
    constexpr u8 kUnpitched = 255;
    Wave& wave = *store().Create<Wave>(kNextFreeNumber, &genericReader, sample.name);
    const bool placed = placeSf2Samples(wave, file_, sample, context_);
    wave.sampleRate = sample.rate;
    wave.params.override = true;
    // In a stream of its own the points of a sample count from its start.
    const u16 type = sample.type & static_cast<u16>(~kSf3Vorbis);
    const i64 start = type == sample.type ? sample.start : 0;
    wave.params.loopStart = static_cast<f64>(sample.loopStart - start);
    wave.params.loopEnd = static_cast<f64>(sample.loopEnd - start);
    wave.params.rootKey = sample.rootKey < 128 ? sample.rootKey : u8{60};
    wave.params.fineTune = sample.correction;
    unpitched_[row] = sample.rootKey == kUnpitched;

    SfWave& made = waves_[row];
    made.wave = &wave;
    if (type == kSf2Left) {
        made.phaseGroup = phaseGroupOf(row);
    } else if (type == kSf2Right) {
        made.phaseGroup = phaseGroupOf(sample.link);
        made.phaseMaster = true;
    }
    return placed;
}

/// One packed sample that can't be read is a damaged one; when none can, the codec is missing.
bool Sf2Reader::readSamples() {
    std::size_t made = 0, failed = 0;
    for (std::size_t row = 0; row < file_.samples.count(); ++row) {
        const Sf2Sample sample = readSf2Sample(file_.samples[row]);
        const bool last = row + 1 == file_.samples.count();
        if (sample.name.starts_with("EOS") || (last && sample.end == 0 && sample.rate == 0)) break;
        waves_.emplace_back();
        unpitched_.push_back(false);
        const int type = file_.major == 3 ? sample.type & ~kSf3Vorbis : sample.type;
        if (type <= kHighestType) ++(makeWave(sample, row) ? made : failed);
    }
    return made > 0 || failed == 0;
}

/// Regions that play their wave as it is need no block of their own. This is told at the end: each zone
/// changes the wave's loop flags.
void Sf2Reader::settleOverrides() const {
    for (Region& region : store().all<Region>()) {
        const Wave* wave = RegionWave(region);
        if (!wave) continue;
        SampleParams own = wave->params;
        own.override = region.params.override;
        region.params.override = region.params != own;
    }
}

bool Sf2Reader::read(Collection& collection) {
    if (!file_.read(context_, collection)) return Fail(kContext, "Not a SoundFont2 file");
    if (file_.major != 2 && file_.major != 3) return Fail(kContext, "Not a Sound Font v2.x file");
    if (file_.sm24) {
        const u64 points = file_.smpl ? file_.smpl->size / 2 : 0;
        const u64 low = file_.sm24->size;
        if (low != points && low != points + 1 && points != 0) {
            runContext().diagnostics.warn(file_.sm24->start, "sm24", "its size doesn't fit; read as 16 bits");
            file_.sm24.reset();
        }
    }
    if (!readSamples()) return false;
    SfBankBuilder builder(
        file_, waves_, instrumentZoneDefaults(),
        [&](const SfZone& preset, const SfZone& zone, const SfWave& played, Region& region) {
            const auto row = static_cast<std::size_t>(zone.target);
            region.keyGroup = static_cast<u8>(zone.generators[kExclusiveClass]);
            sf2_ReadZone({preset, zone}, unpitched_[row], region.articulation, region.params);
            played.wave->params.loopFlags = region.params.loopFlags;
        });
    builder.build();
    settleOverrides();
    FixUpAll(kAllClasses);
    tidySoundFont();
    return true;
}

} // namespace

bool sf2_Imp(Collection& collection, FileContext& file, u32) {
    return Sf2Reader(file).read(collection);
}

} // namespace kv

#include "formats/banks/dls/dls_losses.h"

#include <algorithm>
#include <cmath>
#include <set>

#include "base/run_context.h"
#include "formats/banks/dls/dls_records.h"
#include "formats/framework/bank_contents.h"
#include "formats/framework/losses.h"
#include "model/articulation_blocks.h"
#include "model/articulation_fields.h"
#include "model/articulation_levels.h"
#include "samples/data_format.h"

namespace kv {
namespace {

void addLoss(const Item& item, std::string_view field, std::string_view text) {
    runContext().diagnostics.add(
        {Severity::Loss, 0, item.name().str(), std::string(field), std::string(text)});
}

/// What a region can say, and below which level it can't.
struct RegionLoss {
    std::string_view field;
    int below;
    bool (*present)(const Region& region, const SampleParams& params);
};
constexpr int kAlways = 99;
const RegionLoss kRegionLosses[] = {
    {"velLow, velHigh", kDlsLevel2,
     [](const Region& r, const SampleParams&) { return r.velLow > 0 || r.velHigh < 127; }},
    {"trigger", kDlsLevel2Full,
     [](const Region& r, const SampleParams&) { return r.trigger != 0 || r.pedalUp != r.pedalDown; }},
    {"loopFlags", kDlsLevel2,
     [](const Region&, const SampleParams& p) {
         return p.looped() && (p.loopFlags & kLoopUntilRelease) != 0;
     }},
    {"loopFlags", kDlsLevel2Full,
     [](const Region&, const SampleParams& p) {
         return p.looped() && (p.loopFlags & (kLoopBidirectional | kLoopReverse)) != 0;
     }},
    {"startOffset, endOffset", kAlways,
     [](const Region&, const SampleParams& p) { return p.startOffset != 0 || p.endOffset != 0; }},
};

/// Takes out of a record what can't be heard, so that its loss isn't one.
Articulation heard(Articulation record) {
    const auto reset = [&record](std::string_view prefix, std::string_view suffix = {}) {
        for (const ArticulationField& field : articulationFields()) {
            if (field.name.starts_with(prefix) && field.name.ends_with(suffix))
                field.set(record, field.initial());
        }
    };
    if (!record.filterEnable) {
        reset("filter");
        reset("", "Cutoff");
    }
    if (!record.eqEnable) reset("eq");
    if (record.eg2ToPitch == 0 && record.eg2ToCutoff == 0) reset("eg2");
    if (record.lfo2ToPitch == 0 && record.modToLfo2Pitch == 0 && record.aftertouchToLfo2Pitch == 0)
        reset("lfo2");
    return record;
}

/// Blocks hold most values as fractions, and times as logarithms; the shortest delay of an LFO is none.
bool nearlyEqual(const ArticulationField& field, f64 a, f64 b) {
    const f64 least = field.unit == FieldUnit::Seconds ? 0.0101 : 0.001;
    return std::abs(a - b) <= least + 0.001 * std::max(std::abs(a), std::abs(b));
}

/// Adds the names of fields that don't come back from the blocks of the level.
void findLostFields(Articulation record, int level, std::set<std::string_view>& lost) {
    constexpr std::size_t kListBytes = 20;             // up to the contents of the chunk
    if (level < kDlsLevel2Full) record.masterTune = 0; // it stands with the samples
    ByteWriter list;
    writeArticulationBlocks(list, record, nullptr, level);
    Articulation back;
    readArticulationBlocks(list.view().subspan(kListBytes), back);
    const Articulation before = heard(record), after = heard(back);
    for (const ArticulationField& field : articulationFields()) {
        if (!nearlyEqual(field, field.get(before), field.get(after))) lost.insert(field.name);
    }
}

void reportInstrument(const Instrument& instrument, int level) {
    std::set<std::string_view> lost;
    // Regions without a record of their own sound alike.
    const Articulation* last = nullptr;
    Articulation sounding;
    forEachLayer(instrument, [&](const Layer& layer, std::size_t) {
        forEachRegion(layer, [&](const Region& region, const Wave&) {
            const SampleParams params = effectiveParams(region);
            for (const RegionLoss& row : kRegionLosses) {
                if (level < row.below && row.present(region, params)) lost.insert(row.field);
            }
            const Articulation now = resolveArticulation(&instrument, &layer, &region);
            if (!now.enabled || (last && now == *last)) return;
            sounding = now;
            last = &sounding;
            findLostFields(sounding, level, lost);
        });
    });
    for (const std::string_view field : lost) addLoss(instrument, field, "the format has no place for it");
}

} // namespace

void reportDlsLosses(const BankContents& contents, int level, u32 formatWord) {
    for (const Instrument* instrument : contents.instruments) reportInstrument(*instrument, level);
    u32 bits = 0; // 0: each wave in its own form
    FormatCodeInfo(formatWord & kCodeMask, nullptr, &bits);
    for (const Wave* wave : contents.waves) {
        reportLosses(*wave, kKeepsRate | kKeepsLoop | kKeepsTuning | kKeepsTexts);
        if (wave->channels > 1 && level < kDlsLevel2Full) addLoss(*wave, "channels", "mixed to one channel");
        if (bits != 0 && wave->bits > bits) addLoss(*wave, "bits", fmt::format("written in {} bits", bits));
    }
}

} // namespace kv

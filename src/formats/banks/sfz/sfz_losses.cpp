#include "formats/banks/sfz/sfz_losses.h"

#include <cmath>
#include <set>

#include "base/run_context.h"
#include "formats/banks/sfz/sfz_mapping.h"
#include "model/articulation_fields.h"
#include "model/articulation_levels.h"
#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

using A = Articulation;

constexpr std::string_view kNoPlace = "the format has no place for it";
constexpr std::string_view kLimited = "beyond what the format can say";

void addLoss(const Item& item, std::string_view field, std::string_view text) {
    runContext().diagnostics.add(
        {Severity::Loss, 0, item.name().str(), std::string(field), std::string(text)});
}

struct RegionLoss {
    std::string_view field;
    bool (*lost)(const Region& region, const SampleParams& params);
};
constexpr RegionLoss kRegionLosses[] = {
    {"phaseGroup", [](const Region& r, const SampleParams&) { return r.phaseGroup != 0; }},
    {"trigger", [](const Region& r, const SampleParams&) { return (r.trigger >> 4) != 0; }},
    {"selfNonExclusive", [](const Region& r, const SampleParams&) { return r.selfNonExclusive != 0; }},
    {"loopFlags",
     [](const Region&, const SampleParams& p) {
         return p.looped() && (p.loopFlags & (kLoopBidirectional | kLoopReverse)) != 0;
     }},
    {"loopStart, loopEnd",
     [](const Region&, const SampleParams& p) {
         return p.looped() && (p.loopStart != std::floor(p.loopStart) || p.loopEnd != std::floor(p.loopEnd));
     }},
};

/// Fields that no opcode of the writer stands for, and that a record without them has at their defaults.
constexpr std::string_view kUnwritten[] = {
    "lfo1Shape",     "lfo2Shape",     "eg1Shutdown",    "eg1VelToAttack",
    "eg1KeyToHold",  "eg1KeyToDecay", "eg2VelToAttack", "eg2KeyToHold",
    "eg2KeyToDecay", "keyToPan",      "cc10ToPan",      "cc91ToReverb",
    "cc93ToChorus",  "lfo1ToPitch",   "modToLfo1Pitch", "aftertouchToLfo1Pitch",
    "eqEnable"};

void addUnwritten(const Articulation& sounding, std::set<std::string_view>& lost) {
    // A bank's release counts from the sustain level, so that without one there is none.
    if (sounding.eg1Sustain <= 0 && sounding.eg1Release > 0) lost.insert("eg1Release");
    static const std::set<std::string_view> kNames(std::begin(kUnwritten), std::end(kUnwritten));
    for (const ArticulationField& field : articulationFields()) {
        if (kNames.contains(field.name) && field.get(sounding) != field.initial()) lost.insert(field.name);
    }
}

/// Depths that don't fit into their opcodes.
void addLimited(const Articulation& sounding, std::set<std::string_view>& limited) {
    constexpr f64 kSlack = 0.01;
    for (const SfzLink& link : sfzLinks()) {
        const f64 value = static_cast<f64>(sounding.*link.field) / link.factor;
        if (value < link.least - kSlack || value > link.most + kSlack) limited.insert(link.opcode);
    }
}

} // namespace

void reportSfzLosses(const Instrument& instrument) {
    std::set<std::string_view> lost, limited;
    for (const ItemId layerId : instrument.childIds) {
        const Layer* layer = store().Find<Layer>(layerId);
        if (!layer) continue;
        for (const ItemId id : layer->childIds) {
            const Region* region = store().Find<Region>(id);
            if (!region || !RegionWave(*region)) continue;
            const SampleParams params = effectiveParams(*region);
            for (const RegionLoss& row : kRegionLosses) {
                if (row.lost(*region, params)) lost.insert(row.field);
            }
            const Articulation sounding = resolveArticulation(&instrument, layer, region);
            addUnwritten(sounding, lost);
            addLimited(sounding, limited);
        }
    }
    if (instrument.patch != 0) lost.insert("patch");
    for (const std::string_view field : lost) addLoss(instrument, field, kNoPlace);
    for (const std::string_view opcode : limited) addLoss(instrument, opcode, kLimited);
}

} // namespace kv

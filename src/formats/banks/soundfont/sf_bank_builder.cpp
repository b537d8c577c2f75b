#include "formats/banks/soundfont/sf_bank_builder.h"

#include <algorithm>
#include <unordered_map>

#include "base/run_context.h"
#include "formats/framework/bank_contents.h"
#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

/// Records are shared between presets, so a small file can ask for a great many regions. No bank that was
/// made to be played comes near these.
constexpr u64 kMostWork = 32'000'000;
constexpr std::size_t kMostRegions = 262'144;

constexpr SfGroups::Layout kPresets{38, true, "EOP"};
constexpr SfGroups::Layout kInstruments{22, false, "EOI"};

} // namespace

void SfBankBuilder::Target::add(Region& region) {
    std::bitset<128> keys;
    for (std::size_t key = region.keyLow; key <= region.keyHigh; ++key) keys.set(key);
    auto slot =
        std::find_if(slots.begin(), slots.end(), [&](const Slot& s) { return (s.used & keys).none(); });
    if (slot == slots.end()) {
        Layer* layer = store().Create<Layer>(kNextFreeNumber);
        instrument.AddChild(layer->id());
        slot = slots.insert(slots.end(), {layer, {}});
    }
    slot->used |= keys;
    slot->layer->AddChild(region.id());
}

bool SfBankBuilder::exhausted() {
    if (work_ < kMostWork && regions_ < kMostRegions) return false;
    if (!complained_) runContext().diagnostics.warn(0, "zones", "too many zones; the rest was left out");
    complained_ = true;
    return true;
}

void SfBankBuilder::build() {
    instruments_ = file_.instruments.groups(kInstruments);
    for (const SfGroup& group : file_.presets.groups(kPresets)) {
        if (exhausted()) break;
        preset(group);
    }
    if (const u64 dropped = file_.presets.dropped + file_.instruments.dropped) {
        runContext().diagnostics.add(
            {Severity::Loss, 0, {}, "modulators", fmt::format("{} modulators have no counterpart", dropped)});
    }
}

void SfBankBuilder::preset(const SfGroup& group) {
    constexpr u16 kDrumBank = 128;
    Instrument& instrument = *store().Create<Instrument>(kNextFreeNumber, 0U, 0U, group.name);
    instrument.patch = u32{group.program} % 128 | (u32{group.bank} % 128) << 14;
    if (group.bank == kDrumBank) instrument.patch |= Instrument::kDrumKit;

    SfZone start = presetZoneDefaults();
    for (std::size_t bag = group.bags.begin; bag < group.bags.end && !exhausted(); ++bag) {
        SfZone zone = start;
        if (!file_.presets.read(bag, kInstrumentIndex, zone, work_)) continue;
        if (zone.target >= 0)
            presetZone(zone, instrument);
        else if (bag == group.bags.begin)
            start = zone; // the global zone
    }
}

void SfBankBuilder::presetZone(const SfZone& zone, Instrument& instrument) {
    const auto index = static_cast<std::size_t>(zone.target);
    if (index >= instruments_.size()) return;
    const SfGroup& group = instruments_[index];
    Target target{instrument};
    SfZone start = defaults_;
    for (std::size_t bag = group.bags.begin; bag < group.bags.end && !exhausted(); ++bag) {
        SfZone own = start;
        if (!file_.instruments.read(bag, kSampleId, own, work_)) continue;
        if (own.target >= 0)
            instrumentZone(zone, own, target);
        else if (bag == group.bags.begin)
            start = own;
    }
}

void SfBankBuilder::instrumentZone(const SfZone& preset, const SfZone& zone, Target& target) {
    const auto sample = static_cast<std::size_t>(zone.target);
    if (sample >= waves_.size() || !waves_[sample].wave) return;
    const SfRange whole;
    const SfRange keys = preset.range(kKeyRange) & zone.range(kKeyRange) & whole;
    const SfRange velocities = preset.range(kVelRange) & zone.range(kVelRange) & whole;
    if (keys.empty() || velocities.empty()) return;
    const SfWave& played = waves_[sample];
    Region& region = *store().Create<Region>(kNextFreeNumber, numberOf(played.wave->id()), keys.low,
                                             keys.high, velocities.low, velocities.high);
    ++regions_;
    region.phaseGroup = played.phaseGroup;
    region.phaseMaster = played.phaseMaster ? 1 : 0;
    region.params = played.wave->params;
    region.params.override = true;
    region.articulation.enabled = true;
    readZone_(preset, zone, played, region);
    target.add(region);
}

namespace {

void putLeftFirst(Layer& first, Layer& second) {
    std::unordered_map<u32, std::size_t> leftOnes; // by key range
    for (std::size_t i = 0; i < second.childIds.size(); ++i) {
        const Region* region = store().Find<Region>(second.childIds[i]);
        if (region && region->articulation.panDefault <= -1) {
            leftOnes.emplace(u32{region->keyLow} << 8 | region->keyHigh, i);
        }
    }
    for (ItemId& id : first.childIds) {
        const Region* region = store().Find<Region>(id);
        if (!region || region->articulation.panDefault < 1) continue;
        const auto found = leftOnes.find(u32{region->keyLow} << 8 | region->keyHigh);
        if (found == leftOnes.end()) continue;
        std::swap(id, second.childIds[found->second]);
        leftOnes.erase(found);
    }
}

} // namespace

void tidySoundFont() {
    moveBlocksIntoWaves();
    for (const Instrument& instrument : store().all<Instrument>()) {
        for (std::size_t i = 0; i + 1 < instrument.childIds.size(); i += 2) {
            Layer* first = store().Find<Layer>(instrument.childIds[i]);
            Layer* second = store().Find<Layer>(instrument.childIds[i + 1]);
            if (first && second) putLeftFirst(*first, *second);
        }
    }
}

} // namespace kv

#include "model/instrument.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "base/run_context.h"
#include "model/articulation_levels.h"
#include "model/key_name.h"
#include "model/pending.h"
#include "model/store.h"
#include "model/synth_model.h"
#include "model/wave.h"
#include "model/workspace.h"

namespace kv {
namespace {

const ParameterSet& activeSet() {
    return settings().pset;
}

/// Takes master tuning out of an articulation when it is switched off; returns its cents.
i32 takeMasterTune(Articulation& articulation) {
    if (activeSet()[Switch::MasterTuning] || !articulation.enabled) return 0;
    const i32 cents = roundHalf(static_cast<f64>(articulation.masterTune) * 100, 0.499);
    articulation.masterTune = 0;
    return cents;
}

/// Adds cents that were taken from a level above to a region's tuning.
void addCents(Region& region, i32 cents) {
    const Wave* wave = RegionWave(region);
    if (!region.params.override && wave) {
        region.params = wave->params;
        region.params.override = true; // else the next fix-up would fetch the wave's tuning again
    }
    region.params.fineTune = saturate<i32>(static_cast<f64>(region.params.fineTune) + cents);
    ValidateParams(region.params, wave ? wave->frames : 0, activeSet());
}

/// Both ends within 0..127 and in order.
void orderRange(u8& low, u8& high) {
    if (low > 127) low = 0;
    if (high > 127) high = 127;
    if (low > high) std::swap(low, high);
}

template <class T, class Test>
bool anyChild(const Item& item, Test test) {
    return std::any_of(item.childIds.begin(), item.childIds.end(), [&](ItemId id) {
        const T* child = item.store().Find<T>(id);
        return child && test(*child);
    });
}

} // namespace

// ---- Region

Region::Region(Store& owner, ItemId request, u32 waveNumber, u8 lowKey, u8 highKey, u8 lowVel, u8 highVel)
    : Item(owner, kClass, request), keyLow(lowKey), keyHigh(highKey), velLow(lowVel), velHigh(highVel) {
    if (waveNumber != 0) AddChild(kWaveClass | (waveNumber & kNumberMask));
}

Region::Region(Store& owner, const Region& source, ItemId request)
    : Region(owner, request, 0, source.keyLow, source.keyHigh, source.velLow, source.velHigh) {
    copyItemFields(source);
    setPlainName(source.name());
    phaseGroup = source.phaseGroup;
    phaseMaster = source.phaseMaster;
    trigger = source.trigger;
    pedalUp = source.pedalUp;
    pedalDown = source.pedalDown;
    keyGroup = source.keyGroup;
    selfNonExclusive = source.selfNonExclusive;
    params = source.params;
    articulation = source.articulation;
    for (const ItemId child : source.childIds) {
        const SynthModel* model = owner.Find<SynthModel>(child);
        AddChild(model ? owner.Create<SynthModel>(*model, kNextFreeNumber)->id() : child);
    }
}

Region::~Region() {
    store().Delete(RegionSynth(*this));
}

void Region::FixUp() {
    Item::FixUp();
    orderRange(keyLow, keyHigh);
    orderRange(velLow, velHigh);
    if (keyGroup > 15) keyGroup = static_cast<u8>((keyGroup - 1) % 15 + 1);

    Wave* wave = RegionWave(*this);
    const SynthModel* model = RegionSynth(*this);
    std::string text = KeyName(keyLow);
    if (keyHigh != keyLow) text += ".." + KeyName(keyHigh);
    text += " : ";
    text += wave ? wave->name().view() : model ? model->name().view() : std::string_view("unnamed");
    setPlainName(text);

    const i32 cents = takeMasterTune(articulation);
    if (!activeSet()[Switch::TriggerType]) {
        trigger &= 0xF0;
        pedalUp = pedalDown = 1;
    } else if (pedalUp == 0 && pedalDown == 0) {
        pedalUp = pedalDown = 1;
    }
    sanitizeArticulation(articulation, activeSet());
    if (!params.override && wave && wave->params.override) {
        params = wave->params;
        params.override = false;
    }
    params.fineTune = saturate<i32>(static_cast<f64>(params.fineTune) + cents);
    ValidateParams(params, wave ? wave->frames : 0, activeSet());
    params.dontTruncate = params.dontCompress = true;
}

std::string Region::Describe() const {
    std::string text = fmt::format("Region with key range {}..{}, velocity range {}..{} -> ", KeyName(keyLow),
                                   KeyName(keyHigh), velLow, velHigh);
    if (RegionSynth(*this)) return text + "Synthesis model";
    const Wave* wave = RegionWave(*this);
    const int key = params.override ? params.rootKey : wave ? wave->params.rootKey : 64;
    return text + fmt::format("Waveform (root key{} {})", params.override ? " override" : "", KeyName(key));
}

bool Region::HasSynthesis() const {
    return std::any_of(childIds.begin(), childIds.end(),
                       [](ItemId id) { return (id & kSynthModelClass) != 0; });
}

bool Region::HasWave() const {
    return std::any_of(childIds.begin(), childIds.end(), [](ItemId id) { return (id & kWaveClass) != 0; });
}

bool Region::ConvertSynthesis(bool, Item*) {
    return renderSynthesis(*this);
}
void Region::RevertSynthesis() {
    conversion.clear();
}

// ---- Layer

Layer::Layer(Store& owner, ItemId request, u32 waveNumber) : Item(owner, kClass, request) {
    if (waveNumber != 0) AddChild(owner.Create<Region>(kNextFreeNumber, waveNumber)->id());
}

Layer::Layer(Store& owner, const Layer& source, ItemId request) : Layer(owner, request) {
    copyItemFields(source);
    setPlainName(source.name());
    drum = source.drum;
    articulation = source.articulation;
    keyMap = source.keyMap;
    for (const ItemId child : source.childIds) {
        if (const Region* region = owner.Find<Region>(child)) {
            AddChild(owner.Create<Region>(*region, kNextFreeNumber)->id());
        }
    }
}

Layer::~Layer() {
    deleteChildren();
}

void Layer::SetName(std::string_view text, bool) {
    setPlainName(text);
}

void Layer::FixUp() {
    Item::FixUp();
    const i32 cents = takeMasterTune(articulation);
    sanitizeArticulation(articulation, activeSet());
    if (childIds.size() > 1) rebuildByKeys();
    if (cents == 0) return;
    for (const ItemId id : childIds) {
        Region* region = store().Find<Region>(id);
        if (region && !region->articulation.enabled) addCents(*region, cents);
    }
}

/// Gives each key to the first region in child order that wants it. A region that loses a key keeps what
/// lies above the last one lost; what it took below that only counts for its place in the order.
void Layer::rebuildByKeys() {
    std::array<Region*, 128> slots{};
    std::vector<Region*> doubtful;
    for (const ItemId id : childIds) {
        Region* region = store().Find<Region>(id);
        if (!region) continue;
        region->scratch() = 0;
        // The range walked is the region's own at the start; keyLow moves behind each key that is lost.
        for (int key = region->keyLow, high = std::min<int>(region->keyHigh, 127); key <= high; ++key) {
            Region*& slot = slots[static_cast<std::size_t>(key)];
            if (slot)
                region->keyLow = static_cast<u8>(key + 1);
            else
                slot = region;
        }
        if (region->keyLow > region->keyHigh) doubtful.push_back(region);
    }
    childIds.clear();
    Region* previous = nullptr;
    for (Region* region : slots) {
        if (region == previous) continue;
        previous = region;
        if (region && region->scratch()++ == 0) AddChild(region->id());
    }
    for (Region* region : doubtful) {
        if (region->scratch() == 0) store().Delete(region);
    }
}

std::string Layer::Describe() const {
    return fmt::format("Layer with {} region{}", childIds.size(), plural(childIds.size()));
}

bool Layer::HasSynthesis() const {
    return anyChild<Region>(*this, [](const Region& region) { return region.HasSynthesis(); });
}

bool Layer::HasWave() const {
    return anyChild<Region>(*this, [](const Region& region) { return region.HasWave(); });
}

bool Layer::ConvertSynthesis(bool flag, Item* owner) {
    const std::vector<ItemId> children = childIds;
    return std::all_of(children.begin(), children.end(), [&](ItemId id) {
        Region* region = store().Find<Region>(id);
        return !region || !region->HasSynthesis() || region->ConvertSynthesis(flag, owner);
    });
}

void Layer::RevertSynthesis() {
    const ItemId self = id();
    Store& owner = store();
    const std::vector<ItemId> children = childIds;
    for (std::size_t i = children.size(); i-- > 0 && owner.FindItem(self);) {
        Region* region = owner.Find<Region>(children[i]);
        if (region && region->HasSynthesis()) region->RevertSynthesis();
    }
}

// ---- Instrument

Instrument::Instrument(Store& owner, ItemId request, u32 waveNumber, u32 layerCount, std::string_view text,
                       bool unique)
    : Item(owner, kClass, request) {
    if (numberOf(request) != kNextFreeNumber) patch = numberOf(request) & 127;
    SetName(text, unique);
    for (u32 i = 0; i < layerCount; ++i) AddChild(owner.Create<Layer>(kNextFreeNumber, waveNumber)->id());
}

Instrument::Instrument(Store& owner, const Instrument& source, ItemId request)
    : Item(owner, kClass, request) {
    copyItemFields(source);
    SetName(source.name(), false);
    patch = source.patch;
    comment = source.comment;
    articulation = source.articulation;
    for (const ItemId child : source.childIds) {
        if (const Layer* layer = owner.Find<Layer>(child)) {
            AddChild(owner.Create<Layer>(*layer, kNextFreeNumber)->id());
        }
    }
}

Instrument::~Instrument() {
    deleteChildren();
}

void Instrument::FixUp() {
    Item::FixUp();
    dataSize = 0;
    if (!activeSet()[Switch::DrumKits]) patch &= ~kDrumKit;
    const i32 cents = takeMasterTune(articulation);

    if (!activeSet()[Switch::MultiLayering] && childIds.size() > 1) {
        while (childIds.size() > 1) {
            store().Delete(childAt(childIds.size() - 1));
            childIds.pop_back();
        }
        Refresh();
    }
    std::set<ItemId> counted;
    for (std::size_t i = 0; i < childIds.size(); ++i) {
        Layer* layer = store().Find<Layer>(childIds[i]);
        if (!layer) continue;
        layer->SetName(fmt::format("Layer {}", i + 1), false);
        layer->drum = drumKit();
        for (const ItemId id : layer->childIds) {
            Region* region = store().Find<Region>(id);
            const Wave* wave = region ? RegionWave(*region) : nullptr;
            if (!wave) continue;
            if (cents != 0 && !layer->articulation.enabled && !region->articulation.enabled) {
                addCents(*region, cents);
            }
            if (counted.insert(wave->id()).second) dataSize += wave->dataSize;
        }
    }
    sanitizeArticulation(articulation, activeSet());
    fitLevelsToParameterSet(*this, activeSet());
}

std::string Instrument::Describe() const {
    std::size_t regions = 0;
    for (const ItemId id : childIds) {
        if (const Layer* layer = store().Find<Layer>(id)) regions += layer->childIds.size();
    }
    return fmt::format("{} {}:{}:{} with {} layer{} and {} region{}", drumKit() ? "Drum kit" : "Instrument",
                       bankMsb(), bankLsb(), program(), childIds.size(), plural(childIds.size()), regions,
                       plural(regions));
}

bool Instrument::HasSynthesis() const {
    return anyChild<Layer>(*this, [](const Layer& layer) { return layer.HasSynthesis(); });
}

bool Instrument::HasWave() const {
    return anyChild<Layer>(*this, [](const Layer& layer) { return layer.HasWave(); });
}

bool Instrument::ConvertSynthesis(bool flag, Item* owner) {
    const std::vector<ItemId> children = childIds;
    for (const ItemId id : children) {
        Layer* layer = store().Find<Layer>(id);
        if (!layer || !layer->HasSynthesis()) continue;
        if (!layer->ConvertSynthesis(flag, owner ? owner : this)) return false;
        if (layer->childIds.empty()) {
            RemoveChildAt(IndexOfChild(id));
            store().Delete(layer);
        }
    }
    return true;
}

void Instrument::RevertSynthesis() {
    const std::vector<ItemId> children = childIds;
    for (std::size_t i = children.size(); i-- > 0;) {
        if (Layer* layer = store().Find<Layer>(children[i])) layer->RevertSynthesis();
    }
}

// ---- Look-ups

std::span<const TriggerType> triggerTypes() {
    static constexpr TriggerType kTypes[] = {{0x00, "Key Press"},      {0x01, "Key Release"},
                                             {0x02, "Alternate Gr.1"}, {0x12, "Alternate Gr.2"},
                                             {0x22, "Alternate Gr.3"}, {0x32, "Alternate Gr.4"},
                                             {0x42, "Alternate Gr.5"}, {0x52, "Alternate Gr.6"},
                                             {0x62, "Alternate Gr.7"}, {0x72, "Alternate Gr.8"}};
    return kTypes;
}

Wave* RegionWave(const Region& region) {
    for (const ItemId id : region.childIds) {
        if ((id & kWaveClass) != 0) return region.store().Find<Wave>(id);
    }
    return nullptr;
}

SynthModel* RegionSynth(const Region& region) {
    for (const ItemId id : region.childIds) {
        if ((id & kSynthModelClass) != 0) return region.store().Find<SynthModel>(id);
    }
    return nullptr;
}

SampleParams effectiveParams(const Region& region) {
    if (region.params.override) return region.params;
    const Wave* wave = RegionWave(region);
    return wave ? wave->params : SampleParams();
}

u16 effectiveLoopFlags(const Region& region) {
    return effectiveParams(region).loopFlags;
}

Region* LayerRegionAtKey(const Layer& layer, int key) {
    for (const ItemId id : layer.childIds) {
        Region* region = layer.store().Find<Region>(id);
        if (region && key >= region->keyLow && key <= region->keyHigh) return region;
    }
    return nullptr;
}

bool LayerRangeIsFree(const Layer& layer, int keyLow, int keyHigh, int velLow, int velHigh) {
    return !anyChild<Region>(layer, [&](const Region& region) {
        return region.keyLow <= keyHigh && region.keyHigh >= keyLow && region.velLow <= velHigh &&
               region.velHigh >= velLow;
    });
}

bool LayersOverlap(const Layer& layer, const Layer& other, bool withVelocity) {
    return anyChild<Region>(other, [&](const Region& region) {
        const int low = withVelocity ? region.velLow : 0;
        const int high = withVelocity ? region.velHigh : 127;
        return !LayerRangeIsFree(layer, region.keyLow, region.keyHigh, low, high);
    });
}

std::array<bool, 128> KeyUsage(const Layer& layer) {
    std::array<bool, 128> used{};
    for (const ItemId id : layer.childIds) {
        const Region* region = layer.store().Find<Region>(id);
        if (!region) continue;
        for (int key = region->keyLow; key <= std::min<int>(region->keyHigh, 127); ++key) {
            used[static_cast<std::size_t>(key)] = true;
        }
    }
    return used;
}

Instrument* InstrumentOfLayer(const Layer& layer) {
    for (Instrument& instrument : layer.store().all<Instrument>()) {
        if (instrument.HasChild(layer.id())) return &instrument;
    }
    return nullptr;
}

Layer* LayerOfRegion(const Region& region) {
    for (Layer& layer : region.store().all<Layer>()) {
        if (layer.HasChild(region.id())) return &layer;
    }
    return nullptr;
}

Layer* LayerOfSynth(const SynthModel& model) {
    for (Layer& layer : model.store().all<Layer>()) {
        if (anyChild<Region>(layer, [&](const Region& region) { return region.HasChild(model.id()); })) {
            return &layer;
        }
    }
    return nullptr;
}

void KeyMapToRegions(Layer& layer) {
    KeyMapToRegions(layer, layer.keyMap);
}

void KeyMapToRegions(Layer& layer, const std::array<u32, 128>& waveNumbers) {
    Store& owner = layer.store();
    u32 current = kNoWaveNumber;
    Region* region = nullptr;
    for (u8 key = 0; key < 128; ++key) {
        const u32 number = waveNumbers[key];
        if (number == current) continue;
        current = number;
        if (region) region->keyHigh = static_cast<u8>(key - 1);
        const bool live = number <= kNumberMask && owner.Find<Wave>(kWaveClass | number) != nullptr;
        region = live ? owner.Create<Region>(kNextFreeNumber, number, key, u8{127}) : nullptr;
        if (region) layer.AddChild(region->id());
    }
}

// ---- Sort orders

bool patchBefore(const Item& a, const Item& b) {
    return static_cast<const Instrument&>(a).patch < static_cast<const Instrument&>(b).patch;
}

bool programBefore(const Item& a, const Item& b) {
    const auto key = [](const Item& item) {
        const auto& instrument = static_cast<const Instrument&>(item);
        return (instrument.drumKit() ? 1U << 21 : 0U) | instrument.program() << 14 |
               (instrument.patch >> 7 & 0x3FFF);
    };
    return key(a) < key(b);
}

bool nameBefore(const Item& a, const Item& b) {
    return compareIgnoringCase(a.name(), b.name()) < 0;
}

} // namespace kv

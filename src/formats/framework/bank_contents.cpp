#include "formats/framework/bank_contents.h"

#include <unordered_set>

#include "model/articulation_levels.h"
#include "model/workspace.h"

namespace kv {

BankContents::~BankContents() {
    store().Delete(temporary_);
}

bool BankContents::gather(Item& item) {
    switch (classOf(item.id())) {
        case kCollectionClass:
            for (Instrument& instrument : store().all<Instrument>()) instruments.push_back(&instrument);
            for (Wave& wave : store().all<Wave>()) waves.push_back(&wave);
            return true;
        case kInstrumentClass:
            instruments.push_back(static_cast<Instrument*>(&item));
            break;
        case kLayerClass:
        case kRegionClass:
        case kWaveClass:
            wrap(item);
            break;
        default:
            return false;
    }
    std::unordered_set<ItemId> used;
    for (const Instrument* instrument : instruments) {
        forEachLayer(*instrument, [&](const Layer& layer, std::size_t) {
            forEachRegion(layer, [&](const Region&, const Wave& wave) { used.insert(wave.id()); });
        });
    }
    for (Wave& wave : store().all<Wave>()) {
        if (used.contains(wave.id())) waves.push_back(&wave);
    }
    return true;
}

/// The copy of a region or layer takes along what it sounds with by the levels above.
void BankContents::wrap(Item& item) {
    temporary_ = store().Create<Instrument>(kNextFreeNumber, 0U, 0U, item.name().view(), false);
    instruments.push_back(temporary_);
    Layer* layer = nullptr;
    if (classOf(item.id()) == kLayerClass) {
        const auto& source = static_cast<const Layer&>(item);
        layer = store().Create<Layer>(source, kNextFreeNumber);
        if (const Instrument* above = InstrumentOfLayer(source)) {
            layer->articulation = resolveArticulation(above, &source, nullptr);
            temporary_->SetName(above->name(), false);
        }
    } else if (classOf(item.id()) == kRegionClass) {
        const auto& source = static_cast<const Region&>(item);
        layer = store().Create<Layer>(kNextFreeNumber);
        Region* copy = store().Create<Region>(source, kNextFreeNumber);
        layer->AddChild(copy->id());
        if (const Layer* above = LayerOfRegion(source)) {
            const Articulation sounding = resolveArticulation(InstrumentOfLayer(*above), above, &source);
            if (sounding.enabled) copy->articulation = sounding;
        }
        if (const Wave* wave = RegionWave(source)) temporary_->SetName(wave->name(), false);
    } else {
        layer = store().Create<Layer>(kNextFreeNumber, numberOf(item.id()));
    }
    temporary_->AddChild(layer->id());
}

} // namespace kv

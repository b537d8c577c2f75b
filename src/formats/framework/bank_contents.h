// What is saved when an item becomes a bank of its own.
#pragma once

#include <vector>

#include "model/instrument.h"
#include "model/store.h"
#include "model/wave.h"

namespace kv {

/// An item's instruments and waves. An item below an instrument gets one for the time being.
class BankContents {
public:
    BankContents() = default;
    ~BankContents();
    BankContents(const BankContents&) = delete;
    BankContents& operator=(const BankContents&) = delete;
    /// False for an item that no bank can hold.
    bool gather(Item& item);

    std::vector<Instrument*> instruments;
    std::vector<Wave*> waves; ///< in list order

private:
    void wrap(Item& item);
    Instrument* temporary_ = nullptr;
};

/// Calls `work(layer, index)` for the layers of an instrument.
template <class Do>
void forEachLayer(const Instrument& instrument, Do work) {
    for (std::size_t i = 0; i < instrument.childIds.size(); ++i) {
        if (Layer* layer = instrument.store().Find<Layer>(instrument.childIds[i])) work(*layer, i);
    }
}

/// Calls `work(region, wave)` for the regions of a layer that play a wave.
template <class Do>
void forEachRegion(const Layer& layer, Do work) {
    for (const ItemId id : layer.childIds) {
        Region* region = layer.store().Find<Region>(id);
        Wave* wave = region ? RegionWave(*region) : nullptr;
        if (wave) work(*region, *wave);
    }
}

} // namespace kv

#include "formats/banks/dls/dls_placement.h"

#include "model/instrument.h"
#include "model/store.h"
#include "model/workspace.h"

namespace kv {

DlsLayers::Slot& DlsLayers::add() {
    Layer* layer = store().Create<Layer>(kNextFreeNumber);
    instrument_.AddChild(layer->id());
    return slots_.emplace_back(Slot{layer});
}

DlsLayers::Slot* DlsLayers::at(u32 number) {
    while (slots_.size() < number && budget_.layers > 0) {
        --budget_.layers;
        add();
    }
    return number > 0 && number <= slots_.size() ? &slots_[number - 1] : nullptr;
}

DlsLayers::Slot& DlsLayers::firstFree(const std::bitset<128>& keys) {
    for (Slot& slot : slots_) {
        if (budget_.searches == 0) break;
        --budget_.searches;
        if ((slot.used & keys).none()) return slot;
    }
    return add();
}

void DlsLayers::place(Region& region, u32 number) {
    std::bitset<128> keys;
    for (std::size_t key = region.keyLow; key <= region.keyHigh; ++key) keys.set(key);
    Slot* slot = at(number);
    if (!slot || (slot->used & keys).any()) slot = &firstFree(keys);
    slot->used |= keys;
    slot->layer->AddChild(region.id());
}

} // namespace kv

#include "formats/framework/free_layers.h"

#include <algorithm>

#include "model/instrument.h"
#include "model/store.h"

namespace kv {

void FreeLayers::place(Region& region) {
    std::bitset<128> keys;
    std::size_t at = 0;
    for (int key = region.keyLow; key <= std::min<int>(region.keyHigh, 127); ++key) {
        u32& first = firstFree_[static_cast<std::size_t>(key)];
        while (first < slots_.size() && slots_[first].used[static_cast<std::size_t>(key)]) ++first;
        at = std::max<std::size_t>(at, first);
        keys.set(static_cast<std::size_t>(key));
    }
    while (at < slots_.size() && (slots_[at].used & keys).any()) ++at;
    if (at == slots_.size()) {
        slots_.push_back({instrument_.store().Create<Layer>(kNextFreeNumber)});
        instrument_.AddChild(slots_.back().layer->id());
    }
    slots_[at].used |= keys;
    slots_[at].layer->AddChild(region.id());
}

} // namespace kv

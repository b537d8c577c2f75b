#include "model/move_articulation.h"

#include <algorithm>
#include <vector>

#include "model/instrument.h"
#include "model/store.h"
#include "model/workspace.h"

namespace kv {
namespace {

/// The parent takes the record that all its children share.
template <class Child, class Parent>
void moveUp(Parent& parent) {
    std::vector<Child*> children;
    for (const ItemId id : parent.childIds) {
        if (Child* child = parent.store().template Find<Child>(id)) children.push_back(child);
    }
    const bool alike =
        !children.empty() && std::all_of(children.begin(), children.end(), [&](const Child* child) {
            return child->articulation.enabled && child->articulation == children[0]->articulation;
        });
    if (!alike) return;
    parent.articulation = children[0]->articulation;
    for (Child* child : children) child->articulation.enabled = false;
}

} // namespace

void moveArticulationUp(bool regionsToLayers, bool layersToInstruments) {
    const ParameterSet& set = settings().pset;
    for (Layer& layer : store().all<Layer>()) {
        // A drum kit has no articulation at its layers.
        if (regionsToLayers && set[Switch::LayerArticulation] && !layer.drum) moveUp<Region>(layer);
    }
    for (Instrument& instrument : store().all<Instrument>()) {
        if (layersToInstruments && set[Switch::InstrumentArticulation]) moveUp<Layer>(instrument);
    }
}

} // namespace kv

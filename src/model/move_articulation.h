// Articulation that all parts of an instrument have alike.
#pragma once

namespace kv {

/// Moves records up where all children have one and all are equal, from regions to their layer and from
/// layers to their instrument, as far as the parameter set has those levels.
void moveArticulationUp(bool regionsToLayers, bool layersToInstruments);

} // namespace kv

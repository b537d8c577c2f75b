// Articulation on the three levels of an instrument: which record a region sounds with, what stands for
// many of them, and how records move to the levels that a parameter set has.
#pragma once

#include "model/articulation.h"

namespace kv {

class Instrument;
class Layer;
class Region;

/// The record of the nearest level that has one enabled, or the default envelope for the region's loop,
/// not enabled. Any of the three may be null; without a region the defaults stand.
Articulation resolveArticulation(const Instrument* instrument, const Layer* layer, const Region* region);

/// One record for some layers of an instrument, by their index from 0, both ends included. Enabled only
/// when some region in the range sounds with a record of any level.
Articulation articulationRange(const Instrument* instrument, std::size_t firstLayer, std::size_t lastLayer);

/// Moves and averages records so that only the levels of the set hold any. A drum kit always has the
/// instrument's and the regions'.
void fitLevelsToParameterSet(Instrument& instrument, const ParameterSet& set);

} // namespace kv

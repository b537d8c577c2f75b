// Finding a loop for a wave.
#pragma once

#include "base/integers.h"

namespace kv {

class Wave;

/// Sets the loop that sounds best, with an end behind the fraction `searchFrom` of the wave. `sustain` makes
/// a loop that ends with the key; `crossfade` blends within it; `cutRest` cuts behind a loop that isn't
/// `sustain`. Silence gets none. False with the error pair set, and the wave as it was, when the user stops
/// the search, or won't have it for a long wave, and when the samples can't be had.
bool AutoLoop(Wave& wave, bool crossfade, bool sustain, bool cutRest, f32 searchFrom);

} // namespace kv

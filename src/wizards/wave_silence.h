// Silence within waves: taking it out, and cutting waves where it is. Only the first channel of a frame is
// looked at, in stereo waves too.
#pragma once

#include <vector>

#include "base/integers.h"

namespace kv {

class Wave;

struct SilenceRemoval {
    bool fromStart = true, fromEnd = true, anywhere = false;
    f64 threshold = 0.01; ///< of full scale
    u32 minimum = 1;      ///< frames of a silent section within the wave
    bool smooth = true;   ///< blends the three samples on both sides of each cut
};
/// Takes silent sections out; loop points follow. Leaves a wave alone of which four frames or fewer would
/// stay.
bool RemoveSilence(Wave& wave, const SilenceRemoval& how);

struct SilenceSplit {
    f64 detect = 0.01;      ///< of full scale: a part begins where this is reached
    f64 clip = 0.005;       ///< a part ends where the level stays below this
    u32 minimumSilence = 1; ///< frames for which it must stay there
    u32 minimumSound = 1;   ///< frames of a part that is kept
    bool smooth = true;     ///< fades the three samples at both ends of each part
};
/// Keeps the first part in the wave and makes a wave of each further one. Answers the waves made; false with
/// the error pair set when the samples can't be had.
bool SplitAtSilence(Wave& wave, const SilenceSplit& how, std::vector<Wave*>& made);

} // namespace kv

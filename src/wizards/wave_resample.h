// Waves at another sample rate.
#pragma once

#include "base/integers.h"

namespace kv {

class Wave;

/// Resamples a wave to `frames` frames, or as many as the change of rate makes if that is 0, and gives it the
/// rate `rate`, in Hz. Loop, selection and cue points follow. `quality` is that of `ResamplerSettings`, 0
/// to 8. Changes no sample when the number of frames stays. False with the error pair set, and the wave as it
/// was, for rate 0, when no frame would be left, and when the samples or the filter can't be had.
bool ResampleWave(Wave& wave, u32 frames, u32 rate, int quality);

} // namespace kv

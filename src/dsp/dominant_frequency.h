// The frequency of the strongest partial of a sound.
#pragma once

#include <span>

#include "base/integers.h"

namespace kv {

/// The frequency, in Hz, of the strongest peak of the spectrum above 16 Hz, or 0 if there is none. Looks at
/// one window of up to a second, two thirds of the way into the sound, and at the first channel only.
///
/// `samples` holds `frames` frames, `stride` samples apart; 0 if it doesn't, or for fewer than 2 frames or
/// a rate below 2 Hz. With `warn`, asks when the sound is shorter than a fifth of a second, and gives 0 when
/// the user declines. The resolution is that of the bins: rate / N with N the largest power of two within the
/// sound and within a second.
f64 DominantFrequency(std::span<const f32> samples, std::size_t frames, std::size_t stride, u32 rate,
                      bool warn);

} // namespace kv

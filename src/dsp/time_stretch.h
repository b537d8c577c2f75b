// Sounds made longer or shorter at their pitch, or higher or lower at their length. All on interleaved
// frames of any number of channels; what isn't finite counts as 0.
#pragma once

#include <span>
#include <vector>

#include "base/integers.h"

namespace kv {

inline constexpr f64 kMinStretch = 0.1, kMaxStretch = 10; ///< of the phase vocoder

/// trunc(frames * factor + 0.5), limited to 0..2^63.
u64 stretchedLength(u64 frames, f64 factor);

/// Moving triangular filter: grains of 8000 frames are laid 4667 frames apart, taken from 4667 / factor apart
/// in the source, with ramps that add to 1. `out` gets `stretchedLength` frames. Fails for a factor that is
/// not above 0, frames that aren't whole, and results of more than 2^31 samples. A factor of 1 copies.
bool stretchByGrains(std::span<const f32> in, std::size_t channels, f64 factor, std::vector<f32>& out);

/// Phase vocoder, for a factor from 0.1 to 10. Attacks are copied as they are and land at their place times
/// the factor. All channels are turned by the same phases, so that they stay together. `rate`, in Hz, sets
/// the size of the frames, about 40 ms. Fails as above.
bool stretchBySpectrum(std::span<const f32> in, std::size_t channels, u32 rate, f64 factor,
                       std::vector<f32>& out);

/// Frequencies times `factor` (0.1 to 10) at the old length: `stretchBySpectrum`, then resampled back.
bool scalePitch(std::span<const f32> in, std::size_t channels, u32 rate, f64 factor, std::vector<f32>& out);

} // namespace kv

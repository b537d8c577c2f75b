// A measure of loudness close to ReplayGain's: the level that the loudest twentieth of a sound reaches.
#pragma once

#include <span>
#include <vector>

#include "base/integers.h"

namespace kv {

/// Taps of the ear filter.
inline constexpr std::size_t kEarTaps = 128;

/// A linear-phase filter for a rate in Hz that weighs frequencies as the ear does: by the curve of equal
/// loudness of D. J. M. Robinson, "Replay Gain: a proposed standard" (2001), with gain 1 where it is lowest.
std::vector<f64> earFilter(u32 rate);

/// Collects levels of blocks of 50 ms; several sounds may be added and count as one.
class LoudnessMeter {
public:
    explicit LoudnessMeter(bool earFilter) : earFilter_(earFilter), histogram_(kBins) {}

    /// Adds a sound: interleaved frames of `channels` channels at `rate` Hz. A last partial block counts if
    /// it is longer than half a block. Samples that aren't finite count as 0. The filter's delay is made up
    /// for.
    void add(std::span<const f32> samples, std::size_t channels, u32 rate);

    /// The measure in dB: -31.49 less the level with the filter, -21.26 less the level without, so louder
    /// sounds give lower values; 0 if nothing was added.
    f64 result() const;

private:
    static constexpr std::size_t kBins = 12000; ///< of 0.01 dB, downward from full scale

    void count(f64 meanSquare);

    bool earFilter_;
    std::vector<u64> histogram_;
};

} // namespace kv

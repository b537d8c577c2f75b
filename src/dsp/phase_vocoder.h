// The engine of stretches by spectrum: where each output frame comes from, and how its phases are turned.
#pragma once

#include <span>
#include <vector>

#include "base/integers.h"

namespace kv {

/// A piece of the road from output to input. From `out` on, the place is `in + (t - out) * slope`.
struct StretchPiece {
    i64 out = 0, in = 0; ///< frames
    f64 slope = 1;       ///< input frames for each output frame
    bool copies = false; ///< an attack: slope 1, phases as they are in the input
};

/// Frames at which the sound sets in anew: blocks of 128 frames whose treble has ten times the energy of
/// the mean of the eight blocks before.
std::vector<i64> findAttacks(std::span<const f32> in, std::size_t channels);

/// Pieces for a stretch by `factor` that copies `size` frames around each attack. Attacks that come too close
/// behind another, or to the ends, to be copied whole are left out; one at the very beginning is copied from
/// frame 0 on.
std::vector<StretchPiece> stretchRoad(std::span<const i64> attacks, i64 frames, f64 factor, i64 size);

/// Fills `out` along the road, by transforms of `size` frames (a power of two).
///
/// Each frame of the output is the input's, its bins turned so that each peak moves on from the frame before
/// by just what it moves in the input in the same time; bins around a peak turn with it (identity phase
/// locking: J. Laroche and M. Dolson, "Improved phase vocoder time-scale modification of audio", 1999). As
/// the movement is taken from two input frames that lie one output step apart, no frequency is ever
/// estimated.
void followRoad(std::span<const f32> in, std::size_t channels, std::span<const StretchPiece> road, i64 size,
                std::span<f32> out);

} // namespace kv

// Putting waves together.
#pragma once

#include "base/integers.h"

namespace kv {

class Wave;

/// Inserts `inserted`'s frames at `position`, which is cut to the wave; in the wave's channels and resampled
/// to its rate. The same wave may be given. In float if either is, else in 16 bits. False with the error pair
/// set when that can't be done.
bool InsertWave(Wave& wave, u32 position, Wave& inserted);
/// Inserts frames of silence.
bool InsertSilence(Wave& wave, u32 position, u32 frames);

/// out = a * w1 + b * w2 + c for each sample, in the channels of the one with more, at the length of the
/// longer. The waves may be one and the same.
bool MixWaves(Wave& out, f32 a, Wave* wave1, f32 b, Wave* wave2, f32 c);

} // namespace kv

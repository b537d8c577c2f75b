// Waves made longer or shorter at their pitch, or higher or lower at their length.
#pragma once

#include "base/integers.h"

namespace kv {

class Wave;

enum class Stretch : u8 { Grains, Spectrum };

/// Makes a wave `factor` times as long; loop, selection and cue points follow. 1 changes nothing. False with
/// the error pair set, and the wave as it was, when no frame would be left, for a factor beyond the method's,
/// and when the samples can't be had.
bool StretchWave(Wave& wave, f64 factor, Stretch method);

/// Multiplies all frequencies by `factor`, 0.1 to 10, at the wave's length. Fails likewise.
bool ScalePitch(Wave& wave, f64 factor);

} // namespace kv

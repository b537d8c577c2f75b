// How loud waves are, and making them as loud as they should be.
#pragma once

#include <span>

#include "base/integers.h"

namespace kv {

class Wave;

struct NormalizeSettings {
    bool audio = false; ///< changes the samples, else the gain parameter
    f64 desired = 89;   ///< dB SPL; below 0 counts as 0
    bool earFilter = true;
};
/// Brings waves to a loudness by `LoudnessMeter`, all of them by the same amount. With `audio` the gain
/// parameter becomes 0. False with the error pair set when samples can't be had.
bool NormalizeVolume(std::span<Wave* const> waves, const NormalizeSettings& settings);

enum class VolumeSource : u8 { Peak, ReplayGain, Rms, RmsAroundPeak };
enum class VolumeUse : u8 { AppendToName, SubtractFromGain, Normalize };

/// A wave's volume in dB: of full scale, or with `ReplayGain` above that measure's reference of 83 dB SPL.
/// `RmsAroundPeak` takes 50 ms with the peak in their middle. `silent` tells a wave that has no level. False
/// with the error pair set when the samples can't be had.
bool volumeOf(Wave& wave, VolumeSource source, f64& decibels, bool& silent);
/// Finds the volume and puts it to use. A silent wave's gain and samples stay.
bool FindVolume(Wave& wave, VolumeSource source, VolumeUse use);

} // namespace kv

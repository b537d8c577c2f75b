// What can be measured on the samples of a wave.
#pragma once

#include <string>

#include "dsp/ebu_loudness.h"
#include "wizards/wave_edit.h"

namespace kv {

struct WaveStatistics {
    u32 frames = 0;
    f64 seconds = 0;
    f64 mean = 0, rms = 0;   ///< of full scale
    f64 least = 0, most = 0; ///< of full scale
    f64 maximumDelta = 0;    ///< between neighbours in one channel
    u64 zeroCrossings = 0;
    bool floats = false; ///< the wave has float samples
    f64 level() const;   ///< the larger magnitude
};
/// False with the error pair set when the samples can't be had.
bool measure(Wave& wave, FrameRange range, WaveStatistics& to);

/// Measures loudness on the frames of a range, without loading the wave. False with the error pair set when
/// the samples can't be had, the user stopped it, or the wave's rate can't be measured (`EbuMeter`).
bool measureLoudness(const Wave& wave, FrameRange range, EbuLoudness& to);

/// The lines of the "Statistics" page.
std::string statisticsText(const WaveStatistics& statistics);
/// More lines for it. They tell of loudness what there is: "-inf" for silence, "too short".
std::string loudnessText(const EbuLoudness& loudness);

/// 20 log10 of a level; -96 for 0 and below.
f64 decibels(f64 level);

} // namespace kv

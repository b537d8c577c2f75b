// What frequencies a wave is made of, on the whole and as time goes by. Levels are in dB, where a sine of
// full scale has 0; bin n stands for n * binHz.
#pragma once

#include <vector>

#include "draw/frame_stream.h"

namespace kv {

/// What is below counts as this.
inline constexpr f32 kLeastLevel = -150;

struct Spectrum {
    f64 binHz = 0;
    std::vector<std::vector<f32>> channels; ///< levels of bins from 0 Hz up to half the sample rate
};

/// The mean power of windows that overlap by half (P. D. Welch, 1967). They are at most 0.4 s long and cover
/// the span from its start to its end. False as `streamFrames` has it.
bool measureSpectrum(const Wave& wave, FrameSpan span, Spectrum& to);

struct Spectrogram {
    f64 binHz = 0;
    std::size_t bins = 0, columns = 0;
    std::vector<std::vector<f32>> channels; ///< levels of all bins of a column, then of the next
    f32 most = kLeastLevel;                 ///< the highest of all

    const f32* column(std::size_t channel, std::size_t index) const {
        return channels[channel].data() + index * bins;
    }
};

/// Windows of about 46 ms around the middle of each column, or as many as it takes to cover a column. A
/// span with fewer frames than `columns` has one for each frame.
bool measureSpectrogram(const Wave& wave, FrameSpan span, u32 columns, Spectrogram& to);

/// The strongest of the bins from one frequency to another, or where none lies between, the level between
/// its neighbours.
f32 levelBetween(const f32* levels, std::size_t bins, f64 binHz, f64 fromHz, f64 toHz);

struct Partial {
    f64 hertz = 0, level = kLeastLevel;
};
/// The strongest peak above 16 Hz, placed between bins by a parabola; level `kLeastLevel` if none stands out
/// by 10 dB from the mean power.
Partial strongestPartial(const std::vector<f32>& levels, f64 binHz);

} // namespace kv

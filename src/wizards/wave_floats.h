// Looking at a wave's samples in a form that it may not have.
#pragma once

#include <span>
#include <utility>

#include "base/run_context.h"
#include "model/wave_data.h"

namespace kv {

/// Loads a wave and calls `look` with its samples as float or 16-bit integers, interleaved; a form that was
/// made for this goes away again. False with the error pair set when they can't be had.
template <class T, class Look>
bool lookAtSamples(Wave& wave, Look look) {
    constexpr bool kFloat = std::is_same_v<T, f32>;
    if (!wave.LoadData()) return false;
    const bool had = kFloat ? static_cast<bool>(wave.samplesFloat) : static_cast<bool>(wave.samples16);
    std::span<const T> samples;
    if constexpr (kFloat)
        samples = GetFloatData(wave);
    else
        samples = GetInt16Data(wave);
    if (samples.empty() && wave.frames > 0) return Fail("Wave data", "Out of memory");
    look(samples);
    if (!had && kFloat) DropFloatData(wave, static_cast<bool>(wave.samples16));
    if (!had && !kFloat) DropInt16Data(wave, static_cast<bool>(wave.samplesFloat));
    return true;
}

} // namespace kv

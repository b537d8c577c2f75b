// Test signals and what is left of a signal when a sine is taken out.
#pragma once

#include <cmath>
#include <numbers>
#include <vector>

#include "base/integers.h"

namespace kv::test {

/// `frequency` in cycles a frame.
inline std::vector<f32> sine(std::size_t frames, f64 frequency, f64 amplitude = 1, f64 phase = 0) {
    std::vector<f32> wave(frames);
    for (std::size_t i = 0; i < frames; ++i) {
        const f64 turns = frequency * static_cast<f64>(i);
        wave[i] = static_cast<f32>(amplitude *
                                   std::sin(2 * std::numbers::pi * (turns - std::floor(turns)) + phase));
    }
    return wave;
}

struct SineFit {
    f64 amplitude; ///< of the sine that fits best
    f64 noise;     ///< root of the mean square of the rest
    f64 ratioDb() const { return 20 * std::log10(amplitude / std::numbers::sqrt2 / noise); }
};

/// Least squares fit of a sine of known frequency and a constant.
inline SineFit fitSine(const f32* wave, std::size_t frames, f64 frequency) {
    f64 c = 0, s = 0, cc = 0, ss = 0, cs = 0;
    const auto angle = [&](std::size_t i) {
        const f64 turns = frequency * static_cast<f64>(i);
        return 2 * std::numbers::pi * (turns - std::floor(turns));
    };
    for (std::size_t i = 0; i < frames; ++i) {
        const f64 x = std::cos(angle(i)), y = std::sin(angle(i)), w = static_cast<f64>(wave[i]);
        c += w * x;
        s += w * y;
        cc += x * x;
        ss += y * y;
        cs += x * y;
    }
    const f64 determinant = cc * ss - cs * cs;
    const f64 a = (c * ss - s * cs) / determinant, b = (s * cc - c * cs) / determinant;
    f64 rest = 0;
    for (std::size_t i = 0; i < frames; ++i) {
        const f64 r = static_cast<f64>(wave[i]) - a * std::cos(angle(i)) - b * std::sin(angle(i));
        rest += r * r;
    }
    return {std::hypot(a, b), std::sqrt(rest / static_cast<f64>(frames))};
}

} // namespace kv::test

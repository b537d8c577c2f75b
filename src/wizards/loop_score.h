// How well two places of a sound would join as the ends of a loop.
#pragma once

#include <algorithm>
#include <cmath>
#include <vector>

#include "base/integers.h"

namespace kv {

class LoopScore {
public:
    /// Frames that are compared around each end.
    static constexpr u32 kWindow = 160;
    /// Full scale of `levels`, and by how much they may differ at the ends of a loop: 1 %.
    static constexpr f32 kScale = 65536, kMostStep = 655.36F;

    /// Takes mono samples of full scale -1..1; what isn't finite counts as 0.
    explicit LoopScore(const std::vector<f32>& samples);

    u32 frames() const { return static_cast<u32>(levels_.size()); }
    const std::vector<f32>& levels() const { return levels_; }

    /// The normalised correlation of the stretches around `start` and `end`, start < end <= frames: 1 at
    /// most; 0 or below when they don't fit or are silent.
    f32 operator()(u32 start, u32 end) const { return levelsFit(start, end) ? likeness(start, end) : 0; }

    /// Whether the levels at both ends are near enough.
    bool levelsFit(u32 start, u32 end) const {
        const u32 back = end == frames() ? 1 : 0;
        return start >= back && std::abs(levels_[start - back] - levels_[end - back]) <= kMostStep;
    }
    /// The score without a look at these levels.
    f32 likeness(u32 start, u32 end) const;

    /// The score of two whole windows from the sums of their squares.
    static f32 correlation(f64 product, f64 energy0, f64 energy1) {
        return std::min(static_cast<f32>(product / (std::sqrt(energy1) * std::sqrt(energy0))), 1.0F);
    }
    /// Sum of the products of `count` levels from two places on.
    f64 product(u32 first, u32 second, u32 count) const;

private:
    std::vector<f32> levels_;
};

} // namespace kv

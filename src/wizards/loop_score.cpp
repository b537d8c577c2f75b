#include "wizards/loop_score.h"

#include <array>

namespace kv {

LoopScore::LoopScore(const std::vector<f32>& samples) : levels_(samples) {
    for (f32& x : levels_) x = std::isfinite(x) ? std::clamp(x, -1000.0F, 1000.0F) * kScale : 0;
}

// Lanes that don't wait for each other; their fixed order gives the same bits wherever the sum is formed.
f64 LoopScore::product(u32 first, u32 second, u32 count) const {
    constexpr u32 kLanes = 8;
    std::array<f64, kLanes> sums{};
    const f32 *x = levels_.data() + first, *y = levels_.data() + second;
    u32 k = 0;
    for (; k + kLanes <= count; k += kLanes) {
        for (u32 lane = 0; lane < kLanes; ++lane)
            sums[lane] += static_cast<f64>(x[k + lane]) * static_cast<f64>(y[k + lane]);
    }
    for (; k < count; ++k) sums[0] += static_cast<f64>(x[k]) * static_cast<f64>(y[k]);
    return ((sums[0] + sums[4]) + (sums[2] + sums[6])) + ((sums[1] + sums[5]) + (sums[3] + sums[7]));
}

f32 LoopScore::likeness(u32 start, u32 end) const {
    i64 length = std::min(end - start, kWindow);
    i64 first = i64{start} - length / 2, second = i64{end} - length / 2;
    if (first < 0) {
        second -= first;
        first = 0;
    }
    if (second + length > frames()) {
        first -= second + length - frames();
        second = i64{frames()} - length;
        if (first < 0) {
            length += first;
            second -= first; // what is left stands at the end
            first = 0;
        }
    }
    if (length < 1) return 0;
    const u32 i = static_cast<u32>(first), j = static_cast<u32>(second), count = static_cast<u32>(length);
    const f64 e0 = product(i, i, count), e1 = product(j, j, count);
    if (!(e0 > 0) || !(e1 > 0)) return 0;
    return correlation(product(i, j, count), e0, e1);
}

} // namespace kv

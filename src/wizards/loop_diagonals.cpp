#include "wizards/loop_diagonals.h"

#include <limits>

namespace kv {
namespace {

constexpr u32 kPadding = LoopPairs::kPadding, kHalf = LoopScore::kWindow / 2;
constexpr f32 kNever = std::numeric_limits<f32>::infinity();

/// What `choose` takes of each value and those that follow it, `reach` in all, a power of two.
template <class Choose>
std::vector<f32> ofTheNext(std::vector<f32> values, u32 reach, Choose choose) {
    for (u32 width = 1; width < reach; width *= 2) {
        for (std::size_t i = 0; i + width < values.size(); ++i)
            values[i] = choose(values[i], values[i + width]);
    }
    return values;
}

} // namespace

LoopDiagonals::LoopDiagonals(const LoopScore& score, u32 firstStart, u32 lastEnd)
    : firstStart_(firstStart), levels_(2 * kPadding + score.frames()), norms_(levels_.size(), kNever) {
    std::copy(score.levels().begin(), score.levels().end(), levels_.begin() + kPadding);
    for (u32 frame = firstStart; frame <= lastEnd; ++frame) {
        const f64 energy = score.product(frame - kHalf, frame - kHalf, LoopScore::kWindow);
        if (energy > 0) norms_[kPadding + frame] = static_cast<f32>(std::sqrt(energy));
    }
    leastNorms_ = ofTheNext(norms_, LoopPairs::kLeastReach, [](f32 x, f32 y) { return std::min(x, y); });
    std::vector<f32> finite = norms_;
    std::replace(finite.begin(), finite.end(), kNever, 0.0F);
    mostNorms_ =
        ofTheNext(std::move(finite), LoopPairs::kMostReach, [](f32 x, f32 y) { return std::max(x, y); });
}

void LoopDiagonals::search(u32 lastEnd, u32 leastLength, f32 best,
                           const std::function<f32(u32 start, u32 end)>& offer) const {
    const auto at0 = [](const std::vector<f32>& values) { return values.data() + kPadding; };
    searchLoopPairs({at0(levels_), at0(norms_), at0(leastNorms_), at0(mostNorms_), firstStart_,
                     lastEnd - leastLength, lastEnd},
                    best, offer);
}

} // namespace kv

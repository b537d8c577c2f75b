// All pairs of places of a sound compared at once, for sounds with no two places alike.
#pragma once

#include <functional>
#include <vector>

#include "wizards/loop_score.h"

namespace kv {

/// Pairs of the same distance make a diagonal: from one to the next, the sum of products loses one product
/// and gains one, so that a pair costs two of them instead of a window's. Sums are kept in floats; pairs that
/// might score better than the best within their rounding are offered, to be scored exactly.
class LoopDiagonals {
public:
    /// How many ends are looked at together.
    static constexpr u32 kEnds = 256;

    /// Windows around `firstStart` to `lastEnd` must lie within the sound.
    LoopDiagonals(const LoopScore& score, u32 firstStart, u32 lastEnd);

    /// Offers all pairs that may score `best` or better: `kEnds` ends, `lastEnd` and those below it, and
    /// starts from the first to `leastLength` ahead of the end, at least a window. `offer` answers with the
    /// best score so far. No end may be below the first start and `leastLength`; some are when the count
    /// isn't whole, and `offer` is to leave those out.
    void search(u32 lastEnd, u32 leastLength, f32 best,
                const std::function<f32(u32 start, u32 end)>& offer) const;

private:
    std::vector<f32> padded(u32 count) const;

    u32 firstStart_;
    std::vector<f32> levels_, norms_, leastNorms_, mostNorms_; ///< all from `kPadding` ahead of frame 0 on
};

/// A block of ends for the vector kernel. Arrays are by frame, and may be read from `LoopPairs::kPadding`
/// ahead of frame 0 to as far beyond the last end.
struct LoopPairs {
    static constexpr u32 kPadding = 512;
    /// How many norms ahead `leastNorms` and `mostNorms` take in.
    static constexpr u32 kLeastReach = 32, kMostReach = 512;

    const f32* levels;
    const f32* norms;      ///< lengths of the windows as vectors; infinite for those that don't count
    const f32* leastNorms; ///< the least of the next `kLeastReach`
    const f32* mostNorms;  ///< the greatest finite one of the next `kMostReach`
    u32 firstStart, lastStart, lastEnd;
};
void searchLoopPairs(const LoopPairs& pairs, f32 best, const std::function<f32(u32 start, u32 end)>& offer);

} // namespace kv

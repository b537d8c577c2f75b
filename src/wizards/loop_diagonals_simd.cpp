// The loop along the diagonals, compiled once for each instruction set and chosen at run time.
#include <limits>

#include "wizards/loop_diagonals.h"

#define HWY_DISABLED_TARGETS (HWY_SSSE3 | HWY_AVX3_DL)
#undef HWY_TARGET_INCLUDE
#define HWY_TARGET_INCLUDE "wizards/loop_diagonals_simd.cpp"
#include <hwy/foreach_target.h>
// After foreach_target:
#include <hwy/highway.h>

HWY_BEFORE_NAMESPACE();
namespace kv::HWY_NAMESPACE {
namespace hn = hwy::HWY_NAMESPACE;

using Offer = std::function<f32(u32 start, u32 end)>;

constexpr int kHalf = LoopScore::kWindow / 2;
constexpr int kStep = 16; // ends between two looks at the sums
constexpr int kVectors = 4;

using Tag = hn::CappedTag<f32, 16>;
using Vector = hn::Vec<Tag>;

/// What one rounding may change, as part of the greatest product of two norms that a sum went through; and
/// how often a sum is rounded to begin with, and by the norms that it is compared with.
constexpr f32 kRounding = 6e-8F;
constexpr int kRun = 16, kFirstRoundings = kRun + LoopScore::kWindow / kRun + 16;

/// A vector of sums for starts from `start` on and one end.
struct Place {
    i64 start, end;
};

/// On to the pair one frame ahead.
HWY_INLINE Vector advance(Tag d, const f32* levels, Place at, Vector sum) {
    const f32 *x = levels + at.start, *y = levels + at.end;
    sum = hn::NegMulAdd(hn::LoadU(d, x + kHalf - 1), hn::Set(d, y[kHalf - 1]), sum);
    return hn::MulAdd(hn::LoadU(d, x - kHalf - 1), hn::Set(d, y[-kHalf - 1]), sum);
}

/// The product of two windows, rounded but a few times.
f32 productOf(const f32* x, const f32* y) {
    const Tag d;
    const auto lanes = static_cast<int>(hn::Lanes(d));
    Vector even = hn::Zero(d), odd = even;
    for (int k = -kHalf; k < kHalf; k += 2 * lanes) {
        even = hn::MulAdd(hn::LoadU(d, x + k), hn::LoadU(d, y + k), even);
        odd = hn::MulAdd(hn::LoadU(d, x + k + lanes), hn::LoadU(d, y + k + lanes), odd);
    }
    return hn::GetLane(hn::SumOfLanes(d, hn::Add(even, odd)));
}

/// Goes through a step of one vector again and offers what is good enough.
void offerStep(const LoopPairs& pairs, Place at, Vector sum, f32 slack, f32& best, const Offer& offer) {
    const Tag d;
    const auto lanes = static_cast<i64>(hn::Lanes(d));
    // By how much a product and its norms may be off, as part of the norms.
    const f32 rounding =
        kRounding * (2 * static_cast<f32>(LoopScore::kWindow) / static_cast<f32>(lanes) + 16);
    for (int i = 0; i < kStep; ++i, --at.start, --at.end) {
        const f32 *const x = pairs.levels + at.start, *const y = pairs.levels + at.end;
        const f32 endNorm = pairs.norms[at.end];
        const Vector enough = hn::Mul(hn::LoadU(d, pairs.norms + at.start), hn::Set(d, best * endNorm));
        const auto near =
            hn::Le(hn::Abs(hn::Sub(hn::LoadU(d, x), hn::Set(d, *y))), hn::Set(d, LoopScore::kMostStep));
        const auto good = hn::And(near, hn::Ge(sum, hn::Sub(enough, hn::Set(d, slack))));
        sum = advance(d, pairs.levels, at, sum);
        if (hn::AllFalse(d, good)) continue;
        u8 bits[8] = {};
        hn::StoreMaskBits(d, good, bits);
        for (i64 lane = lanes; lane-- > 0;) {
            if ((bits[lane / 8] >> (lane % 8) & 1) == 0) continue;
            const f32 product = productOf(x + lane, y);
            if (product >= (best - rounding) * pairs.norms[at.start + lane] * endNorm)
                best = offer(static_cast<u32>(at.start + lane), static_cast<u32>(at.end));
        }
    }
}

/// One tile: the diagonals of some neighbouring starts, together as far as registers reach, so that what
/// stands at their ends is loaded once. Pairs are weighed by the least norms in a step, which is fast, or
/// closely by their own. Answers how many steps of vectors had to be gone through again.
template <bool kClosely>
u32 searchTile(const LoopPairs& pairs, i64 firstLane, f32& best, const Offer& offer) {
    const Tag d;
    const auto lanes = static_cast<i64>(hn::Lanes(d));
    const f32* const levels = pairs.levels;
    constexpr auto kEnds = static_cast<i64>(LoopDiagonals::kEnds);
    const f32 rounding =
        kRounding * pairs.mostNorms[firstLane - kEnds] * pairs.mostNorms[pairs.lastEnd - kEnds];

    Place at{firstLane, pairs.lastEnd};
    Vector sums[kVectors] = {hn::Zero(d), hn::Zero(d), hn::Zero(d), hn::Zero(d)};
    for (int first = -kHalf; first < kHalf; first += kRun) {
        Vector run[kVectors] = {hn::Zero(d), hn::Zero(d), hn::Zero(d), hn::Zero(d)};
        for (int k = first; k < first + kRun; ++k) {
            const Vector y = hn::Set(d, levels[at.end + k]);
            for (int j = 0; j < kVectors; ++j)
                run[j] = hn::MulAdd(hn::LoadU(d, levels + at.start + j * lanes + k), y, run[j]);
        }
        for (int j = 0; j < kVectors; ++j) sums[j] = hn::Add(sums[j], run[j]);
    }

    u32 again = 0;
    const i64 lastLane = firstLane + kVectors * lanes - 1;
    for (i64 done = 0; done < kEnds && lastLane - done >= pairs.firstStart; done += kStep) {
        const Vector before[kVectors] = {sums[0], sums[1], sums[2], sums[3]};
        const Vector lowest = hn::Set(d, -std::numeric_limits<f32>::infinity());
        Vector most[kVectors] = {lowest, lowest, lowest, lowest};
        const Place from = at;
        for (int i = 0; i < kStep; ++i, --at.start, --at.end) {
            const Vector enough = hn::Set(d, kClosely ? best * pairs.norms[at.end] : 0);
            for (int j = 0; j < kVectors; ++j) {
                const Place place{at.start + j * lanes, at.end};
                most[j] = hn::Max(most[j], kClosely ? hn::NegMulAdd(hn::LoadU(d, pairs.norms + place.start),
                                                                    enough, sums[j])
                                                    : sums[j]);
                sums[j] = advance(d, levels, place, sums[j]);
            }
        }
        constexpr i64 kBack = kStep - 1;
        const f32 slack = rounding * static_cast<f32>(kFirstRoundings + 2 * (done + kStep));
        for (int j = 0; j < kVectors; ++j) {
            const Place place{from.start + j * lanes, from.end};
            const f32 enough =
                kClosely ? 0
                         : best * pairs.leastNorms[place.end - kBack] * pairs.leastNorms[place.start - kBack];
            if (hn::AllFalse(d, hn::Ge(most[j], hn::Set(d, enough - slack)))) continue;
            offerStep(pairs, place, before[j], slack, best, offer);
            ++again;
        }
    }
    return again;
}

/// Weighing closely takes longer, but going through many steps again longer still.
void searchPairs(const LoopPairs& pairs, f32 best, const Offer& offer) {
    constexpr u32 kTry = 32; // every so many tiles the fast way is tried
    constexpr u32 kManyAgain = kVectors * LoopDiagonals::kEnds / kStep / 8;
    const auto width = kVectors * static_cast<i64>(hn::Lanes(Tag()));
    bool closely = false;
    u32 tile = 0;
    for (i64 last = pairs.lastStart; last >= pairs.firstStart; last -= width, ++tile) {
        if (closely && tile % kTry != 0)
            searchTile<true>(pairs, last - width + 1, best, offer);
        else
            closely = searchTile<false>(pairs, last - width + 1, best, offer) > kManyAgain;
    }
}

} // namespace kv::HWY_NAMESPACE
HWY_AFTER_NAMESPACE();

#if HWY_ONCE
#include "base/simd_choice.h"

namespace kv {

void searchLoopPairs(const LoopPairs& pairs, f32 best, const std::function<f32(u32, u32)>& offer) {
    static const auto kernel = KV_CHOOSE_WIDE(searchPairs);
    kernel(pairs, best, offer);
}

} // namespace kv
#endif

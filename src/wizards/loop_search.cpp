#include "wizards/loop_search.h"

#include <algorithm>
#include <cmath>
#include <optional>

#include "base/parallel.h"
#include "wizards/loop_diagonals.h"
#include "wizards/loop_window_tree.h"

namespace kv {
namespace {

constexpr u32 kHalf = LoopScore::kWindow / 2;

/// Loops of at least a window, whose windows stand whole around both ends or are moved ahead by the sound's
/// end: nearly all. By the tree while it leaves out enough, else along the diagonals.
class FastSearch {
public:
    FastSearch(const LoopScore& score, const LoopSearchRange& range)
        : score_(score),
          leastLength_(range.leastLength),
          firstStart_(std::max(range.leastStart, kHalf)),
          lastWhole_(score.frames() - kHalf),
          firstEnd_(std::max(range.low, firstStart_ + leastLength_)) {}

    /// Looks at starts from `end - leastLength` down, and answers the least that it has looked at. To be
    /// called for one end after the other, downwards.
    u32 search(u32 end, LoopFound& best) {
        if (end > lastWhole_) return searchAtEnd(end, best);
        if (end < firstEnd_) return end - leastLength_ + 1;
        if (end < doneEnd_) blocks_ > 0 ? searchDiagonals(end, best) : searchTree(end, best);
        return firstStart_;
    }

private:
    void searchTree(u32 end, LoopFound& best) {
        constexpr u64 kDearer = 64; // what a look into the tree costs against a pair on a diagonal
        const u32 lastStart = end - leastLength_;
        if (!tree_) tree_.emplace(score_, firstStart_, lastStart, end);
        if (tree_->search(end, lastStart, best) * kDearer > lastStart - firstStart_) blocks_ = pause_ *= 2;
    }

    void searchDiagonals(u32 end, LoopFound& best) {
        if (!diagonals_) diagonals_.emplace(score_, firstStart_, end);
        const u32 mostBlocks = (end - firstEnd_) / LoopDiagonals::kEnds + 1;
        std::vector<LoopFound> found(std::min({threadCount(), blocks_, mostBlocks}), best);
        inParallel(static_cast<u32>(found.size()), [&](u32 block) {
            LoopFound& mine = found[block];
            const auto offer = [&](u32 start, u32 goodEnd) {
                if (goodEnd >= firstEnd_) mine.offer(start, goodEnd, score_(start, goodEnd));
                return mine.score;
            };
            diagonals_->search(end - block * LoopDiagonals::kEnds, leastLength_, mine.score, offer);
        });
        for (const LoopFound& mine : found) best.offer(mine.start, mine.end, mine.score);
        blocks_ -= static_cast<u32>(found.size());
        doneEnd_ = end + 1 - std::min(end, static_cast<u32>(found.size()) * LoopDiagonals::kEnds);
    }

    /// Ends with less than half a window beyond them are all scored by the last window, against that which
    /// stands as far ahead of the start's own.
    u32 searchAtEnd(u32 end, LoopFound& best) {
        const u32 ahead = end - lastWhole_, firstStart = firstStart_ + ahead;
        if (likenesses_.empty()) {
            for (u32 start = firstStart_; start + leastLength_ <= lastWhole_; ++start)
                likenesses_.push_back(score_.likeness(start, lastWhole_));
        }
        for (u32 start = end - leastLength_; start >= firstStart; --start) {
            if (score_.levelsFit(start, end)) best.offer(start, end, likenesses_[start - firstStart]);
        }
        return firstStart;
    }

    const LoopScore& score_;
    u32 leastLength_, firstStart_, lastWhole_, firstEnd_;
    u32 blocks_ = 0; ///< still to be gone through by diagonals
    u32 pause_ = 4;  ///< such blocks until the tree is tried again, the longer the oftener it was too slow
    u32 doneEnd_ = UINT32_MAX;    ///< the least end of the last one
    std::vector<f32> likenesses_; ///< with the last window, by start from the first
    std::optional<LoopWindowTree> tree_;
    std::optional<LoopDiagonals> diagonals_;
};

} // namespace

LoopSearchRange loopSearchRange(const LoopScore& score, u32 rate, f64 hertz, f32 searchFrom) {
    const std::vector<f32>& a = score.levels();
    const u32 frames = score.frames();
    if (frames == 0) return {};
    LoopSearchRange range;
    const f64 from = searchFrom > 0 ? static_cast<f64>(searchFrom) : 0;
    range.low = std::min(saturate<u32>(from * frames + 0.499), frames);

    f32 loudest = 0;
    for (const f32 x : a) loudest = std::max(loudest, x * x);
    u32 last = frames - 1;
    while (last > range.low && a[last] * a[last] < loudest / 16) --last; // within 12 dB of the loudest
    while (last > range.low && !(last + 1 < frames && a[last + 1] * a[last] < 0)) --last; // a zero crossing
    range.high = last + 1;
    range.leastStart = static_cast<u32>(std::min(u64{range.low} * 2 / 3, u64{range.high} / 3));

    const u32 period = hertz > 0 ? saturate<u32>(rate * 0.9 / hertz) : frames / 8;
    range.leastLength = std::min(frames / 4, std::max(frames / 10, period));
    const u32 room = frames - range.leastStart;
    if (2 * u64{range.leastLength} > room) range.leastLength = room / 2;
    range.leastLength = std::max(range.leastLength, 1U);
    return range;
}

LoopFound findLoop(const LoopScore& score, const LoopSearchRange& range,
                   const std::function<bool(u64 done, u64 total)>& goesOn) {
    constexpr u32 kStride = 16; // ends between two looks at the user
    const u32 frames = score.frames();
    const u64 shortest = u64{range.leastStart} + range.leastLength;
    const auto startsFor = [&](u32 end) { return end < shortest ? 0 : end - shortest + 1; };
    u64 total = 0, done = 0;
    for (u32 end = range.low; end <= range.high; ++end) total += startsFor(end);
    total = std::max<u64>(total, 10);

    std::optional<FastSearch> fast;
    if (range.leastLength >= LoopScore::kWindow) fast.emplace(score, range);

    LoopFound best{0, frames};
    for (u32 end = range.high; end >= std::max(range.low, 1U) && best.score < 1; --end) {
        if ((range.high - end) % kStride == 0 && !goesOn(done, total)) return best;
        if (startsFor(end) == 0) break; // and none for those below
        u32 start = end - range.leastLength + 1;
        if (fast) start = std::min(start, fast->search(end, best));
        while (start-- > range.leastStart) best.offer(start, end, score(start, end));
        done += startsFor(end);
    }
    return best;
}

} // namespace kv

#include "wizards/loop_search.h"

#include <algorithm>
#include <cmath>
#include <optional>

namespace kv {

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
    constexpr u32 kHalf = LoopScore::kWindow / 2;
    constexpr u32 kStride = 16; // ends between two looks at the user
    const u32 frames = score.frames();
    const u64 shortest = u64{range.leastStart} + range.leastLength;
    const auto startsFor = [&](u32 end) { return end < shortest ? 0 : end - shortest + 1; };
    u64 total = 0, done = 0;
    for (u32 end = range.low; end <= range.high; ++end) total += startsFor(end);
    total = std::max<u64>(total, 10);

    // Windows that stand whole around both ends are found by the tree, the few others one by one.
    const u32 firstWhole = std::max(range.leastStart, kHalf);
    const u32 lastWhole = frames - std::min(frames, kHalf);
    const bool large = range.leastLength >= LoopScore::kWindow && lastWhole >= range.low &&
                       lastWhole >= u64{firstWhole} + range.leastLength;
    std::optional<LoopWindowTree> tree;

    LoopFound best{0, frames};
    for (u32 end = range.high; end >= std::max(range.low, 1U) && best.score < 1; --end) {
        if ((range.high - end) % kStride == 0 && !goesOn(done, total)) return best;
        if (startsFor(end) == 0) break; // and none for those below
        u32 start = end - range.leastLength;
        const bool whole = large && end <= std::min(lastWhole, frames - 1);
        if (whole && start >= firstWhole) {
            if (!tree) tree.emplace(score, firstWhole, start, end);
            tree->search(end, start, best);
            start = firstWhole - 1;
        }
        for (; start + 1 > range.leastStart; --start) {
            best.offer(start, end, score(start, end));
            if (start == 0) break;
        }
        done += startsFor(end);
    }
    return best;
}

} // namespace kv

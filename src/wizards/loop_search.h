// The search for the best loop of a sound.
#pragma once

#include <functional>

#include "wizards/loop_window_tree.h"

namespace kv {

/// Which loops are looked at: ends from `high` down to `low`, starts from `leastLength` frames ahead of the
/// end down to `leastStart`.
struct LoopSearchRange {
    u32 low = 0, high = 0;
    u32 leastStart = 0, leastLength = 1;
};
/// `hertz` is the pitch, 0 if unknown; ends below the fraction `searchFrom` of the sound aren't looked at.
LoopSearchRange loopSearchRange(const LoopScore& score, u32 rate, f64 hertz, f32 searchFrom);

/// The loop of the best score; of equal ones the one with the later end, then with the later start. Start 0
/// and end `frames` if none scores above 0. `goesOn` is told now and then how many of the pairs are done;
/// when it answers false the search ends with the best so far.
///
/// Gives what looking at all pairs gives, and leaves out those that can't win. Sounds with no two places
/// alike, such as noise, leave little to leave out: their time grows with the square of the length.
LoopFound findLoop(const LoopScore& score, const LoopSearchRange& range,
                   const std::function<bool(u64 done, u64 total)>& goesOn);

} // namespace kv

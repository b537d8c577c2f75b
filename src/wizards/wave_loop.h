// Making the loop of a wave sound better: cross-fades, zero crossings, what stands behind it.
#pragma once

#include "base/integers.h"

namespace kv {

class Wave;

/// Blends the `length` frames ahead of `end` into those ahead of `start`, so that the loop has no seam, and
/// sets the loop. With `reverse` the frames behind `end` are blended from those behind `start`; `exponential`
/// fades linearly in decibels. `length` is cut to the loop and to what stands ahead of it. Does nothing for a
/// length of 0 and a wave without a loop. False with the error pair set when the samples can't be had.
bool CrossfadeLoop(Wave& wave, f64 start, f64 end, u32 length, bool reverse, bool exponential);
/// The longest cross-fade for the loop of a wave, in frames.
u32 longestCrossfade(const Wave& wave);

/// Moves `position`, in frames, to the nearest zero crossing from frame `low` to below `high`, in the sum of
/// all channels as 16-bit samples. Answers the direction of the crossing, 1 up or -1 down, which is
/// `wantedDirection` unless that is 0; 0, with `position` as it was, when there is none.
int MoveToZeroCrossing(Wave& wave, f64& position, i64 low, i64 high, int wantedDirection);
/// Moves both ends of the loop, the end to a crossing of the start's direction.
bool moveLoopToZeroCrossings(Wave& wave);

/// Cuts a looped wave behind its loop. With `appendLoopStart` the loop is repeated there for 32 frames;
/// `withRegions` cuts behind the last loop of the regions that have their own; `saveRelease` keeps what goes
/// as a wave if that is more than 32 frames. False with the error pair set when the samples can't be had.
bool TrimAfterLoop(Wave& wave, bool appendLoopStart, bool withRegions, bool saveRelease);

} // namespace kv

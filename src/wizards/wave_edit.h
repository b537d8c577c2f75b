// Changing the samples of a wave within a range of frames. All load the wave and leave it as it was, with the
// error pair set and false as the answer, when its samples can't be had. Ranges are [from, to) in frames and
// are cut to the wave; loop, selection and cue points follow where frames go away or come in.
#pragma once

#include "base/integers.h"

namespace kv {

class Wave;

struct FrameRange {
    u32 from = 0, to = UINT32_MAX;
};

/// The range of a wave: `from` below 0 stands for all of it.
FrameRange rangeOf(const Wave& wave, i64 from, i64 to);

/// Multiplies by 10^(dB / 20), limited to full scale. 0 dB changes nothing. `from` below 0: the whole wave.
bool AdjustVolume(Wave& wave, f64 decibels, i64 from = -1, i64 to = -1);

enum class MaximizeMode : u8 {
    FullRange, ///< the lowest and highest sample go to both ends of the scale
    FixedZero, ///< scaled only
    MeanZero,  ///< the mean goes to 0, then scaled
};
bool MaximizeAmplitude(Wave& wave, MaximizeMode mode);

/// Takes the mean of all samples of all channels off. Changes nothing when that is 0, of 16-bit data when it
/// is below one step.
bool RemoveDcOffset(Wave& wave);

enum class Fade : u8 { LinearIn, LinearOut, ExponentialIn, LogarithmicOut };
bool FadeRange(Wave& wave, FrameRange range, Fade kind);

enum class Smoothing : u8 { Triangular, TwoTowers, RightBlock, LeftBlock };
/// A short filter over the frames of the range, each channel by itself.
bool SmoothRange(Wave& wave, FrameRange range, Smoothing filter);

bool InvertRange(Wave& wave, FrameRange range);
bool ReverseRange(Wave& wave, FrameRange range);
bool SwapChannels(Wave& wave);
/// Removes the frames of the range.
bool CutRange(Wave& wave, FrameRange range);
/// Removes all others.
bool KeepRange(Wave& wave, FrameRange range);

/// Tells the points of a wave, and of the regions that have their own for it, that frames went away or came
/// in ahead of `position`.
void movePointsAfterRemoval(Wave& wave, u32 position, u32 removed);
void movePointsAfterInsertion(Wave& wave, u32 position, u32 added);
/// The same for frames that stand `factor` times as far from the start. Positions within regions follow too.
void scalePoints(Wave& wave, f64 factor);

} // namespace kv

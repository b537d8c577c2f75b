// The frames of a part of a wave, as what measures them for a picture takes them.
#pragma once

#include <functional>
#include <span>

#include "base/integers.h"

namespace kv {

class Wave;

/// From one frame up to another.
struct FrameSpan {
    u32 from = 0, to = UINT32_MAX;
    u32 count() const { return to - from; }
};

/// Reads a wave block by block and hands `take` the interleaved samples that lie in the span, and the number
/// of the first frame. Samples that aren't finite come as 0, others cut to 1e6. What lies ahead of the span
/// is read, too, but nothing is kept. False with the error pair set when the samples can't be had, the wave
/// ends early, or the user stopped it.
bool streamFrames(const Wave& wave, FrameSpan span,
                  const std::function<void(std::span<const f32> samples, u32 first)>& take);

} // namespace kv

// Between libav's forms of samples and the two that cross the border.
#pragma once

#include <cstdint>

#include "libav/libav.h"

namespace kv::libav {

/// The form that samples of an AVSampleFormat are handed out in; negative for one that isn't supported.
int formOf(int sampleFormat);

/// Copies `frames` frames from the `first`-th of a decoded frame on, in the form of its sample format, to
/// interleaved samples of `channels` channels: the first ones of many, and a single one to all.
void copyOut(const AVFrame& from, int first, int frames, int channels, void* to);

/// Puts interleaved samples into a frame from its `first`-th place on. `bits` are those of the frame's
/// samples: 16 and 24 integers, 0 floats; what comes is 16-bit integers for 16 and else floats.
void copyIn(const void* from, AVFrame& to, int first, int frames, int bits);

} // namespace kv::libav

// What the pictures of a wave share. Each function measures first and then draws into a plot whose background
// is there; false with the error pair set as `drawPicture` has it.
#pragma once

#include <string>

#include "draw/frame_stream.h"
#include "draw/plot.h"

namespace kv {

bool drawWaveform(Plot& plot, const Wave& wave, FrameSpan span);
bool drawSpectrum(Plot& plot, const Wave& wave, FrameSpan span);
bool drawSpectrogram(Plot& plot, const Wave& wave, FrameSpan span);
bool drawLoopSeam(Plot& plot, const Wave& wave, FrameSpan span);

/// "44 100 Hz · stereo · 2.350 s · 103 635 frames", and which frames are shown if not all are.
std::string waveDetails(const Wave& wave, FrameSpan span);
/// Frames as seconds.
Scale timeScale(const Wave& wave, FrameSpan span, const Rect& lane);
/// "Left" and "Right" on the lanes of a stereo wave. Answers the right edge of what was drawn on the first.
f64 nameLanes(Plot& plot, std::span<const Rect> lanes);

} // namespace kv

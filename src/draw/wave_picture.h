// Pictures of a wave: its shape, its frequencies, and the seam of its loop.
#pragma once

#include "draw/frame_stream.h"
#include "draw/image.h"

namespace kv {

enum class PictureKind : u8 {
    Waveform,    ///< level over time, with loop and cue points
    Spectrum,    ///< mean level by frequency
    Spectrogram, ///< level by time and frequency
    Loop,        ///< what is played around the seam of the loop, over what stands beyond it
};

/// Pixels of a side.
inline constexpr u32 kLeastPictureWidth = 160, kLeastPictureHeight = 120, kMostPictureSide = 16384;

struct PictureOptions {
    PictureKind kind = PictureKind::Waveform;
    u32 width = 1200, height = 600;
    bool dark = false;
    FrameSpan span{}; ///< what is drawn, cut to the wave; not for `Loop`
};

/// Draws a wave; passes through its samples once and keeps little of them. False with the error pair set when
/// there is nothing to draw (an empty wave or range, no loop), a size is out of range, the samples can't be
/// had or the user stopped it.
bool drawPicture(const Wave& wave, const PictureOptions& options, Image& to);

} // namespace kv

// A waveform as columns of a picture.
#pragma once

#include <vector>

#include "draw/frame_stream.h"

namespace kv {

/// What the frames of a column have between them.
struct WaveColumn {
    f32 least = 0, most = 0;
    f32 rms = 0; ///< of 20 ms around it, if that is longer than the column
};

struct WaveColumns {
    std::vector<std::vector<WaveColumn>> channels;
    f32 peak = 0; ///< the largest magnitude
};

/// Divides the span evenly among `columns` columns, which are no more than its frames, in one pass. False as
/// `streamFrames` has it.
bool measureColumns(const Wave& wave, FrameSpan span, u32 columns, WaveColumns& to);

/// The samples of a short span, by channel.
struct WavePiece {
    FrameSpan span;
    std::vector<std::vector<f32>> channels{};
};
/// Reads some pieces, which may overlap, in one pass.
bool readPieces(const Wave& wave, std::span<WavePiece> pieces);

} // namespace kv

// Samples piece by piece, in the form and the channels that a writer wants.
#pragma once

#include <algorithm>
#include <type_traits>
#include <vector>

#include "base/run_context.h"
#include "model/sample_blocks.h"
#include "samples/kernels.h"

namespace kv {

/// Hands all samples, interleaved in 1 or 2 channels, to `write(std::span<const T>)` in pieces of at most
/// `step` frames; only the last piece is shorter. False with the error pair set when reading fails, when
/// `write` answers false (the error is its own) or when the user stops.
template <class T, class Write>
bool writePieces(SampleBlocks& blocks, u32 channels, std::size_t step, std::string_view context,
                 Write&& write) {
    static_assert(std::is_same_v<T, i16> || std::is_same_v<T, f32>);
    std::vector<T> samples, adapted;
    for (u32 done = 0; done < blocks.frames();) {
        if (CancelRequested()) return Fail(context, "Cancelled");
        const std::size_t frames = std::min<std::size_t>(step, blocks.frames() - done);
        samples.resize(frames * blocks.channels());
        if (!blocks.read(std::span<T>(samples))) return false;
        std::span<const T> ready = samples;
        if (channels != blocks.channels()) {
            adapted.resize(frames * channels);
            if (channels == 2)
                monoToStereo(samples, adapted);
            else
                stereoToMono(samples, adapted);
            ready = adapted;
        }
        if (!write(ready)) return false;
        done += static_cast<u32>(frames);
        ShowProgress(done, blocks.frames());
    }
    ShowProgress(0, 0);
    return true;
}

} // namespace kv

// The model has waves of one or two channels; what has more is cut to the first two.
#pragma once

#include <memory>

#include "model/sample_blocks.h"

namespace kv {

/// Of many channels the first ones. Null stays null.
std::unique_ptr<SampleBlocks> firstChannels(std::unique_ptr<SampleBlocks> blocks, u32 channels);

/// Vorbis (Vorbis I specification, 4.3.9) and Opus put the centre between left and right in streams of three,
/// and of five to eight channels. Others put it behind.
constexpr bool hasCentreSecond(u32 channels) {
    return channels == 3 || (channels >= 5 && channels <= 8);
}

} // namespace kv

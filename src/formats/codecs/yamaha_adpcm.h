// Yamaha ADPCM as of the AICA sound chip, without blocks.
#pragma once

#include "base/bytes.h"

namespace kv {

struct YamahaState {
    i32 predictor = 0; ///< the last sample, in 16 bits
    i32 step = 127;    ///< 127..24576
};

/// Decodes `frames` frames of 4-bit codes: of one channel the low half of a byte first, of two the left one
/// low and the right one high. `states` has one for each channel. Frames that `src` has no codes for are left
/// out. Answers the frames.
std::size_t yamaha_Decode(std::span<i16> dst, ByteSpan src, std::size_t frames, bool stereo,
                          std::span<YamahaState> states);

/// Encodes all frames; of one channel's odd number the last byte's high half is 0. Answers the bytes; 0 when
/// `dst` has no room for them.
std::size_t yamaha_Encode(std::span<std::byte> dst, std::span<const i16> samples, bool stereo,
                          std::span<YamahaState> states);

} // namespace kv

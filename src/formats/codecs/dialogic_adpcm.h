// Dialogic (OKI, "VOX") ADPCM. Document: Dialogic application note 00-1366-001, "Dialogic ADPCM algorithm"
// (1988).
#pragma once

#include "base/bytes.h"

namespace kv {

struct DialogicState {
    i32 accumulator = 0; ///< the last sample, in 16 bits
    i32 index = 0;       ///< into the step table, 0..48
};

/// Decodes `frames` 4-bit codes, the one in the high half of a byte first; samples that `src` has no codes
/// for are left out. Answers the samples.
std::size_t dialogic_Decode(std::span<i16> dst, ByteSpan src, std::size_t frames, DialogicState& state);

/// Encodes all samples; of an odd number the last byte's low half is 0. Answers the bytes; 0 when `dst` has
/// no room for them.
std::size_t dialogic_Encode(std::span<std::byte> dst, std::span<const i16> samples, DialogicState& state);

} // namespace kv

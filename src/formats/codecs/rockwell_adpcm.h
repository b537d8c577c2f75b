// Rockwell's voice modem ADPCM, 2, 3 or 4 bits at 7200 Hz. The tables are those of the modem routines that
// mgetty's vgetty documents as identical to Rockwell's own.
#pragma once

#include <array>

#include "base/bytes.h"

namespace kv {

/// Words of 16 bits with 15 bits of fraction.
struct RockwellState {
    i32 step = 31;
    std::array<i32, 8> coefficients{}; ///< two poles, six zeros
    /// Past outputs and quantised differences in turn: a ring of which `start` is the newest place.
    std::array<i32, 8> delay{};
    u32 start = 0;
    i32 last = 0; ///< output or input before this one, for the emphasis
};

/// Decodes all whole codes of the first `bytes` bytes that `dst` has room for, low bits first. Answers the
/// samples; 0 for other bits than 2 to 4.
std::size_t rockwell_Decode(std::span<i16> dst, ByteSpan src, std::size_t bytes, u32 bits,
                            RockwellState& state);

/// Encodes all samples; the last byte is filled up with zeros. Answers the bytes; 0 for other bits or when
/// `dst` has no room for them.
std::size_t rockwell_Encode(std::span<std::byte> dst, std::span<const i16> samples, u32 bits,
                            RockwellState& state);

} // namespace kv

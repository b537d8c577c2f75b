// The ADPCM of the PlayStation's sound processor: blocks of 16 bytes that hold 28 samples. A block begins
// with a byte of filter and shift and a byte of flags. Documents: Martin Korth, "PSX Specifications" (SPU
// ADPCM, which is XA ADPCM with other headers).
#pragma once

#include <span>

#include "base/bytes.h"

namespace kv {

inline constexpr std::size_t kPlaystationBlockBytes = 16;
inline constexpr std::size_t kPlaystationBlockFrames = 28;

/// Bits of a block's second byte.
enum PlaystationFlag : u8 {
    kPlaystationEnd = 1,       ///< the sound ends behind this block, or goes on at the loop start
    kPlaystationRepeat = 2,    ///< ... with kPlaystationEnd: goes on
    kPlaystationLoopStart = 4, ///< the loop starts with this block
};

/// The two samples before the next one.
struct PlaystationState {
    i32 last = 0, beforeLast = 0;
};

/// Decodes whole blocks, as many as both sides have room for. Answers the samples.
std::size_t playstation_Decode(std::span<i16> to, ByteSpan from, PlaystationState& state);

/// Encodes up to 28 samples, silence behind them, as a block without flags.
void playstation_EncodeBlock(std::span<std::byte, kPlaystationBlockBytes> to, std::span<const i16> samples,
                             PlaystationState& state);

} // namespace kv

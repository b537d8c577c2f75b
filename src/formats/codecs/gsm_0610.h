// GSM full rate speech coding. Document: ETSI EN 300 961 (GSM 06.10). Frames of 160 samples at 8000 Hz in
// 260 bits.
#pragma once

#include <array>

#include "base/bytes.h"

namespace kv {

inline constexpr std::size_t kGsmFrame = 160;      ///< samples
inline constexpr std::size_t kGsmPlainBytes = 33;  ///< of a frame by itself, high bits first
inline constexpr std::size_t kGsmDoubleBytes = 65; ///< of two frames in a WAV file, low bits first

/// State of an encoder or a decoder between two frames. Words of the standard's 16 bits.
struct GsmState {
    std::array<i16, 120> history{}; ///< of the long-term residual
    std::array<i16, 8> lastRatios{};
    std::array<i32, 9> lattice{}; ///< of the short-term filter
    i32 lastLag = 40;
    i32 emphasis = 0;                      ///< of the pre- or de-emphasis
    i32 offsetInput = 0, offsetMemory = 0; ///< of the offset compensation
};

void gsm_Init(GsmState& state);

/// Decodes whole frames: `bytes` * 8 / 264 plain ones, else `bytes` * 8 / 260 of two to each 65 bytes; as
/// many as `dst` has room for. Answers the samples.
std::size_t gsm_Decode(GsmState& state, std::span<i16> dst, ByteSpan src, std::size_t bytes,
                       bool plainFrames);

/// Encodes `count` samples, the last frame (or the last two) filled up with silence. Answers the bytes: 33
/// for each frame or 65 for each two; `dst` must have room for them, else nothing is encoded.
std::size_t gsm_Encode(GsmState& state, std::span<std::byte> dst, std::span<const i16> samples,
                       std::size_t count, bool plainFrames);

} // namespace kv

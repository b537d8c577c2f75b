// G.722 sub-band ADPCM at 48, 56 and 64 kbit/s: 6, 7 or 8 bits for two samples at 16000 Hz. Document: ITU-T
// G.722 (1988).
#pragma once

#include <array>

#include "base/bytes.h"

namespace kv {

/// One sub-band's predictor and quantiser.
struct G722Band {
    i32 s = 0, sz = 0;   ///< predicted signal, and its part of the zeros
    i32 det = 0, nb = 0; ///< quantiser's scale, and its logarithm
    std::array<i32, 2> a{}, r{}, p{};
    std::array<i32, 6> b{}, d{};
};

/// State of an encoder or a decoder, as it is at the start of a stream.
struct G722State {
    G722State() {
        low.det = 32;
        high.det = 8;
    }
    G722Band low, high;
    std::array<i32, 22> filter{}; ///< past of the quadrature mirror filter
};

/// Decodes all whole code words of the first `bytes` bytes that `dst` has room for, two samples each. Bits
/// are 6, 7 or 8 per word, packed from the high end of a byte when `bigEndian`; with others nothing comes
/// out. Answers the samples.
std::size_t g722_Decode(std::span<i16> dst, ByteSpan src, std::size_t bytes, u32 bits, bool bigEndian,
                        G722State& state);

/// Encodes pairs of samples, an odd last one with silence behind it. Answers the bytes; 0 for other bits than
/// 6 to 8 or when `dst` has no room for them.
std::size_t g722_Encode(std::span<std::byte> dst, std::span<const i16> samples, u32 bits, bool bigEndian,
                        G722State& state);

} // namespace kv

// G.726 ADPCM at 16, 24, 32 and 40 kbit/s, and with it the older G.721 (32) and G.723 (24, 40). Document:
// ITU-T G.726 (1990).
#pragma once

#include <array>

#include "base/bytes.h"

namespace kv {

/// The standard's state, named as there. Delayed differences and signals are in its floating-point format.
struct G726State {
    i32 yl = 34816, yu = 544;
    i32 dms = 0, dml = 0, ap = 0;
    std::array<i32, 2> a{};
    std::array<i32, 6> b{};
    std::array<i32, 6> dq{32, 32, 32, 32, 32, 32};
    std::array<i32, 2> sr{32, 32};
    std::array<bool, 2> pk{};
    bool td = false;
};

void g726_Init(G726State& state);

/// Decode a code into a 16-bit sample; bits above the code's don't count.
i16 g726_Decode16(G726State& state, u32 code);
i16 g726_Decode24(G726State& state, u32 code);
i16 g721_Decode(G726State& state, u32 code);
i16 g726_Decode40(G726State& state, u32 code);
/// Encode a 16-bit sample into a code.
u32 g726_Encode16(G726State& state, i16 sample);
u32 g726_Encode24(G726State& state, i16 sample);
u32 g721_Encode(G726State& state, i16 sample);
u32 g726_Encode40(G726State& state, i16 sample);

/// Decodes all whole codes of `src` that `dst` has room for, 2 to 5 bits each, packed from the high end of a
/// byte when `bigEndian`. Answers the samples; 0 for other bits.
std::size_t g72x_Decode(std::span<i16> dst, ByteSpan src, u32 bits, bool bigEndian, G726State& state);

/// Encodes `count` frames, of two channels their average. The last byte is filled up with zeros. Answers the
/// bytes; 0 for other bits than 2 to 5 or when `dst` has no room for them.
std::size_t g72x_Encode(std::span<std::byte> dst, std::span<const i16> samples, std::size_t count,
                        bool stereo, u32 bits, bool bigEndian, G726State& state);

} // namespace kv

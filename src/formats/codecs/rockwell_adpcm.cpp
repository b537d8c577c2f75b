#include "formats/codecs/rockwell_adpcm.h"

#include <algorithm>

#include "formats/codecs/code_bits.h"

namespace kv {
namespace {

constexpr u32 kLeastBits = 2, kMostBits = 4;

/// A row for each width: what a code scales the step by, and the level that it stands for.
constexpr i32 kMultipliers[3][16] = {
    {0x3333, 0x199A, 0x199A, 0x3333},
    {0x3800, 0x2800, 0x1CCD, 0x1CCD, 0x1CCD, 0x1CCD, 0x2800, 0x3800},
    {0x4CCD, 0x4000, 0x3333, 0x2666, 0x1CCD, 0x1CCD, 0x1CCD, 0x1CCD, 0x1CCD, 0x1CCD, 0x1CCD, 0x1CCD, 0x2666,
     0x3333, 0x4000, 0x4CCD},
};
constexpr u16 kLevels[3][16] = {
    {0xCFAE, 0xF183, 0x0E7D, 0x3052},
    {0xBB23, 0xD4FE, 0xE7CF, 0xF828, 0x07D8, 0x1831, 0x2B02, 0x44DD},
    // Not quite symmetric: 33C7 has been so in every source.
    {0xA88B, 0xBDCB, 0xCC29, 0xD7CF, 0xE1D8, 0xEAFB, 0xF395, 0xFBE4, 0x041C, 0x0C6B, 0x1505, 0x1E28, 0x2831,
     0x33C7, 0x4235, 0x5775},
};
constexpr i32 kStepLimits[3] = {0x54C4, 0x3B7A, 0x2ED5};
constexpr i32 kLeastStep = 31;
constexpr i32 kThresholds[3][7] = {
    {0x1F69}, {0x1005, 0x219A, 0x37F0}, {0x0843, 0x10B8, 0x1996, 0x232B, 0x2DFC, 0x3B02, 0x4CD6}};

constexpr i32 kLeak = 0x7D71;     // 0.98
constexpr i32 kEmphasis = 0x3333; // 0.4
constexpr i32 kPoleGain = 393, kZeroGain = 197;

inline i32 sat16(i32 value) {
    return std::clamp(value, -32768, 32767);
}
inline i32 sat32(i64 value) {
    return static_cast<i32>(std::clamp<i64>(value, -2147483648LL, 2147483647LL));
}
/// The rounded product of two words: the upper half of the doubled product, plus its highest lower bit.
inline i32 product(i32 a, i32 b) {
    const u32 doubled = 2 * static_cast<u32>(a * b);
    return static_cast<i16>(static_cast<u16>((doubled >> 16) + (doubled >> 15 & 1)));
}

i32 place(const RockwellState& s, u32 index) {
    return s.delay[(s.start + index) & 7];
}

/// Adds the predictor's taps to a sum with 31 bits of fraction, limiting it at each.
inline i32 filter(const RockwellState& s, i32 sum) {
    for (u32 i = 0; i < 8; ++i) sum = sat32(i64{sum} + 2 * i64{s.coefficients[i]} * place(s, i));
    return sum;
}

/// Takes the step that a code leads to; answers the quantised difference at the old one.
inline i32 quantised(RockwellState& s, u32 code, u32 row) {
    const i32 old = s.step;
    s.step = std::clamp(sat16(4 * product(kMultipliers[row][code], old)), kLeastStep, kStepLimits[row]);
    return sat16(4 * product(static_cast<i16>(kLevels[row][code]), old));
}

inline void adapt(RockwellState& s, i32 difference, i32 output) {
    for (u32 i = 0; i < 8; ++i) {
        const i32 gain = i < 2 ? kPoleGain : kZeroGain;
        const bool apart = product(difference, place(s, i)) < 0;
        s.coefficients[i] = sat16(product(s.coefficients[i], kLeak) + (apart ? -gain : gain));
    }
    s.start = (s.start + 7) & 7;
    s.delay[s.start] = output;
    s.delay[(s.start + 2) & 7] = difference;
}

inline i16 decode(RockwellState& s, u32 code, u32 row) {
    const i32 difference = quantised(s, code, row);
    i32 sum = filter(s, difference * 65536);
    const i32 output = sum >> 16;
    sum = sat32(i64{sum} + 2 * i64{kEmphasis} * s.last);
    s.last = sum >> 16;
    adapt(s, difference, output);
    return static_cast<i16>(s.last);
}

inline u32 encode(RockwellState& s, i16 sample, u32 row) {
    i32 sum = filter(s, 0);
    const i32 predicted = sum >> 16;
    sum = sat32(i64{sum} + 2 * i64{kEmphasis} * s.last);
    s.last = sample;
    // Words of 16 bits as in the modem: a jump of -32768 has no negative and reaches no threshold.
    const i32 apart = static_cast<i16>(-sat16((sum >> 16) - sample));
    const i32 size = static_cast<i16>(apart < 0 ? -apart : apart);
    const u32 thresholds = (1U << (row + kLeastBits - 1)) - 1;
    u32 reached = 0;
    while (reached < thresholds && size >= sat16(4 * product(kThresholds[row][reached], s.step))) ++reached;
    const u32 code = apart < 0 ? thresholds - reached : thresholds + 1 + reached;
    const i32 difference = quantised(s, code, row);
    adapt(s, difference, sat16(predicted + difference));
    return code;
}

bool isWidth(u32 bits) {
    return bits >= kLeastBits && bits <= kMostBits;
}

} // namespace

std::size_t rockwell_Decode(std::span<i16> dst, ByteSpan src, std::size_t bytes, u32 bits,
                            RockwellState& state) {
    if (!isWidth(bits)) return 0;
    src = src.first(std::min(bytes, src.size()));
    const std::size_t count = std::min(src.size() * 8 / bits, dst.size());
    CodeReader<BitOrder::LowFirst> codes(src, bits);
    for (std::size_t i = 0; i < count; ++i) dst[i] = decode(state, codes.next(), bits - kLeastBits);
    return count;
}

std::size_t rockwell_Encode(std::span<std::byte> dst, std::span<const i16> samples, u32 bits,
                            RockwellState& state) {
    if (!isWidth(bits) || dst.size() < ceilDiv(samples.size() * bits, 8)) return 0;
    CodeWriter<BitOrder::LowFirst> codes(dst, bits);
    for (const i16 sample : samples) codes.put(encode(state, sample, bits - kLeastBits));
    return codes.end();
}

} // namespace kv

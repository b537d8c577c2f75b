#include "formats/codecs/g726.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

#include "formats/codecs/code_bits.h"

namespace kv {
namespace {

/// Tables of one rate. Those by code are mirror images: the first half stands here.
template <u32 Bits>
struct Rate;

template <>
struct Rate<2> {
    static constexpr i32 kLevels[] = {261};
    static constexpr i32 kDifferences[] = {116, 365};
    static constexpr i32 kScales[] = {-704, 14048};
    static constexpr i32 kSpeeds[] = {0, 0xE00};
};
template <>
struct Rate<3> {
    static constexpr i32 kLevels[] = {8, 218, 331};
    static constexpr i32 kDifferences[] = {-2048, 135, 273, 373};
    static constexpr i32 kScales[] = {-128, 960, 4384, 18624};
    static constexpr i32 kSpeeds[] = {0, 0x200, 0x400, 0xE00};
};
template <>
struct Rate<4> {
    static constexpr i32 kLevels[] = {-124, 80, 178, 246, 300, 349, 400};
    static constexpr i32 kDifferences[] = {-2048, 4, 135, 213, 273, 323, 373, 425};
    static constexpr i32 kScales[] = {-384, 576, 1312, 2048, 3584, 6336, 11360, 35904};
    static constexpr i32 kSpeeds[] = {0, 0, 0, 0x200, 0x200, 0x200, 0x600, 0xE00};
};
template <>
struct Rate<5> {
    static constexpr i32 kLevels[] = {-122, -16, 68,  139, 198, 250, 298, 339,
                                      378,  413, 445, 475, 502, 528, 553};
    static constexpr i32 kDifferences[] = {-2048, -66, 28,  104, 169, 224, 274, 318,
                                           358,   395, 429, 459, 488, 514, 539, 566};
    static constexpr i32 kScales[] = {448,  448,  768,  1248, 1280,  1312,  1856,  3200,
                                      4512, 5728, 7008, 8960, 11456, 14080, 16928, 22272};
    static constexpr i32 kSpeeds[] = {0,     0,     0,     0,     0,     0x200, 0x200, 0x200,
                                      0x200, 0x200, 0x400, 0x600, 0x800, 0xA00, 0xC00, 0xC00};
};

constexpr i32 kZeroFloat = 32;

/// Powers of two that a number reaches.
inline i32 exponentOf(i32 value) {
    return std::min(static_cast<i32>(std::bit_width(static_cast<u32>(value))), 15);
}
/// A magnitude in the floating-point format: 4 bits of exponent, 6 of mantissa.
inline i32 toFloat(i32 magnitude) {
    const i32 exponent = exponentOf(magnitude);
    return exponent * 64 + (magnitude * 64 >> exponent);
}

/// FMULT: a coefficient times a word in the floating-point format.
inline i32 multiply(i32 coefficient, i32 word) {
    const i32 magnitude = coefficient > 0 ? coefficient : -coefficient & 0x1FFF;
    const auto exponent = static_cast<i32>(std::bit_width(static_cast<u32>(magnitude)));
    const i32 mantissa = magnitude == 0 ? 32 : magnitude * 64 >> exponent;
    const i32 product = (mantissa * (word & 63) + 48) >> 4;
    const i32 right = 9 + 6 + 13 - exponent - (word >> 6 & 15); // from 9 bits up: never negative
    const i32 result = (product << 9) >> right & 0x7FFF;
    return (coefficient ^ word) < 0 ? -result : result;
}

struct Estimate {
    i32 sez, se, y;
};

/// What the past says of the next sample, and the scale factor (4.2.4, 4.2.6).
inline Estimate estimate(const G726State& s) {
    i32 zeros = 0;
    for (std::size_t i = 0; i < 6; ++i) zeros += multiply(s.b[i] >> 2, s.dq[i]);
    const i32 poles = multiply(s.a[1] >> 2, s.sr[1]) + multiply(s.a[0] >> 2, s.sr[0]);
    Estimate e{zeros >> 1, (zeros + poles) >> 1, s.yu};
    if (s.ap < 256) {
        const i32 slow = s.yl >> 6, apart = s.yu - slow, speed = s.ap >> 2;
        e.y = slow + ((apart * speed + (apart < 0 ? 63 : 0)) >> 6);
    }
    return e;
}

/// Inverse quantiser: the difference as sign and magnitude in 16 bits (4.2.3).
template <u32 Bits>
inline i32 difference(u32 code, i32 y) {
    constexpr u32 kTop = 1U << (Bits - 1);
    const bool negative = (code & kTop) != 0;
    const i32 t = Rate<Bits>::kDifferences[negative ? 2 * kTop - 1 - code : code] + (y >> 2);
    const i32 magnitude = t < 0 ? 0 : ((128 + (t & 127)) << 7) >> (14 - (t >> 7 & 15));
    return negative ? magnitude - 32768 : magnitude;
}

/// A tone has changed or ended: the predictor starts anew.
inline bool transition(const G726State& s, i32 magnitude) {
    if (!s.td) return false;
    const i32 exponent = s.yl >> 15, fraction = s.yl >> 10 & 31;
    const i32 threshold = exponent > 9 ? 31 << 10 : (32 + fraction) << exponent;
    return magnitude > (threshold + (threshold >> 1)) >> 1;
}

/// The predictor's coefficients; answers the second pole's, or 0 after a transition (4.2.5).
template <u32 Bits>
inline i32 adaptPredictor(G726State& s, i32 dq, i32 dqsez, bool pk) {
    const i32 magnitude = dq & 0x7FFF;
    const bool x1 = pk != s.pk[0], x2 = pk != s.pk[1];
    i32 a2 = s.a[1] - (s.a[1] >> 7);
    if (dqsez != 0) {
        const i32 f = x1 ? s.a[0] : -s.a[0];
        a2 += f < -8191 ? -256 : f > 8191 ? 255 : f >> 5;
        a2 += x2 ? -128 : 128;
    }
    a2 = std::clamp(a2, -12288, 12288);
    s.a[1] = a2;
    i32 a1 = s.a[0] - (s.a[0] >> 8);
    if (dqsez != 0) a1 += x1 ? -192 : 192;
    s.a[0] = std::clamp(a1, a2 - 15360, 15360 - a2);
    const i32 gain = magnitude != 0 ? 128 : 0;
    for (std::size_t i = 0; i < 6; ++i) {
        const i32 sign = (dq ^ s.dq[i]) >> 31; // 0 for equal ones, else -1
        s.b[i] += -(s.b[i] >> (Bits == 5 ? 9 : 8)) + ((gain ^ sign) - sign);
    }
    return a2;
}

inline void delay(G726State& s, i32 dq, i32 sr) {
    for (std::size_t i = 5; i > 0; --i) s.dq[i] = s.dq[i - 1];
    const i32 magnitude = dq & 0x7FFF;
    s.dq[0] = (magnitude == 0 ? kZeroFloat : toFloat(magnitude)) - (dq < 0 ? 0x400 : 0);
    s.sr[1] = s.sr[0];
    s.sr[0] = sr == 0       ? kZeroFloat
              : sr > 0      ? toFloat(sr)
              : sr > -32768 ? toFloat(-sr) - 0x400
                            : kZeroFloat - 0x400;
}

/// Takes a code over into the state; answers the reconstructed signal.
template <u32 Bits>
inline i32 update(G726State& s, u32 code, const Estimate& e) {
    constexpr u32 kTop = 1U << (Bits - 1);
    const i32 dq = difference<Bits>(code, e.y);
    const i32 sr = static_cast<i16>(dq < 0 ? e.se - (dq & 0x3FFF) : e.se + dq);
    const i32 dqsez = sr - e.se + e.sez;
    const bool changed = transition(s, dq & 0x7FFF), pk = dqsez < 0;

    const u32 row = (code & kTop) != 0 ? 2 * kTop - 1 - code : code;
    s.yu = std::clamp(e.y + ((Rate<Bits>::kScales[row] - e.y) >> 5), 544, 5120);
    s.yl += s.yu + (-s.yl >> 6);

    i32 a2 = 0;
    if (changed) {
        s.a = {};
        s.b = {};
    } else {
        a2 = adaptPredictor<Bits>(s, dq, dqsez, pk);
    }
    delay(s, dq, sr);
    s.pk = {pk, s.pk[0]};
    s.td = !changed && a2 < -11776;

    const i32 speed = Rate<Bits>::kSpeeds[row];
    s.dms += (speed - s.dms) >> 5;
    s.dml += (speed * 4 - s.dml) >> 7;
    if (changed)
        s.ap = 256;
    else if (e.y < 1536 || s.td || std::abs(s.dms * 4 - s.dml) >= s.dml >> 3)
        s.ap += (512 - s.ap) >> 4;
    else
        s.ap += -s.ap >> 4;
    return sr;
}

template <u32 Bits>
inline i16 decode(G726State& state, u32 code) {
    const i32 sr = update<Bits>(state, code & ((1U << Bits) - 1), estimate(state));
    return static_cast<i16>(std::clamp(sr * 4, -32768, 32767));
}

template <u32 Bits>
inline u32 encode(G726State& state, i16 sample) {
    const Estimate e = estimate(state);
    const i32 d = (sample >> 2) - e.se, magnitude = std::abs(d);
    const i32 exponent = exponentOf(magnitude >> 1);
    const i32 level = exponent * 128 + ((magnitude * 128 >> exponent) & 127) - (e.y >> 2);
    u32 reached = 0;
    for (const i32 least : Rate<Bits>::kLevels) reached += level >= least ? 1 : 0;
    constexpr u32 kAll = (1U << Bits) - 1;
    u32 code = d < 0 ? kAll - reached : reached;
    if (code == 0 && Bits > 2) code = kAll; // the standard has no positive zero
    update<Bits>(state, code, e);
    return code;
}

/// Calls a function template's instance for a width of codes; 0 for another.
template <class Function>
std::size_t withBits(u32 bits, Function function) {
    switch (bits) {
        case 2:
            return function.template operator()<2>();
        case 3:
            return function.template operator()<3>();
        case 4:
            return function.template operator()<4>();
        case 5:
            return function.template operator()<5>();
        default:
            return 0;
    }
}

} // namespace

void g726_Init(G726State& state) {
    state = {};
}

i16 g726_Decode16(G726State& state, u32 code) {
    return decode<2>(state, code);
}
i16 g726_Decode24(G726State& state, u32 code) {
    return decode<3>(state, code);
}
i16 g721_Decode(G726State& state, u32 code) {
    return decode<4>(state, code);
}
i16 g726_Decode40(G726State& state, u32 code) {
    return decode<5>(state, code);
}
u32 g726_Encode16(G726State& state, i16 sample) {
    return encode<2>(state, sample);
}
u32 g726_Encode24(G726State& state, i16 sample) {
    return encode<3>(state, sample);
}
u32 g721_Encode(G726State& state, i16 sample) {
    return encode<4>(state, sample);
}
u32 g726_Encode40(G726State& state, i16 sample) {
    return encode<5>(state, sample);
}

std::size_t g72x_Decode(std::span<i16> dst, ByteSpan src, u32 bits, bool bigEndian, G726State& state) {
    return withBits(bits, [&]<u32 Bits>() {
        return withBitOrder(bigEndian, [&]<BitOrder Order>() {
            const std::size_t count = std::min(src.size() * 8 / Bits, dst.size());
            CodeReader<Order> codes(src, Bits);
            G726State s = state;
            for (std::size_t i = 0; i < count; ++i) dst[i] = decode<Bits>(s, codes.next());
            state = s;
            return count;
        });
    });
}

std::size_t g72x_Encode(std::span<std::byte> dst, std::span<const i16> samples, std::size_t count,
                        bool stereo, u32 bits, bool bigEndian, G726State& state) {
    const std::size_t channels = stereo ? 2 : 1;
    count = std::min(count, samples.size() / channels);
    if (dst.size() < ceilDiv(count * bits, 8)) return 0;
    return withBits(bits, [&]<u32 Bits>() {
        return withBitOrder(bigEndian, [&]<BitOrder Order>() {
            CodeWriter<Order> codes(dst, Bits);
            G726State s = state;
            for (std::size_t i = 0; i < count; ++i) {
                const i16 sample =
                    stereo ? static_cast<i16>((samples[2 * i] + samples[2 * i + 1]) / 2) : samples[i];
                codes.put(encode<Bits>(s, sample));
            }
            state = s;
            return codes.end();
        });
    });
}

} // namespace kv

#include "formats/codecs/g722.h"

#include <algorithm>

#include "formats/codecs/code_bits.h"

namespace kv {
namespace {

inline i32 sat16(i32 value) {
    return std::clamp(value, -32768, 32767);
}

// ---- Tables of the standard, by its names

constexpr i32 kQmf[12] = {3, -11, 12, 32, -210, 951, 3876, -805, 362, -156, 53, -11};

constexpr i32 kQm4[16] = {0,     -20456, -12896, -8968, -6288, -4240, -2584, -1200,
                          20456, 12896,  8968,   6288,  4240,  2584,  1200,  0};
constexpr i32 kQm5[32] = {-280,  -280,  -23352, -17560, -14120, -11664, -9752, -8184, -6864, -5712, -4696,
                          -3784, -2960, -2208,  -1520,  -880,   23352,  17560, 14120, 11664, 9752,  8184,
                          6864,  5712,  4696,   3784,   2960,   2208,   1520,  880,   280,   -280};
constexpr i32 kQm6[64] = {
    -136,  -136,  -136,  -136,  -24808, -21904, -19008, -16704, -14984, -13512, -12280, -11192, -10232,
    -9360, -8576, -7856, -7192, -6576,  -6000,  -5456,  -4944,  -4464,  -4008,  -3576,  -3168,  -2776,
    -2400, -2032, -1688, -1360, -1040,  -728,   24808,  21904,  19008,  16704,  14984,  13512,  12280,
    11192, 10232, 9360,  8576,  7856,   7192,   6576,   6000,   5456,   4944,   4464,   4008,   3576,
    3168,  2776,  2400,  2032,  1688,   1360,   1040,   728,    432,    136,    -432,   -136};
constexpr i32 kQm2[4] = {-7408, -1616, 7408, 1616};

/// Logarithm's change by the lower band's upper four bits, and by the upper band's two.
constexpr i32 kWl[8] = {-60, -30, 58, 172, 334, 538, 1198, 3042};
constexpr u32 kRl[16] = {0, 7, 6, 5, 4, 3, 2, 1, 7, 6, 5, 4, 3, 2, 1, 0};
constexpr i32 kWh[4] = {798, -214, 798, -214};

constexpr i32 kIlb[32] = {2048, 2093, 2139, 2186, 2233, 2282, 2332, 2383, 2435, 2489, 2543,
                          2599, 2656, 2714, 2774, 2834, 2896, 2960, 3025, 3091, 3158, 3228,
                          3298, 3371, 3444, 3520, 3597, 3676, 3756, 3838, 3922, 4008};

constexpr std::array<i32, 30> kQ6{0,    35,   72,   110,  150,  190,  233,  276,  323,  370,
                                  422,  473,  530,  587,  650,  714,  786,  858,  940,  1023,
                                  1121, 1219, 1339, 1458, 1612, 1765, 1980, 2195, 2557, 2919};

/// Codes of the lower band's intervals 1 to 30, below and above zero.
constexpr u32 lowCode(u32 interval, bool negative) {
    if (negative) return interval < 3 ? 64 - interval : 34 - interval;
    return 62 - interval;
}

// ---- Sub-bands

/// Block 4: takes the quantised difference over into the predictor.
inline void adapt(G722Band& band, i32 d) {
    const i32 r0 = sat16(band.s + d), p0 = sat16(band.sz + d);
    const bool same1 = (p0 ^ band.p[0]) >= 0, same2 = (p0 ^ band.p[1]) >= 0;

    i32 w = sat16(band.a[0] * 4);
    w = same1 ? std::min(-w, 32767) : w;
    const i32 a2 = std::clamp((same2 ? 128 : -128) + (w >> 7) + (band.a[1] * 32512 >> 15), -12288, 12288);
    const i32 most = 15360 - a2;
    const i32 a1 = std::clamp((same1 ? 192 : -192) + (band.a[0] * 32640 >> 15), -most, most);
    const i32 gain = d == 0 ? 0 : 128;
    i32 zeros = 0;
    i32 newer = d;
    for (std::size_t i = 0; i < 6; ++i) {
        const i32 sign = (band.d[i] ^ d) >> 31;
        band.b[i] = ((gain ^ sign) - sign) + (band.b[i] * 32640 >> 15); // stays within 16 bits
        zeros += band.b[i] * sat16(2 * newer) >> 15;
        std::swap(newer, band.d[i]);
    }
    band.a = {a1, a2};
    band.r = {r0, band.r[0]};
    band.p = {p0, band.p[0]};
    band.sz = sat16(zeros);
    const i32 poles = (a1 * sat16(2 * band.r[0]) >> 15) + (a2 * sat16(2 * band.r[1]) >> 15);
    band.s = sat16(sat16(poles) + band.sz);
}

/// Block 3: takes the code's change over into the scale.
inline void rescale(G722Band& band, i32 change, i32 most, i32 shift) {
    band.nb = std::clamp((band.nb * 127 >> 7) + change, 0, most);
    const i32 mantissa = kIlb[band.nb >> 6 & 31], down = shift - (band.nb >> 11);
    band.det = (down < 0 ? mantissa << -down : mantissa >> down) * 4;
}

inline void updateLow(G722Band& band, u32 code4) {
    const i32 d = band.det * kQm4[code4] >> 15;
    rescale(band, kWl[kRl[code4]], 18432, 8);
    adapt(band, d);
}
inline void updateHigh(G722Band& band, u32 code) {
    const i32 d = band.det * kQm2[code] >> 15;
    rescale(band, kWh[code], 22528, 10);
    adapt(band, d);
}

/// The two halves of the mirror filter over 24 words.
struct Halves {
    i32 even, odd;
};
inline Halves filter(const i32* x) {
    Halves sums{0, 0};
    for (std::size_t i = 0; i < 12; ++i) {
        sums.odd += x[2 * i] * kQmf[i];
        sums.even += x[2 * i + 1] * kQmf[11 - i];
    }
    return sums;
}

/// The filter's delay line for a piece of the stream.
class DelayLine {
public:
    static constexpr std::size_t kPairs = 256;

    explicit DelayLine(std::array<i32, 22>& past) : past_(past) {
        std::copy(past.begin(), past.end(), x_.begin());
    }
    ~DelayLine() { std::copy_n(x_.begin() + static_cast<std::ptrdiff_t>(at_), 22, past_.begin()); }
    DelayLine(const DelayLine&) = delete;
    DelayLine& operator=(const DelayLine&) = delete;

    Halves push(i32 first, i32 second) {
        if (at_ == 2 * kPairs) {
            std::copy_n(x_.begin() + 2 * kPairs, 22, x_.begin());
            at_ = 0;
        }
        x_[at_ + 22] = first;
        x_[at_ + 23] = second;
        const Halves sums = filter(x_.data() + at_);
        at_ += 2;
        return sums;
    }

private:
    std::array<i32, 22>& past_;
    std::array<i32, 2 * kPairs + 22> x_{};
    std::size_t at_ = 0;
};

template <u32 Bits>
constexpr const i32* lowTable() {
    return Bits == 8 ? kQm6 : Bits == 7 ? kQm5 : kQm4;
}

template <u32 Bits>
inline void decodeWord(G722State& state, u32 word, DelayLine& line, i16* to) {
    const u32 high = word >> (Bits - 2), low = word & ((1U << (Bits - 2)) - 1);
    const i32 rl = std::clamp(state.low.s + (state.low.det * lowTable<Bits>()[low] >> 15), -16384, 16383);
    updateLow(state.low, low >> (Bits - 6));
    const i32 rh = std::clamp(state.high.s + (state.high.det * kQm2[high] >> 15), -16384, 16383);
    updateHigh(state.high, high);
    const Halves sums = line.push(rl + rh, rl - rh);
    to[0] = static_cast<i16>(sat16(sums.even >> 11));
    to[1] = static_cast<i16>(sat16(sums.odd >> 11));
}

/// A word of 8 bits, of which fewer are kept by leaving out the lowest.
inline u32 encodePair(G722State& state, i32 first, i32 second, DelayLine& line) {
    const Halves sums = line.push(first, second);
    const i32 xl = (sums.even + sums.odd) >> 14, xh = (sums.even - sums.odd) >> 14;

    const i32 el = sat16(xl - state.low.s), wl = el >= 0 ? el : -(el + 1);
    // The levels ascend: halve the range.
    u32 interval = 1;
    for (u32 step = 16; step > 0; step /= 2) {
        const u32 at = interval + step - 1;
        if (at < kQ6.size() && wl >= kQ6[at] * state.low.det >> 12) interval += step;
    }
    const u32 il = lowCode(interval, el < 0);
    updateLow(state.low, il >> 2);

    const i32 eh = sat16(xh - state.high.s), wh = eh >= 0 ? eh : -(eh + 1);
    const bool large = wh >= 564 * state.high.det >> 12;
    const u32 ih = eh < 0 ? (large ? 0 : 1) : (large ? 2 : 3);
    updateHigh(state.high, ih);
    return ih << 6 | il;
}

/// Calls a function template's instance for a width of code words; 0 for another.
template <class Function>
std::size_t withBits(u32 bits, Function function) {
    switch (bits) {
        case 6:
            return function.template operator()<6>();
        case 7:
            return function.template operator()<7>();
        case 8:
            return function.template operator()<8>();
        default:
            return 0;
    }
}

} // namespace

std::size_t g722_Decode(std::span<i16> dst, ByteSpan src, std::size_t bytes, u32 bits, bool bigEndian,
                        G722State& state) {
    src = src.first(std::min(bytes, src.size()));
    return withBits(bits, [&]<u32 Bits>() {
        return withBitOrder(bigEndian, [&]<BitOrder Order>() {
            const std::size_t words = std::min(src.size() * 8 / Bits, dst.size() / 2);
            CodeReader<Order> codes(src, Bits);
            DelayLine line(state.filter);
            for (std::size_t i = 0; i < words; ++i)
                decodeWord<Bits>(state, codes.next(), line, dst.data() + 2 * i);
            return 2 * words;
        });
    });
}

std::size_t g722_Encode(std::span<std::byte> dst, std::span<const i16> samples, u32 bits, bool bigEndian,
                        G722State& state) {
    const std::size_t pairs = samples.size() / 2 + samples.size() % 2;
    if (dst.size() < ceilDiv(pairs * bits, 8)) return 0;
    return withBits(bits, [&]<u32 Bits>() {
        return withBitOrder(bigEndian, [&]<BitOrder Order>() {
            CodeWriter<Order> codes(dst, Bits);
            DelayLine line(state.filter);
            for (std::size_t i = 0; i < pairs; ++i) {
                const i32 second = 2 * i + 1 < samples.size() ? samples[2 * i + 1] : 0;
                codes.put(encodePair(state, samples[2 * i], second, line) >> (8 - Bits));
            }
            return codes.end();
        });
    });
}

} // namespace kv

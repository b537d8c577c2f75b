#include "formats/codecs/gsm_0610.h"

#include <algorithm>
#include <bit>
#include <cstdlib>

namespace kv {
namespace {

// ---- The standard's arithmetic

inline i32 sat16(i32 value) {
    return std::clamp(value, -32768, 32767);
}
inline i32 add(i32 a, i32 b) {
    return sat16(a + b);
}
inline i32 sub(i32 a, i32 b) {
    return sat16(a - b);
}
/// Products of two fractions. Only -1 times -1 would leave the range, and one factor is always a constant or
/// a reflection coefficient, none of which is -1.
inline i32 mult(i32 a, i32 b) {
    return a * b >> 15;
}
inline i32 multR(i32 a, i32 b) {
    return (a * b + 16384) >> 15;
}
/// Left shifts that bring a positive number to its highest magnitude; 31 for 0.
inline i32 norm(i32 value) {
    return value <= 0 ? 31 : std::countl_zero(static_cast<u32>(value)) - 1;
}
inline i32 word(i32 value) {
    return static_cast<i16>(value);
}

// ---- Tables 4.1 to 4.6

constexpr std::size_t kRatios = 8, kPulses = 13, kSubFrame = 40, kHistory = 120;

constexpr i32 kA[kRatios] = {20480, 20480, 20480, 20480, 13964, 15360, 8534, 9036};
constexpr i32 kB[kRatios] = {0, 0, 2048, -2560, 94, -1792, -341, -1144};
constexpr i32 kLeast[kRatios] = {-32, -32, -16, -16, -8, -8, -4, -4};
constexpr i32 kMost[kRatios] = {31, 31, 15, 15, 7, 7, 3, 3};
constexpr i32 kInverseA[kRatios] = {13107, 13107, 13107, 13107, 19223, 17476, 31454, 29708};
constexpr i32 kGainLimits[3] = {6554, 16384, 26214};
constexpr i32 kGains[4] = {3277, 11469, 21299, 32767};
constexpr i32 kWeights[11] = {-134, -374, 0, 2054, 5741, 8192, 5741, 2054, 0, -374, -134};
constexpr i32 kMantissas[8] = {18431, 20479, 22527, 24575, 26623, 28671, 30719, 32767};
constexpr i32 kInverseMantissas[8] = {29128, 26215, 23832, 21846, 20165, 18725, 17476, 16384};

// ---- Frames

struct SubFrame {
    i32 lag, gain, grid, maximum;
    i32 pulses[kPulses];
};
struct Frame {
    i32 ratios[kRatios];
    SubFrame parts[4];
};

constexpr u32 kRatioBits[kRatios] = {6, 6, 5, 5, 4, 4, 3, 3};

/// Calls `field(value, bits)` for all parameters of a frame in the order of transmission.
template <class AnyFrame, class Field>
void eachField(AnyFrame& frame, Field field) {
    for (std::size_t i = 0; i < kRatios; ++i) field(frame.ratios[i], kRatioBits[i]);
    for (auto& part : frame.parts) {
        field(part.lag, 7);
        field(part.gain, 2);
        field(part.grid, 2);
        field(part.maximum, 6);
        for (auto& pulse : part.pulses) field(pulse, 3);
    }
}

/// A run of bits in a frame's bytes, from bit `at` on.
class FrameBits {
public:
    FrameBits(std::size_t at, bool highFirst) : at_(at), highFirst_(highFirst) {}

    i32 take(const std::byte* bytes, u32 bits) {
        const u32 pair = std::to_integer<u32>(bytes[at_ / 8]), shift = static_cast<u32>(at_ % 8);
        const bool more = shift + bits > 8;
        const u32 next = more ? std::to_integer<u32>(bytes[at_ / 8 + 1]) : 0;
        at_ += bits;
        const u32 value =
            highFirst_ ? (pair << 8 | next) >> (16 - shift - bits) : (pair | next << 8) >> shift;
        return static_cast<i32>(value & ((1U << bits) - 1));
    }
    /// The bytes are 0 before.
    void put(std::byte* bytes, u32 bits, i32 value) {
        const u32 shift = static_cast<u32>(at_ % 8);
        const u32 pair = static_cast<u32>(value) << (highFirst_ ? 16 - shift - bits : shift);
        std::byte* at = bytes + at_ / 8;
        at[0] |= static_cast<std::byte>(highFirst_ ? pair >> 8 : pair);
        if (shift + bits > 8) at[1] |= static_cast<std::byte>(highFirst_ ? pair : pair >> 8);
        at_ += bits;
    }

private:
    std::size_t at_;
    bool highFirst_;
};

/// Where a frame's bits stand: behind the mark of a plain one, or in one half of a double one.
FrameBits bitsOf(bool plain, bool second) {
    return plain ? FrameBits(4, true) : FrameBits(second ? 260 : 0, false);
}

// ---- Both directions: 4.2.8 to 4.2.9.2, 4.2.15 to 4.2.16

/// The short-term filter's coefficients in one of the four parts of a frame.
using Reflection = std::array<i32, kRatios>;

constexpr std::size_t kPartStarts[5] = {0, 13, 27, 40, kGsmFrame};

using Ratios = std::array<i16, kRatios>;

Ratios decodeRatios(const i32 (&codes)[kRatios]) {
    Ratios ratios{};
    for (std::size_t i = 0; i < kRatios; ++i) {
        i32 value = word((codes[i] + kLeast[i]) * 1024);
        value = multR(kInverseA[i], sub(value, 2 * kB[i]));
        ratios[i] = static_cast<i16>(add(value, value));
    }
    return ratios;
}

i32 toReflection(i32 ratio) {
    const i32 size = ratio == -32768 ? 32767 : std::abs(ratio);
    const i32 value = size < 11059 ? size * 2 : size < 20070 ? size + 11059 : add(size >> 2, 26112);
    return ratio < 0 ? -value : value;
}

Reflection reflection(const Ratios& last, const Ratios& now, std::size_t part) {
    Reflection out{};
    for (std::size_t i = 0; i < kRatios; ++i) {
        const i32 p = last[i], c = now[i];
        i32 ratio = c;
        if (part == 0) ratio = add(add(p >> 2, c >> 2), p >> 1);
        if (part == 1) ratio = add(p >> 1, c >> 1);
        if (part == 2) ratio = add(add(p >> 2, c >> 2), c >> 1);
        out[i] = toReflection(ratio);
    }
    return out;
}

struct Scale {
    i32 exponent, mantissa;
};
Scale scaleOf(i32 maximum) {
    Scale scale{maximum > 15 ? (maximum >> 3) - 1 : 0, 0};
    scale.mantissa = maximum - scale.exponent * 8;
    if (scale.mantissa == 0) return {-4, 7};
    while (scale.mantissa <= 7) {
        scale.mantissa = scale.mantissa * 2 + 1;
        --scale.exponent;
    }
    scale.mantissa -= 8;
    return scale;
}

i32 pulseValue(i32 code, const Scale& scale) {
    const i32 value = multR(kMantissas[scale.mantissa], word((2 * code - 7) * 4096));
    const i32 half = scale.exponent > 5 ? 0 : 1 << (5 - scale.exponent);
    return add(value, half) >> (6 - scale.exponent);
}

/// The history of the long-term residual and a frame's own behind it.
using Residual = std::array<i16, kHistory + kGsmFrame>;

// ---- Decoder

void decodeFrame(GsmState& state, const Frame& frame, i16* out) {
    Residual residual;
    std::copy(state.history.begin(), state.history.end(), residual.begin());
    for (std::size_t part = 0; part < 4; ++part) {
        const SubFrame& sub = frame.parts[part];
        if (sub.lag >= 40 && sub.lag <= 120) state.lastLag = sub.lag;
        const Scale scale = scaleOf(sub.maximum);
        const i32 gain = kGains[sub.gain];
        i16* const now = residual.data() + kHistory + part * kSubFrame;
        const i16* const past = now - state.lastLag;
        for (std::size_t k = 0; k < kSubFrame; ++k) now[k] = static_cast<i16>(multR(gain, past[k]));
        for (std::size_t i = 0; i < kPulses; ++i) {
            i16& at = now[static_cast<std::size_t>(sub.grid) + 3 * i];
            at = static_cast<i16>(add(pulseValue(sub.pulses[i], scale), at));
        }
    }
    std::copy(residual.end() - kHistory, residual.end(), state.history.begin());

    const Ratios ratios = decodeRatios(frame.ratios);
    std::array<i32, 9> v = state.lattice;
    i32 emphasis = state.emphasis;
    for (std::size_t part = 0; part < 4; ++part) {
        const Reflection r = reflection(state.lastRatios, ratios, part);
        for (std::size_t k = kPartStarts[part]; k < kPartStarts[part + 1]; ++k) {
            i32 y = residual[kHistory + k];
            for (std::size_t i = kRatios; i-- > 0;) {
                y = sub(y, multR(r[i], v[i]));
                v[i + 1] = add(v[i], multR(r[i], y));
            }
            v[0] = y;
            emphasis = add(y, multR(emphasis, 28180));
            out[k] = static_cast<i16>(add(emphasis, emphasis) & ~7);
        }
    }
    state.lattice = v;
    state.emphasis = emphasis;
    state.lastRatios = ratios;
}

// ---- Encoder

/// Offset compensation and pre-emphasis (4.2.1 to 4.2.3).
void preprocess(GsmState& state, const i16* in, std::array<i32, kGsmFrame>& out) {
    for (std::size_t k = 0; k < kGsmFrame; ++k) {
        const i32 sample = (in[k] >> 3) * 4;
        const i32 change = sample - state.offsetInput;
        state.offsetInput = sample;
        const i32 high = state.offsetMemory >> 15, low = state.offsetMemory - high * 32768;
        const i64 memory = i64{high} * 32735 + i64{change} * 32768 + multR(low, 32735);
        state.offsetMemory = static_cast<i32>(std::clamp<i64>(memory, -2147483648LL, 2147483647LL));
        const i32 rounded = static_cast<i32>(std::min<i64>(i64{state.offsetMemory} + 16384, 2147483647LL));
        const i32 last = multR(state.emphasis, -28180);
        state.emphasis = rounded >> 15;
        out[k] = add(state.emphasis, last);
    }
}

/// Autocorrelation (4.2.4); rounds the samples to the precision that it works in.
std::array<i32, 9> autocorrelation(std::array<i32, kGsmFrame>& samples) {
    i32 most = 0;
    for (const i32 s : samples) most = std::max(most, std::min(std::abs(s), 32767));
    const i32 shift = most == 0 ? 0 : 4 - norm(most << 16);
    std::array<i16, kGsmFrame> scaled;
    for (std::size_t k = 0; k < kGsmFrame; ++k) {
        scaled[k] = static_cast<i16>(shift > 0 ? multR(samples[k], 16384 >> (shift - 1)) : samples[k]);
        if (shift > 0) samples[k] = scaled[k] * (1 << shift);
    }
    std::array<i32, 9> sums{};
    for (std::size_t lag = 0; lag < sums.size(); ++lag) {
        i32 sum = 0;
        for (std::size_t k = lag; k < kGsmFrame; ++k) sum += scaled[k] * scaled[k - lag];
        sums[lag] = sum * 2;
    }
    return sums;
}

/// Schur recursion (4.2.5).
Reflection reflectionOf(const std::array<i32, 9>& sums) {
    Reflection r{};
    if (sums[0] == 0) return r;
    const i32 shift = norm(sums[0]);
    std::array<i32, 9> p{}, k{};
    for (std::size_t i = 0; i <= 8; ++i) p[i] = static_cast<i32>(static_cast<u32>(sums[i]) << shift) >> 16;
    for (std::size_t i = 1; i < 8; ++i) k[i] = p[i];
    for (std::size_t n = 0; n < kRatios; ++n) {
        const i32 size = std::min(std::abs(p[1]), 32767);
        if (p[0] < size) break;
        const i32 value = size == 0 ? 0 : size == p[0] ? 32767 : (size << 15) / p[0];
        r[n] = p[1] > 0 ? -value : value;
        p[0] = add(p[0], multR(p[1], r[n]));
        for (std::size_t m = 1; m < kRatios - n; ++m) {
            const i32 next = p[m + 1];
            p[m] = add(next, multR(k[m], r[n]));
            k[m] = add(k[m], multR(next, r[n]));
        }
    }
    return r;
}

/// Log area ratios and their codes (4.2.6, 4.2.7).
void codeRatios(const Reflection& r, i32 (&codes)[kRatios]) {
    for (std::size_t i = 0; i < kRatios; ++i) {
        const i32 size = std::min(std::abs(r[i]), 32767);
        const i32 area = size < 22118 ? size >> 1 : size < 31130 ? size - 11059 : (size - 26112) * 4;
        const i32 ratio = r[i] < 0 ? -area : area;
        const i32 code = add(add(mult(kA[i], ratio), kB[i]), 256) >> 9;
        codes[i] = std::clamp(code, kLeast[i], kMost[i]) - kLeast[i];
    }
}

/// Short-term analysis (4.2.10): leaves the residual.
void analyse(GsmState& state, const Ratios& ratios, std::array<i32, kGsmFrame>& samples) {
    std::array<i32, 9> u = state.lattice;
    for (std::size_t part = 0; part < 4; ++part) {
        const Reflection r = reflection(state.lastRatios, ratios, part);
        for (std::size_t k = kPartStarts[part]; k < kPartStarts[part + 1]; ++k) {
            i32 d = samples[k], s = d;
            for (std::size_t i = 0; i < kRatios; ++i) {
                const i32 before = u[i];
                u[i] = s;
                s = add(before, multR(r[i], d));
                d = add(d, multR(r[i], before));
            }
            samples[k] = d;
        }
    }
    state.lattice = u;
}

/// Lag and gain of the long-term predictor (4.2.11, 4.2.12).
void findLag(const i32* d, const i16* past, SubFrame& part) {
    i32 most = 0;
    for (std::size_t k = 0; k < kSubFrame; ++k) most = std::max(most, std::min(std::abs(d[k]), 32767));
    const i32 room = most == 0 ? 0 : norm(most << 16);
    const i32 shift = room > 6 ? 0 : 6 - room;
    i16 scaled[kSubFrame];
    for (std::size_t k = 0; k < kSubFrame; ++k) scaled[k] = static_cast<i16>(d[k] >> shift);

    i32 best = 0;
    part.lag = 40;
    for (i32 lag = 40; lag <= 120; ++lag) {
        const i16* const from = past - lag;
        i32 sum = 0;
        for (std::size_t k = 0; k < kSubFrame; ++k) sum += scaled[k] * from[k];
        if (sum <= best) continue;
        best = sum;
        part.lag = lag;
    }
    best = best * 2 >> (6 - shift);
    i32 power = 0;
    for (std::size_t k = 0; k < kSubFrame; ++k) {
        const i32 value = past[static_cast<std::ptrdiff_t>(k) - part.lag] >> 3;
        power += value * value;
    }
    power *= 2;
    part.gain = 0;
    if (best <= 0) return;
    part.gain = 3;
    if (best >= power) return;
    const i32 up = norm(power);
    const i32 r = (best << up) >> 16, s = (power << up) >> 16;
    for (part.gain = 0; part.gain < 3 && r > mult(s, kGainLimits[part.gain]);) ++part.gain;
}

/// Weighting filter, choice of the grid and its quantised pulses (4.2.13 to 4.2.15).
void codePulses(const i32* e, SubFrame& part) {
    std::array<i32, kSubFrame + 10> padded{};
    std::copy_n(e, kSubFrame, padded.begin() + 5);
    std::array<i32, kSubFrame> x;
    for (std::size_t k = 0; k < kSubFrame; ++k) {
        i32 sum = 4096;
        for (std::size_t i = 0; i < std::size(kWeights); ++i) sum += padded[k + i] * kWeights[i];
        x[k] = sat16(sum >> 13);
    }
    i64 most = -1;
    for (std::size_t grid = 0; grid < 4; ++grid) {
        i64 power = 0;
        for (std::size_t i = 0; i < kPulses; ++i) power += i64{x[grid + 3 * i] >> 2} * (x[grid + 3 * i] >> 2);
        if (power <= most) continue;
        most = power;
        part.grid = static_cast<i32>(grid);
    }
    const i32* const pulses = x.data() + part.grid;
    i32 maximum = 0;
    for (std::size_t i = 0; i < kPulses; ++i)
        maximum = std::max(maximum, std::min(std::abs(pulses[3 * i]), 32767));
    i32 exponent = 0;
    for (i32 rest = maximum >> 9; rest > 0 && exponent < 6; rest >>= 1) ++exponent;
    part.maximum = add(maximum >> (exponent + 5), exponent * 8);
    const Scale scale = scaleOf(part.maximum);
    for (std::size_t i = 0; i < kPulses; ++i) {
        const i32 value = word(pulses[3 * i] * (1 << (6 - scale.exponent)));
        part.pulses[i] = (mult(value, kInverseMantissas[scale.mantissa]) >> 12) + 4;
    }
}

void encodeFrame(GsmState& state, const i16* in, Frame& frame) {
    std::array<i32, kGsmFrame> samples;
    preprocess(state, in, samples);
    codeRatios(reflectionOf(autocorrelation(samples)), frame.ratios);
    const Ratios ratios = decodeRatios(frame.ratios);
    analyse(state, ratios, samples);
    state.lastRatios = ratios;

    Residual residual;
    std::copy(state.history.begin(), state.history.end(), residual.begin());
    for (std::size_t at = 0; at < 4; ++at) {
        SubFrame& part = frame.parts[at];
        const i32* const d = samples.data() + at * kSubFrame;
        i16* const now = residual.data() + kHistory + at * kSubFrame;
        findLag(d, now, part);
        i32 e[kSubFrame];
        for (std::size_t k = 0; k < kSubFrame; ++k) {
            now[k] =
                static_cast<i16>(multR(kGains[part.gain], now[static_cast<std::ptrdiff_t>(k) - part.lag]));
            e[k] = sub(d[k], now[k]);
        }
        codePulses(e, part);
        const Scale scale = scaleOf(part.maximum);
        for (std::size_t i = 0; i < kPulses; ++i) {
            i16& value = now[static_cast<std::size_t>(part.grid) + 3 * i];
            value = static_cast<i16>(add(pulseValue(part.pulses[i], scale), value));
        }
    }
    std::copy(residual.end() - kHistory, residual.end(), state.history.begin());
}

constexpr std::byte kPlainMark{0xD0};

} // namespace

void gsm_Init(GsmState& state) {
    state = {};
}

std::size_t gsm_Decode(GsmState& state, std::span<i16> dst, ByteSpan src, std::size_t bytes,
                       bool plainFrames) {
    bytes = std::min(bytes, src.size());
    const std::size_t frames = std::min(bytes * 8 / (plainFrames ? 264 : 260), dst.size() / kGsmFrame);
    for (std::size_t i = 0; i < frames; ++i) {
        const std::size_t at = plainFrames ? i * kGsmPlainBytes : i / 2 * kGsmDoubleBytes;
        FrameBits bits = bitsOf(plainFrames, i % 2 != 0);
        Frame frame;
        eachField(frame, [&](i32& value, u32 width) { value = bits.take(src.data() + at, width); });
        decodeFrame(state, frame, dst.data() + i * kGsmFrame);
    }
    return frames * kGsmFrame;
}

std::size_t gsm_Encode(GsmState& state, std::span<std::byte> dst, std::span<const i16> samples,
                       std::size_t count, bool plainFrames) {
    count = std::min(count, samples.size());
    std::size_t frames = static_cast<std::size_t>(ceilDiv(count, kGsmFrame));
    if (!plainFrames) frames += frames % 2;
    const std::size_t bytes = plainFrames ? frames * kGsmPlainBytes : frames / 2 * kGsmDoubleBytes;
    if (dst.size() < bytes) return 0;
    std::fill_n(dst.begin(), bytes, std::byte{0});
    for (std::size_t i = 0; i < frames; ++i) {
        std::array<i16, kGsmFrame> input{};
        const std::size_t from = std::min(i * kGsmFrame, count);
        std::copy_n(samples.begin() + static_cast<std::ptrdiff_t>(from), std::min(kGsmFrame, count - from),
                    input.begin());
        Frame frame;
        encodeFrame(state, input.data(), frame);
        std::byte* const at = dst.data() + (plainFrames ? i * kGsmPlainBytes : i / 2 * kGsmDoubleBytes);
        if (plainFrames) *at = kPlainMark;
        FrameBits bits = bitsOf(plainFrames, i % 2 != 0);
        eachField(frame, [&](const i32& value, u32 width) { bits.put(at, width, value); });
    }
    return bytes;
}

} // namespace kv

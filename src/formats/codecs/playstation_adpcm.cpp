#include "formats/codecs/playstation_adpcm.h"

#include <algorithm>
#include <array>
#include <limits>

namespace kv {
namespace {

/// Weights of the two samples before, in 64ths.
struct Filter {
    i32 last, beforeLast;
};
constexpr std::array<Filter, 5> kFilters{{{0, 0}, {60, 0}, {115, -52}, {98, -55}, {122, -60}}};
constexpr u32 kMostShift = 12;
constexpr u32 kShiftOfInvalid = 9; ///< what the processor makes of greater ones

i16 limited(i32 value) {
    return static_cast<i16>(std::clamp(value, -32768, 32767));
}

i32 predict(const Filter& filter, const PlaystationState& state) {
    return (state.last * filter.last + state.beforeLast * filter.beforeLast) / 64;
}

/// The sample of a code; moves the state.
i16 decodeSample(i32 code, u32 shift, const Filter& filter, PlaystationState& state) {
    const i16 sample = limited((code * 4096 >> shift) + predict(filter, state));
    state = {sample, state.last};
    return sample;
}

/// A block's codes with one filter and shift, and what they cost.
struct Attempt {
    std::array<i8, kPlaystationBlockFrames> codes{};
    PlaystationState state;
    i64 error = 0; ///< sum of squares
};

/// Stops early when the error reaches `limit`.
Attempt attempt(std::span<const i16, kPlaystationBlockFrames> samples, const Filter& filter, u32 shift,
                PlaystationState state, i64 limit) {
    Attempt out{{}, state, 0};
    const i32 step = 4096 >> shift;
    for (std::size_t i = 0; i < samples.size() && out.error < limit; ++i) {
        const i32 wanted = samples[i] - predict(filter, out.state);
        const i32 half = wanted < 0 ? -step / 2 : step / 2;
        const i32 code = std::clamp((wanted + half) / step, -8, 7);
        const i64 off = decodeSample(code, shift, filter, out.state) - samples[i];
        out.codes[i] = static_cast<i8>(code);
        out.error += off * off;
    }
    return out;
}

} // namespace

std::size_t playstation_Decode(std::span<i16> to, ByteSpan from, PlaystationState& state) {
    const std::size_t blocks =
        std::min(to.size() / kPlaystationBlockFrames, from.size() / kPlaystationBlockBytes);
    i16* out = to.data();
    for (std::size_t block = 0; block < blocks; ++block) {
        const ByteSpan bytes = from.subspan(block * kPlaystationBlockBytes, kPlaystationBlockBytes);
        const u32 head = std::to_integer<u32>(bytes[0]);
        const u32 shift = (head & 15) > kMostShift ? kShiftOfInvalid : head & 15;
        const Filter& filter = kFilters[(head >> 4) < kFilters.size() ? head >> 4 : 0];
        for (const std::byte pair : bytes.subspan(2)) {
            const auto low = static_cast<i8>(std::to_integer<u32>(pair) << 4);
            *out++ = decodeSample(low >> 4, shift, filter, state);
            *out++ = decodeSample(static_cast<i8>(pair) >> 4, shift, filter, state);
        }
    }
    return blocks * kPlaystationBlockFrames;
}

void playstation_EncodeBlock(std::span<std::byte, kPlaystationBlockBytes> to, std::span<const i16> samples,
                             PlaystationState& state) {
    std::array<i16, kPlaystationBlockFrames> padded{};
    std::copy_n(samples.begin(), std::min(samples.size(), padded.size()), padded.begin());
    Attempt best;
    best.error = std::numeric_limits<i64>::max();
    u32 head = 0;
    for (u32 filter = 0; filter < kFilters.size(); ++filter) {
        for (u32 shift = 0; shift <= kMostShift; ++shift) {
            const Attempt found = attempt(padded, kFilters[filter], shift, state, best.error);
            if (found.error >= best.error) continue;
            best = found;
            head = filter << 4 | shift;
        }
    }
    to[0] = static_cast<std::byte>(head);
    to[1] = std::byte{0};
    for (std::size_t i = 0; i < padded.size(); i += 2) {
        const u32 low = static_cast<u32>(best.codes[i]) & 15, high = static_cast<u32>(best.codes[i + 1]) & 15;
        to[2 + i / 2] = static_cast<std::byte>(low | high << 4);
    }
    state = best.state;
}

} // namespace kv

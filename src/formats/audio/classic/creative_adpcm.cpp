#include "formats/audio/classic/creative_adpcm.h"

#include <algorithm>
#include <array>

namespace kv {
namespace {

/// One width. A code is a magnitude with the sign above it. The difference is the magnitude at the smallest
/// step, and at the others half a step more than the magnitude times the step.
struct Rules {
    u32 bits;                ///< of a code
    std::array<u8, 4> shift; ///< of the codes of a byte, in their order
    u32 perByte;
    std::array<u8, 6> halfSteps; ///< by the number of the step; 0: the smallest
    u32 steps;
    u32 growsFrom; ///< the least magnitude that makes the step grow
};
// The last step of the 2.6-bit form is no misprint: the card has 5 there and not 8.
constexpr Rules kRules[] = {
    {4, {4, 0, 0, 0}, 2, {0, 1, 2, 4, 0, 0}, 4, 5},
    {3, {5, 2, 0, 0}, 3, {0, 1, 2, 4, 5, 0}, 5, 3},
    {2, {6, 4, 2, 0}, 4, {0, 1, 2, 4, 8, 16}, 6, 1},
};

struct State {
    i32 value; ///< unsigned 8-bit
    u32 step = 0;
};

i16 decodeCode(const Rules& rules, State& state, u32 code) {
    const u32 sign = 1U << (rules.bits - 1);
    const u32 magnitude = code & (sign - 1);
    const i32 half = rules.halfSteps[state.step];
    const i32 units = static_cast<i32>(magnitude);
    const i32 difference = half == 0 ? units : (2 * units + 1) * half;
    state.value = std::clamp(state.value + ((code & sign) != 0 ? -difference : difference), 0, 255);
    if (magnitude >= rules.growsFrom)
        state.step = std::min(state.step + 1, rules.steps - 1);
    else if (magnitude == 0 && state.step > 0)
        --state.step;
    return static_cast<i16>(state.value * 257 - 32768); // as plain 8-bit samples are
}

/// The code at a place of a byte; the two low bits of a byte of three codes are the high ones of theirs.
u32 codeAt(const Rules& rules, u32 byte, u32 place) {
    if (rules.bits == 3 && place == 2) return (byte & 3) << 1;
    return byte >> rules.shift[place] & ((1U << rules.bits) - 1);
}

struct State16 {
    i32 value = 0;
    i32 step = kLeastStep;
    static constexpr i32 kLeastStep = 511, kMostStep = 32767;
};

i16 decodeCode16(State16& state, u32 code) {
    constexpr i32 kGrowth[] = {230, 230, 230, 230, 307, 409, 512, 614}; // 256ths
    const u32 magnitude = code & 7;
    const i32 difference = (2 * static_cast<i32>(magnitude) + 1) * state.step >> 3;
    const i32 faded = state.value * 254 >> 8;
    state.value = std::clamp((code & 8) != 0 ? faded - difference : faded + difference, -32768, 32767);
    state.step = std::clamp(kGrowth[magnitude] * state.step >> 8, State16::kLeastStep, State16::kMostStep);
    return static_cast<i16>(state.value);
}

} // namespace

CodedForm creativeForm16(u32 channels) {
    return {channels,
            1,
            2 / channels,
            [=, states = std::array<State16, 2>()](ByteSpan from, std::span<i16> to) mutable {
                const std::size_t count = std::min(to.size(), from.size() * 2);
                for (std::size_t i = 0; i < count; ++i) {
                    const u32 byte = std::to_integer<u32>(from[i / 2]);
                    to[i] = decodeCode16(states[i % channels], i % 2 == 0 ? byte >> 4 : byte & 15);
                }
                return count / channels;
            },
            {}};
}

CodedForm creativeForm(CreativeBits bits, u8 reference) {
    const Rules& rules = kRules[static_cast<std::size_t>(bits)];
    return {1,
            1,
            rules.perByte,
            [&rules, state = State{reference}](ByteSpan from, std::span<i16> to) mutable {
                std::size_t done = 0;
                for (const std::byte byte : from) {
                    for (u32 place = 0; place < rules.perByte && done < to.size(); ++place, ++done)
                        to[done] = decodeCode(rules, state, codeAt(rules, std::to_integer<u32>(byte), place));
                }
                return done;
            },
            {}};
}

} // namespace kv

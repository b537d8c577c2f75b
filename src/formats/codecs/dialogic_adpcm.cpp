#include "formats/codecs/dialogic_adpcm.h"

#include <algorithm>
#include <array>

namespace kv {
namespace {

constexpr i32 kMaxIndex = 48;
constexpr std::array<i32, kMaxIndex + 1> kSteps{
    16,  17,  19,  21,  23,  25,  28,  31,  34,  37,  41,   45,   50,   55,   60,  66,  73,
    80,  88,  97,  107, 118, 130, 143, 157, 173, 190, 209,  230,  253,  279,  307, 337, 371,
    408, 449, 494, 544, 598, 658, 724, 796, 876, 963, 1060, 1166, 1282, 1411, 1552};
constexpr std::array<i32, 8> kAdjust{-1, -1, -1, -1, 2, 4, 6, 8};

struct Move {
    i32 delta; ///< in 16 bits
    i32 next;  ///< index of the step that follows
};
/// What each code does at each step.
constexpr auto kMoves = [] {
    std::array<std::array<Move, 16>, kMaxIndex + 1> moves{};
    for (i32 index = 0; index <= kMaxIndex; ++index) {
        const i32 step = kSteps[static_cast<u32>(index)];
        for (u32 code = 0; code < 16; ++code) {
            const i32 size = (step >> 3) + ((code & 1) != 0 ? step >> 2 : 0) +
                             ((code & 2) != 0 ? step >> 1 : 0) + ((code & 4) != 0 ? step : 0);
            moves[static_cast<u32>(index)][code] = {(code & 8) != 0 ? -16 * size : 16 * size,
                                                    std::clamp(index + kAdjust[code & 7], 0, kMaxIndex)};
        }
    }
    return moves;
}();

inline i32 step(DialogicState& state, u32 code) {
    const Move& move = kMoves[static_cast<u32>(state.index)][code];
    state.accumulator = std::clamp(state.accumulator + move.delta, -32768, 32767);
    state.index = move.next;
    return state.accumulator;
}

/// The code for a sample, chosen in the 12 bits of the hardware.
inline u32 choose(const DialogicState& state, i16 sample) {
    const i32 size = kSteps[static_cast<u32>(state.index)];
    const i32 wanted = (sample >> 4) - (state.accumulator >> 4);
    u32 code = wanted < 0 ? 8 : 0;
    i32 rest = wanted < 0 ? -wanted : wanted;
    for (u32 bit = 0; bit < 3; ++bit) {
        const i32 part = size >> bit;
        if (rest < part) continue;
        code |= 4U >> bit;
        rest -= part;
    }
    return code;
}

} // namespace

std::size_t dialogic_Decode(std::span<i16> dst, ByteSpan src, std::size_t frames, DialogicState& state) {
    frames = std::min({frames, dst.size(), src.size() * 2});
    DialogicState s = state;
    for (std::size_t i = 0; i < frames; ++i) {
        const u32 byte = std::to_integer<u32>(src[i / 2]);
        dst[i] = static_cast<i16>(step(s, i % 2 == 0 ? byte >> 4 : byte & 15));
    }
    state = s;
    return frames;
}

std::size_t dialogic_Encode(std::span<std::byte> dst, std::span<const i16> samples, DialogicState& state) {
    const std::size_t bytes = samples.size() / 2 + samples.size() % 2;
    if (dst.size() < bytes) return 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const u32 code = choose(state, samples[i]);
        step(state, code);
        dst[i / 2] =
            i % 2 == 0 ? static_cast<std::byte>(code << 4) : dst[i / 2] | static_cast<std::byte>(code);
    }
    return bytes;
}

} // namespace kv

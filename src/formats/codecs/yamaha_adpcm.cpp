#include "formats/codecs/yamaha_adpcm.h"

#include <algorithm>
#include <cstdlib>

namespace kv {
namespace {

constexpr i32 kLeastStep = 127, kMostStep = 24576;

/// By the code: eighths of the step that it adds, and what the step is scaled by, in units of 1/256.
constexpr i32 kFactors[16] = {1, 3, 5, 7, 9, 11, 13, 15, -1, -3, -5, -7, -9, -11, -13, -15};
constexpr i32 kScales[8] = {230, 230, 230, 230, 307, 409, 512, 614};

inline i16 decode(YamahaState& state, u32 code) {
    state.predictor = std::clamp(state.predictor + kFactors[code] * state.step / 8, -32768, 32767);
    state.step = std::clamp(kScales[code & 7] * state.step >> 8, kLeastStep, kMostStep);
    return static_cast<i16>(state.predictor);
}

inline u32 encode(YamahaState& state, i16 sample) {
    const i32 wanted = sample - state.predictor;
    const u32 magnitude = static_cast<u32>(std::min(7, 4 * std::abs(wanted) / state.step));
    const u32 code = wanted < 0 ? magnitude | 8 : magnitude;
    decode(state, code);
    return code;
}

} // namespace

std::size_t yamaha_Decode(std::span<i16> dst, ByteSpan src, std::size_t frames, bool stereo,
                          std::span<YamahaState> states) {
    if (states.size() < (stereo ? 2U : 1U)) return 0;
    // Codes stand alike for one channel and for two: only the states that they belong to differ.
    const std::size_t channels = stereo ? 2 : 1;
    const std::size_t count = std::min({frames, dst.size() / channels, src.size() * 2 / channels}) * channels;
    YamahaState first = states[0], second = stereo ? states[1] : YamahaState{};
    for (std::size_t i = 0; i + 1 < count; i += 2) {
        const u32 byte = std::to_integer<u32>(src[i / 2]);
        dst[i] = decode(first, byte & 15);
        dst[i + 1] = decode(stereo ? second : first, byte >> 4);
    }
    if (count % 2 != 0) dst[count - 1] = decode(first, std::to_integer<u32>(src[count / 2]) & 15);
    states[0] = first;
    if (stereo) states[1] = second;
    return count / channels;
}

std::size_t yamaha_Encode(std::span<std::byte> dst, std::span<const i16> samples, bool stereo,
                          std::span<YamahaState> states) {
    const std::size_t bytes = samples.size() / 2 + samples.size() % 2;
    if (dst.size() < bytes || states.size() < (stereo ? 2U : 1U)) return 0;
    for (std::size_t i = 0; i < samples.size(); ++i) {
        const u32 code = encode(states[stereo ? i % 2 : 0], samples[i]);
        dst[i / 2] =
            i % 2 == 0 ? static_cast<std::byte>(code) : dst[i / 2] | static_cast<std::byte>(code << 4);
    }
    return bytes;
}

} // namespace kv

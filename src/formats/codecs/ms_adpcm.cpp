#include "formats/codecs/ms_adpcm.h"

#include <algorithm>
#include <array>

#include "formats/codecs/code_search.h"

namespace kv {
namespace {

constexpr i32 kLeastDelta = 16;
/// Damaged codes could let the step grow without end; no sound needs more than this.
constexpr i32 kMostDelta = std::numeric_limits<i32>::max() / 768;

constexpr std::array<i32, 16> kAdapt{230, 230, 230, 230, 307, 409, 512, 614,
                                     768, 614, 512, 409, 307, 230, 230, 230};

constexpr MsCoefficients kStandard[] = {{256, 0}, {512, -256}, {0, 0},     {192, 64},
                                        {240, 0}, {460, -208}, {392, -232}};

inline i32 limit16(i64 value) {
    return static_cast<i32>(std::clamp<i64>(value, -32768, 32767));
}
inline i32 signedCode(u32 code) {
    return static_cast<i32>(code ^ 8) - 8;
}

/// One channel of one block under way. Wide enough for any pair, of which a file may bring its own.
struct Channel {
    i64 c1 = 0, c2 = 0;
    i64 s1 = 0, s2 = 0; ///< the last sample and the one before it
    i32 delta = 0;

    i64 predicted() const { return (s1 * c1 + s2 * c2) >> 8; }
    void step(u32 code) {
        const i64 sample = limit16(predicted() + i64{signedCode(code)} * delta);
        s2 = s1;
        s1 = sample;
        delta = std::clamp(kAdapt[code] * delta >> 8, kLeastDelta, kMostDelta);
    }
};

/// The samples behind the heads of one block or, so that the processor needn't wait for each sample, of
/// several ones side by side, all of `bytes` bytes of codes.
template <std::size_t Blocks, u32 Channels>
void decodeCodes(Channel* channels, const std::byte* const* from, i16* const* to, std::size_t bytes) {
    Channel channel[Blocks * Channels];
    std::copy_n(channels, Blocks * Channels, channel);
    for (std::size_t i = 0; i < bytes; ++i) {
        for (std::size_t b = 0; b < Blocks; ++b) {
            const u32 byte = std::to_integer<u32>(from[b][i]);
            Channel& first = channel[b * Channels];
            Channel& second = channel[b * Channels + Channels - 1];
            first.step(byte >> 4);
            to[b][i * 2] = static_cast<i16>(first.s1);
            second.step(byte & 15);
            to[b][i * 2 + 1] = static_cast<i16>(second.s1);
        }
    }
    std::copy_n(channel, Blocks * Channels, channels);
}

/// Reads the heads and puts the first two frames out, as far as there is room. False for a pair that isn't
/// in the list.
bool beginBlock(ByteSpan block, std::span<i16> to, u32 channels, Channel* channel,
                std::span<const MsCoefficients> coefficients) {
    ByteCursor in(block);
    for (u32 c = 0; c < channels; ++c) {
        const u32 pair = in.u8le();
        if (pair >= coefficients.size()) return false;
        channel[c].c1 = coefficients[pair].c1;
        channel[c].c2 = coefficients[pair].c2;
    }
    for (u32 c = 0; c < channels; ++c) channel[c].delta = in.s16le();
    for (u32 c = 0; c < channels; ++c) channel[c].s1 = in.s16le();
    for (u32 c = 0; c < channels; ++c) channel[c].s2 = in.s16le();
    for (u32 c = 0; c < channels; ++c) {
        if (c < to.size()) to[c] = static_cast<i16>(channel[c].s2);
        if (channels + c < to.size()) to[channels + c] = static_cast<i16>(channel[c].s1);
    }
    return true;
}

/// One block, whole or short; false ends the stream.
bool decodeBlock(ByteSpan block, std::span<i16> to, u32 channels,
                 std::span<const MsCoefficients> coefficients) {
    Channel channel[2];
    if (!beginBlock(block, to, channels, channel, coefficients)) return false;
    if (to.size() <= std::size_t{2} * channels) return true;
    to = to.subspan(std::size_t{2} * channels);
    const std::byte* const from = block.data() + channels * kMsHeadBytes;
    i16* const out = to.data();
    const std::size_t bytes = to.size() / 2;
    if (channels == 1)
        decodeCodes<1, 1>(channel, &from, &out, bytes);
    else
        decodeCodes<1, 2>(channel, &from, &out, bytes);
    if (to.size() % 2 != 0) {
        channel[0].step(std::to_integer<u32>(from[bytes]) >> 4);
        to.back() = static_cast<i16>(channel[0].s1);
    }
    return true;
}

/// Several whole blocks at once; false, and nothing is settled, if one of them is not to be decoded.
template <std::size_t Blocks, u32 Channels>
bool decodeTogether(ByteSpan src, std::span<i16> to, std::size_t blockBytes, std::size_t frames,
                    std::span<const MsCoefficients> coefficients) {
    Channel channel[Blocks * Channels];
    const std::byte* from[Blocks];
    i16* out[Blocks];
    for (std::size_t b = 0; b < Blocks; ++b) {
        const std::span<i16> samples = to.subspan(b * frames * Channels, frames * Channels);
        const ByteSpan block = src.subspan(b * blockBytes, blockBytes);
        if (!beginBlock(block, samples, Channels, &channel[b * Channels], coefficients)) return false;
        from[b] = block.data() + Channels * kMsHeadBytes;
        out[b] = samples.data() + 2 * Channels;
    }
    decodeCodes<Blocks, Channels>(channel, from, out, (frames - 2) * Channels / 2);
    return true;
}

} // namespace

std::span<const MsCoefficients> msStandardCoefficients() {
    return kStandard;
}

std::size_t msadpcm_FramesIn(std::size_t blockBytes, u32 channels) {
    if (channels == 0 || blockBytes < kMsHeadBytes * channels) return 0;
    return (blockBytes - kMsHeadBytes * channels) * 2 / channels + 2;
}

std::size_t msadpcm_Decode(std::span<i16> dst, std::size_t maxFrames, ByteSpan src, std::size_t blockBytes,
                           u32 channels, std::size_t samplesPerBlock,
                           std::span<const MsCoefficients> coefficients) {
    if (channels < 1 || channels > 2 || blockBytes == 0) return 0;
    maxFrames = std::min(maxFrames, dst.size() / channels);
    const std::size_t whole = std::min(msadpcm_FramesIn(blockBytes, channels), samplesPerBlock);
    const bool inPairs = whole > 2 && whole * channels % 2 == 0;
    constexpr std::size_t kTogether = 2;
    std::size_t frames = 0;
    while (frames < maxFrames && !src.empty()) {
        const std::span<i16> to = dst.subspan(frames * channels);
        if (inPairs && src.size() >= kTogether * blockBytes && maxFrames - frames >= kTogether * whole &&
            (channels == 1 ? decodeTogether<kTogether, 1>(src, to, blockBytes, whole, coefficients)
                           : decodeTogether<kTogether, 2>(src, to, blockBytes, whole, coefficients))) {
            src = src.subspan(kTogether * blockBytes);
            frames += kTogether * whole;
            continue;
        }
        const ByteSpan block = src.first(std::min(blockBytes, src.size()));
        const std::size_t count =
            std::min({msadpcm_FramesIn(block.size(), channels), samplesPerBlock, maxFrames - frames});
        if (count == 0 || !decodeBlock(block, to.first(count * channels), channels, coefficients)) break;
        src = src.subspan(block.size());
        frames += count;
    }
    return frames;
}

// ---- Encoding

namespace {

/// A channel's state as the search wants it, for one of the standard pairs.
struct SearchState {
    i32 c1 = 0, c2 = 0, s1 = 0, s2 = 0, delta = kLeastDelta;

    i32 predicted() const { return (s1 * c1 + s2 * c2) >> 8; }
    u32 nearest(i32 sample, u32& second) const {
        const f32 steps = static_cast<f32>(sample - predicted()) / static_cast<f32>(delta);
        const auto code = static_cast<i32>(std::clamp(steps + 8.5F, 0.0F, 15.0F)) - 8;
        const i32 other = steps > static_cast<f32>(code) ? code + 1 : code - 1;
        second = static_cast<u32>(other > 7 ? 6 : other < -8 ? -7 : other) & 15;
        return static_cast<u32>(code) & 15;
    }
    i32 decode(u32 code) {
        const i32 sample = limit16(predicted() + i64{signedCode(code)} * delta);
        s2 = s1;
        s1 = sample;
        delta = std::clamp(kAdapt[code] * delta >> 8, kLeastDelta, kMostDelta);
        return sample;
    }
    bool sameAs(const SearchState& other) const {
        return s1 == other.s1 && s2 == other.s2 && delta == other.delta;
    }
};

/// Sums of products of a run of samples with the ones before them, from which the squared error of any pair
/// follows.
struct Correlations {
    f64 r00 = 0, r01 = 0, r02 = 0, r11 = 0, r12 = 0, r22 = 0;

    Correlations(std::span<const i16> frames, std::size_t stride) {
        for (std::size_t i = 2 * stride; i < frames.size(); i += stride) {
            const i64 x = frames[i], y = frames[i - stride], z = frames[i - 2 * stride];
            r00 += static_cast<f64>(x * x);
            r01 += static_cast<f64>(x * y);
            r02 += static_cast<f64>(x * z);
            r11 += static_cast<f64>(y * y);
            r12 += static_cast<f64>(y * z);
            r22 += static_cast<f64>(z * z);
        }
    }
    f64 error(MsCoefficients pair) const {
        const f64 a = pair.c1 / 256.0, b = pair.c2 / 256.0;
        return r00 + a * a * r11 + b * b * r22 + 2 * (a * b * r12 - a * r01 - b * r02);
    }
};

constexpr std::size_t kSearchWidth = 2;

} // namespace

void MsBlockEncoder::encodeChannel(std::size_t channel, std::span<const i16> frames,
                                   std::span<std::byte> block) {
    const std::span<const i16> own = frames.subspan(channel);
    const Correlations correlations(own, channels_);
    u32 pair = 0;
    f64 least = correlations.error(kStandard[0]);
    for (u32 i = 1; i < std::size(kStandard); ++i) {
        const f64 error = correlations.error(kStandard[i]);
        if (error >= least) continue;
        least = error;
        pair = i;
    }
    const i32 start = delta_[channel];
    SearchState state{kStandard[pair].c1, kStandard[pair].c2, own[channels_], own[0], start};
    CodeSearch<SearchState, kSearchWidth> search;
    search.run(own.subspan(std::min(own.size(), std::size_t{2} * channels_)), channels_, state, codes_);
    delta_[channel] = std::min(state.delta, 32767);

    const auto put = [&](std::size_t at, i32 value) {
        block[at] = static_cast<std::byte>(value & 255);
        block[at + 1] = static_cast<std::byte>(value >> 8 & 255);
    };
    block[channel] = static_cast<std::byte>(pair);
    put(channels_ + 2 * channel, start);
    put(channels_ * 3 + 2 * channel, own[channels_]);
    put(channels_ * 5 + 2 * channel, own[0]);
    for (std::size_t i = 0; i < codes_.size(); ++i) {
        const std::size_t nibble = i * channels_ + channel;
        block[kMsHeadBytes * channels_ + nibble / 2] |=
            static_cast<std::byte>(codes_[i] << (nibble % 2 == 0 ? 4 : 0));
    }
}

void MsBlockEncoder::encode(std::span<const i16> frames, Bytes& out) {
    const std::size_t wanted = msadpcm_FramesIn(blockBytes_, channels_) * channels_;
    if (frames.empty() || wanted == 0) return;
    if (frames.size() < wanted) {
        padded_.assign(frames.begin(), frames.end());
        while (padded_.size() < wanted) padded_.push_back(padded_[padded_.size() - channels_]);
        frames = padded_;
    }
    const std::size_t start = out.size();
    out.resize(start + blockBytes_);
    for (std::size_t c = 0; c < channels_; ++c) {
        encodeChannel(c, frames, std::span(out).subspan(start, blockBytes_));
    }
}

} // namespace kv

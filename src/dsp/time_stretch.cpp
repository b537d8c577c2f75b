#include "dsp/time_stretch.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "base/run_context.h"
#include "dsp/phase_vocoder.h"
#include "dsp/resampler.h"

namespace kv {
namespace {

constexpr std::string_view kStretch = "Time stretch", kPitch = "Pitch scale";
constexpr u64 kMaxSamples = u64{1} << 31;
constexpr i64 kGrainDistance = 4667, kGrainReach = 4000, kGrainFlat = 667; // frames
constexpr f64 kSpectrumSeconds = 0.032;                                    // at least, before rounding up
constexpr u32 kMinSpectrum = 256, kMaxSpectrum = 16384;                    // frames
constexpr int kPitchQuality = 6;

/// The result's frames, all zero; false if the request makes no sense.
bool prepare(std::string_view context, std::span<const f32> in, std::size_t channels, f64 factor,
             std::vector<f32>& out) {
    if (channels == 0 || in.size() % channels != 0) return Fail(context, "The last frame is incomplete.");
    const u64 frames = stretchedLength(in.size() / channels, factor);
    if (frames > kMaxSamples / channels) return Fail(context, "The result would be too long.");
    out.assign(frames * channels, 0);
    return true;
}

bool isSpectrumFactor(f64 factor) {
    return factor >= kMinStretch && factor <= kMaxStretch;
}

f32 grainWeight(i64 k) {
    return static_cast<f32>(
        std::min(1.0, static_cast<f64>(kGrainReach - std::abs(k)) / (kGrainReach - kGrainFlat)));
}

} // namespace

u64 stretchedLength(u64 frames, f64 factor) {
    const f64 length = static_cast<f64>(frames) * factor + 0.5;
    return static_cast<u64>(std::max(saturate<i64>(length), i64{0}));
}

bool stretchByGrains(std::span<const f32> in, std::size_t channels, f64 factor, std::vector<f32>& out) {
    if (!(factor > 0)) return Fail(kStretch, "The factor must be above 0.");
    if (!prepare(kStretch, in, channels, factor, out)) return false;
    if (factor == 1) {
        std::copy(in.begin(), in.end(), out.begin());
        return true;
    }
    const i64 width = static_cast<i64>(channels), inFrames = static_cast<i64>(in.size()) / width,
              outFrames = static_cast<i64>(out.size()) / width;
    for (i64 grain = 0; grain * kGrainDistance - kGrainReach < outFrames; ++grain) {
        const i64 to = grain * kGrainDistance;
        const i64 from = saturate<i64>(static_cast<f64>(to) / factor + 0.5);
        if (from - kGrainReach >= inFrames) break;
        const i64 first = std::max({-kGrainReach, -to, -from});
        const i64 last = std::min({kGrainReach, outFrames - 1 - to, inFrames - 1 - from});
        for (i64 k = first; k <= last; ++k) {
            const f32 weight = grainWeight(k);
            for (i64 c = 0; c < width; ++c) {
                const f32 x = in[static_cast<std::size_t>((from + k) * width + c)];
                out[static_cast<std::size_t>((to + k) * width + c)] += std::isfinite(x) ? weight * x : 0;
            }
        }
    }
    return true;
}

bool stretchBySpectrum(std::span<const f32> in, std::size_t channels, u32 rate, f64 factor,
                       std::vector<f32>& out) {
    if (!isSpectrumFactor(factor)) return Fail(kStretch, "The factor must be from 0.1 to 10.");
    if (!prepare(kStretch, in, channels, factor, out)) return false;
    if (factor == 1) {
        std::copy(in.begin(), in.end(), out.begin());
        return true;
    }
    const u32 wanted = saturate<u32>(rate * kSpectrumSeconds);
    const i64 size = std::bit_ceil(std::clamp(wanted, kMinSpectrum, kMaxSpectrum));
    const i64 frames = static_cast<i64>(in.size() / channels);
    followRoad(in, channels, stretchRoad(findAttacks(in, channels), frames, factor, size), size, out);
    return true;
}

bool scalePitch(std::span<const f32> in, std::size_t channels, u32 rate, f64 factor, std::vector<f32>& out) {
    if (!isSpectrumFactor(factor)) return Fail(kPitch, "The factor must be from 0.1 to 10.");
    std::vector<f32> stretched;
    if (!stretchBySpectrum(in, channels, rate, factor, stretched)) return false;
    if (stretched.empty()) {
        out.assign(in.size(), 0);
        return true;
    }
    ResamplerSettings settings;
    settings.inRate = static_cast<u32>(stretched.size() / channels);
    settings.outRate = static_cast<u32>(in.size() / channels);
    settings.quality = kPitchQuality;
    settings.channels = channels;
    return resample(settings, stretched, out);
}

} // namespace kv

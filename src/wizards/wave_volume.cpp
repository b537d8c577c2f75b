#include "wizards/wave_volume.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "dsp/loudness.h"
#include "wizards/wave_edit.h"
#include "wizards/wave_floats.h"
#include "wizards/wave_statistics.h"

namespace kv {
namespace {

constexpr f64 kReference = 83; ///< dB SPL, of which the measure tells the distance

f64 rmsOf(std::span<const f32> samples) {
    f64 sum = 0;
    for (const f32 x : samples) sum += std::isfinite(x) ? static_cast<f64>(x) * static_cast<f64>(x) : 0;
    return samples.empty() ? 0 : std::sqrt(sum / static_cast<f64>(samples.size()));
}

/// Place of the first sample of the largest magnitude.
std::size_t peakOf(std::span<const f32> samples) {
    std::size_t peak = 0;
    for (std::size_t i = 1; i < samples.size(); ++i) {
        if (std::isfinite(samples[i]) && !(std::abs(samples[i]) <= std::abs(samples[peak]))) peak = i;
    }
    return peak;
}

/// 50 ms around a sample, as far as there are any.
std::span<const f32> around(std::span<const f32> samples, const Wave& wave, std::size_t peak) {
    const std::size_t length =
        std::max<std::size_t>(saturate<u32>(wave.sampleRate * 0.05 + 0.5), 1) * wave.channels;
    const std::size_t frame = peak - peak % wave.channels, half = length / 2 / wave.channels * wave.channels;
    const std::size_t from = frame - std::min(frame, half);
    return samples.subspan(from, std::min(length, samples.size() - from));
}

f64 levelOf(std::span<const f32> samples, const Wave& wave, VolumeSource source) {
    if (samples.empty()) return 0;
    if (source == VolumeSource::Rms) return rmsOf(samples);
    const std::size_t peak = peakOf(samples);
    if (source == VolumeSource::RmsAroundPeak) return rmsOf(around(samples, wave, peak));
    const f32 level = std::abs(samples[peak]);
    return std::isfinite(level) ? static_cast<f64>(level) : 0;
}

} // namespace

bool NormalizeVolume(std::span<Wave* const> waves, const NormalizeSettings& settings) {
    LoudnessMeter meter(settings.earFilter);
    for (Wave* wave : waves) {
        const auto add = [&](std::span<const f32> samples) {
            meter.add(samples, wave->channels, wave->sampleRate);
        };
        if (!lookAtSamples<f32>(*wave, add)) return false;
    }
    const f64 gain = meter.result() + std::max(settings.desired, 0.0) - kReference;
    for (Wave* wave : waves) {
        if (settings.audio && !AdjustVolume(*wave, gain)) return false;
        wave->params.gainDb = settings.audio ? 0 : static_cast<f32>(gain);
    }
    return true;
}

bool volumeOf(Wave& wave, VolumeSource source, f64& volume, bool& silent) {
    return lookAtSamples<f32>(wave, [&](std::span<const f32> samples) {
        const f64 level = levelOf(samples, wave, source);
        silent = !(level > 0);
        volume = decibels(level);
        if (source != VolumeSource::ReplayGain || silent) return;
        LoudnessMeter meter(true);
        meter.add(samples, wave.channels, wave.sampleRate);
        volume = -meter.result();
    });
}

bool FindVolume(Wave& wave, VolumeSource source, VolumeUse use) {
    f64 volume = 0;
    bool silent = false;
    if (!volumeOf(wave, source, volume, silent)) return false;
    if (use == VolumeUse::AppendToName) {
        wave.SetName(fmt::format("{} {:.1f} dB", wave.name().view(), volume));
        return true;
    }
    if (silent) return true;
    if (use == VolumeUse::Normalize) return AdjustVolume(wave, -volume);
    wave.params.gainDb -= static_cast<f32>(volume);
    return true;
}

} // namespace kv

#include "wizards/wave_channels.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "model/sample_edit.h"
#include "model/wave_data.h"
#include "model/workspace.h"
#include "samples/kernels.h"

namespace kv {
namespace {

constexpr std::string_view kMono = "->Mono", kStereo = "->Stereo";

template <class T>
bool sameChannels(std::span<const T> samples) {
    for (std::size_t i = 0; i + 1 < samples.size(); i += 2) {
        if (samples[i] != samples[i + 1]) return false;
    }
    return true;
}

void invertRightIfOpposite(std::span<i16> samples) {
    i64 sum = 0, difference = 0;
    for (std::size_t i = 0; i + 1 < samples.size(); i += 2) {
        sum += std::abs(samples[i] + samples[i + 1]);
        difference += std::abs(samples[i] - samples[i + 1]);
    }
    if (sum >= difference) return;
    for (std::size_t i = 1; i < samples.size(); i += 2) samples[i] = static_cast<i16>(~samples[i]);
}

void invertRightIfOpposite(std::span<f32> samples) {
    f64 sum = 0, difference = 0;
    for (std::size_t i = 0; i + 1 < samples.size(); i += 2) {
        sum += std::abs(static_cast<f64>(samples[i]) + static_cast<f64>(samples[i + 1]));
        difference += std::abs(static_cast<f64>(samples[i]) - static_cast<f64>(samples[i + 1]));
    }
    if (!(sum < difference)) return;
    for (std::size_t i = 1; i < samples.size(); i += 2) samples[i] = -samples[i];
}

/// One channel, or the average of both.
template <class T>
bool reduce(SampleBuffer<T>& buffer, MonoMode mode, SampleBuffer<T>* right) {
    const std::span<const T> old = static_cast<const SampleBuffer<T>&>(buffer).span();
    const std::size_t frames = old.size() / 2;
    SampleBuffer<T> mono;
    if (!mono.allocate(frames) || (right && !right->allocate(frames)))
        return Fail("Wave data", "Out of memory");
    if (mode == MonoMode::Average) {
        stereoToMono(old, mono.span());
    } else {
        const std::size_t side = mode == MonoMode::Right ? 1 : 0;
        for (std::size_t i = 0; i < frames; ++i) mono.data()[i] = old[2 * i + side];
    }
    if (right) {
        for (std::size_t i = 0; i < frames; ++i) right->data()[i] = old[2 * i + 1];
    }
    buffer = std::move(mono);
    return true;
}

SampleBuffer<i16>* bufferOf(Wave& wave, const SampleBuffer<i16>&) {
    return &wave.samples16;
}
SampleBuffer<f32>* bufferOf(Wave& wave, const SampleBuffer<f32>&) {
    return &wave.samplesFloat;
}

std::string_view withoutBlanks(std::string_view text) {
    while (text.starts_with(' ')) text.remove_prefix(1);
    while (text.ends_with(' ')) text.remove_suffix(1);
    return text;
}

/// The name without a mark of stereo at its end.
std::string stemOf(const Wave& wave) {
    std::string_view name = withoutBlanks(wave.name());
    if (name.ends_with(" S") || name.ends_with("-S")) name.remove_suffix(2);
    return std::string(withoutBlanks(name));
}

} // namespace

bool ConvertToMono(Wave& wave, MonoMode mode, bool fixPhase, Wave** second, ItemId idRequest) {
    if (mode > MonoMode::IfIdentical) return Fail(kMono, "Invalid algorithm");
    if (wave.channels != 2) return true;
    Wave* right = nullptr;
    bool differ = false;
    const bool done = editSamples(wave, [&](auto& buffer) {
        if (fixPhase) invertRightIfOpposite(buffer.span());
        if (mode == MonoMode::IfIdentical) {
            differ = !sameChannels(std::as_const(buffer).span());
            if (differ) return fixPhase;
        }
        if (mode == MonoMode::Split) {
            right = store().Create<Wave>(wave, idRequest, fmt::format("{} R", stemOf(wave)));
            right->channels = 1;
            right->sourceFile = kMemoryOnly;
            right->reloadable = false;
        }
        return reduce(buffer, mode, right ? bufferOf(*right, buffer) : nullptr);
    });
    if (differ) return true;
    if (!done) {
        store().Delete(right);
        return false;
    }
    if (right) {
        wave.SetName(stemOf(wave) + " L");
        right->FixUp();
        if (second) *second = right;
    }
    wave.channels = 1;
    wave.FixUp();
    return true;
}

bool ConvertToStereo(Wave& wave, Wave* other, bool otherIsLeft) {
    if (wave.channels == 2) return true;
    if (wave.channels != 1) return Fail(kStereo, "Invalid algorithm");
    if (other && other->channels != 1) return Fail(kStereo, "2nd waveform is not mono");
    if (!wave.LoadData() || (other && !other->LoadData())) return false;
    if (other && other->sampleRate != wave.sampleRate)
        PostStatus("Warning! Different sample rates, the result may sound weird...");
    if (other && other->samplesFloat && !wave.samplesFloat && GetFloatData(wave).empty() && wave.frames > 0)
        return Fail("Wave data", "Out of memory");
    const u32 frames = std::max(wave.frames, other ? other->frames : 0);
    const bool done = editSamples(wave, [&](auto& buffer) {
        using T = std::remove_reference_t<decltype(*buffer.data())>;
        std::span<T> own = buffer.span(), second = own;
        if (other) {
            if constexpr (std::is_same_v<T, f32>)
                second = GetFloatData(*other);
            else
                second = GetInt16Data(*other);
        }
        if (otherIsLeft) std::swap(own, second);
        std::remove_reference_t<decltype(buffer)> stereo;
        if (!stereo.allocate(std::size_t{frames} * 2)) return Fail("Wave data", "Out of memory");
        for (std::size_t i = 0; i < frames; ++i) {
            stereo.data()[2 * i] = i < own.size() ? own[i] : T{0};
            stereo.data()[2 * i + 1] = i < second.size() ? second[i] : T{0};
        }
        buffer = std::move(stereo);
        return true;
    });
    if (!done) return false;
    wave.channels = 2;
    wave.frames = frames;
    wave.FixUp();
    return true;
}

} // namespace kv

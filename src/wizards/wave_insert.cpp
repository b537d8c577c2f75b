#include "wizards/wave_insert.h"

#include <algorithm>
#include <span>

#include "model/resampled_blocks.h"
#include "model/sample_edit.h"
#include "model/wave_data.h"
#include "wizards/wave_edit.h"

namespace kv {
namespace {

constexpr std::string_view kMix = "kvMix";

bool outOfMemory() {
    return Fail("Wave data", "Out of memory");
}

/// One sample of a wave in a given number of channels: a mono wave plays on all, of stereo ones the average.
template <class T>
f64 sampleOf(std::span<const T> samples, u32 channels, u32 wanted, std::size_t frame, u32 channel) {
    if (channels == wanted) return static_cast<f64>(samples[frame * channels + channel]);
    if (channels == 1) return static_cast<f64>(samples[frame]);
    f64 sum = 0;
    for (u32 c = 0; c < channels; ++c) sum += static_cast<f64>(samples[frame * channels + c]);
    return sum / channels;
}

/// The samples of a wave in another number of channels.
template <class T>
bool inChannels(std::span<const T> samples, u32 channels, u32 wanted, SampleBuffer<T>& to) {
    const std::size_t frames = samples.size() / channels;
    if (!to.allocate(frames * wanted)) return outOfMemory();
    for (std::size_t i = 0; i < frames; ++i) {
        for (u32 c = 0; c < wanted; ++c)
            to.data()[i * wanted + c] = static_cast<T>(sampleOf(samples, channels, wanted, i, c));
    }
    return true;
}

/// All samples of a wave in the rate and the channels of another.
template <class T>
bool samplesFor(const Wave& target, const Wave& source, SampleBuffer<T>& to) {
    constexpr int kQuality = 8;
    const auto blocks = resampled(openSamples(source, std::is_same_v<T, f32>), source.sampleRate,
                                  target.sampleRate, kQuality, sourceBitsOf(source));
    SampleBuffer<T> samples;
    return blocks && readAll(*blocks, samples) &&
           inChannels<T>(samples.span(), source.channels, target.channels, to);
}

/// Inserts `added` frames, silent or those of `source`.
template <class T>
bool insertFrames(Wave& wave, SampleBuffer<T>& buffer, u32 position, u32 added, std::span<const T> source) {
    if (!replaceFrames(wave, buffer, position, 0, added)) return false;
    const std::span<T> gap =
        buffer.span().subspan(std::size_t{position} * wave.channels, std::size_t{added} * wave.channels);
    if (source.empty())
        std::fill(gap.begin(), gap.end(), T{0});
    else
        std::copy_n(source.begin(), gap.size(), gap.begin());
    return true;
}

} // namespace

bool InsertSilence(Wave& wave, u32 position, u32 frames) {
    if (!wave.LoadData()) return false;
    position = std::min(position, wave.frames);
    const bool done = editSamples(wave, [&](auto& buffer) {
        using T = std::remove_reference_t<decltype(*buffer.data())>;
        return insertFrames<T>(wave, buffer, position, frames, {});
    });
    if (done) movePointsAfterInsertion(wave, position, frames);
    return done;
}

bool InsertWave(Wave& wave, u32 position, Wave& inserted) {
    if (!wave.LoadData() || !inserted.LoadData()) return false;
    if (inserted.frames == 0) return true;
    if (inserted.samplesFloat && !wave.samplesFloat && wave.frames > 0 && GetFloatData(wave).empty())
        return outOfMemory();
    position = std::min(position, wave.frames);
    const u32 before = wave.frames;
    const bool done = editSamples(wave, [&](auto& buffer) {
        using T = std::remove_reference_t<decltype(*buffer.data())>;
        SampleBuffer<T> fitting;
        if (!samplesFor(wave, inserted, fitting)) return false;
        const auto added = static_cast<u32>(fitting.size() / wave.channels);
        return insertFrames<T>(wave, buffer, position, added, fitting.span());
    });
    if (done) movePointsAfterInsertion(wave, position, wave.frames - before);
    return done;
}

bool MixWaves(Wave& out, f32 a, Wave* wave1, f32 b, Wave* wave2, f32 c) {
    if (!wave1 || !wave2) return Fail(kMix, "A null wave was supplied");
    if (!wave1->LoadData() || !wave2->LoadData()) return false;
    const u32 channels = std::max(wave1->channels, wave2->channels);
    const u32 frames = std::max(wave1->frames, wave2->frames);
    const std::span<const f32> first = GetFloatData(*wave1), second = GetFloatData(*wave2);
    SampleBuffer<f32> mixed;
    if (!mixed.allocate(std::size_t{frames} * channels)) return outOfMemory();
    for (u32 i = 0; i < frames; ++i) {
        for (u32 channel = 0; channel < channels; ++channel) {
            f64 sum = static_cast<f64>(c);
            if (i < wave1->frames)
                sum += static_cast<f64>(a) * sampleOf(first, wave1->channels, channels, i, channel);
            if (i < wave2->frames)
                sum += static_cast<f64>(b) * sampleOf(second, wave2->channels, channels, i, channel);
            mixed.data()[std::size_t{i} * channels + channel] = static_cast<f32>(std::clamp(sum, -1.0, 1.0));
        }
    }
    out.samplesFloat = std::move(mixed);
    out.samples16.reset();
    out.channels = channels;
    out.frames = frames;
    out.reloadable = false;
    out.FixUp();
    return true;
}

} // namespace kv

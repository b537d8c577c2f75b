// The way of samples through running effects: channels, delay and tail.
#pragma once

#include <memory>
#include <span>

#include "plugins/effect.h"
#include "plugins/effect_instance.h"

namespace kv {

/// Frames of interleaved samples.
struct FrameSpan {
    std::span<const f32> samples;
    u32 channels;

    std::size_t frames() const { return samples.size() / channels; }
};

class EffectRun {
public:
    /// `instances`: started, one, or one for each channel.
    EffectRun(const EffectInfo& effect, std::span<const std::unique_ptr<EffectInstance>> instances,
              FrameSpan in, u32 sampleRate)
        : effect_(effect), instances_(instances), in_(in), sampleRate_(sampleRate) {}

    /// Fills `out` with the effect's output from where `in` starts on. False with the error pair set on
    /// failure.
    bool run(Tail tail, SampleBuffer<f32>& out);

private:
    bool runBlock(std::size_t first);
    void fill(std::size_t first);
    void copyIn(std::size_t first, u32 channel, std::span<f32> to) const;
    void mixIn(std::size_t first, std::span<f32> to) const;
    bool finite() const;
    f32 outputAt(u32 channel, std::size_t frame) const;
    void take(std::size_t block, std::size_t delay, SampleBuffer<f32>& out) const;
    bool dropSilence(SampleBuffer<f32>& out) const;

    const EffectInfo& effect_;
    std::span<const std::unique_ptr<EffectInstance>> instances_;
    FrameSpan in_;
    u32 sampleRate_;
};

} // namespace kv

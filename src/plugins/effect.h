// Audio effects of other makers, with settings, run over samples.
#pragma once

#include <map>
#include <optional>
#include <span>

#include "model/sample_buffer.h"
#include "plugins/effect_info.h"

namespace kv {

inline constexpr std::string_view kEffectContext = "Effect";

/// What becomes of sound after the last frame that went in.
enum class Tail : u8 {
    Cut,
    Keep, ///< until it is silent, for at most 10 seconds
};

/// An effect as it is set. Every run starts it anew, so that nothing of one wave sounds in the next.
class Effect {
public:
    Effect(EffectInfo info, u32 sampleRate) : info_(std::move(info)), sampleRate_(sampleRate) {}

    const EffectInfo& info() const { return info_; }

    /// False with the error pair set when there is no such parameter or the value is out of its range.
    bool setParameter(std::string_view symbol, f32 value);
    /// The same from "symbol=value symbol=value".
    bool setParameters(std::string_view text);

    /// Runs over interleaved samples of 1 or 2 channels; an effect with one input and one output, of any
    /// number. `out` gets the same channels, aligned with `in`, and as many frames, but for a tail.
    ///
    /// Effects with one input and one output run once for each channel. On one channel, others get it on
    /// all inputs, and give the average of their outputs. On two, a single input gets their average, and a
    /// single output goes to both.
    ///
    /// Samples that are no numbers go in as 0. False with the error pair set when the effect doesn't start,
    /// gives what isn't finite, or was cancelled.
    bool process(std::span<const f32> in, u32 channels, Tail tail, SampleBuffer<f32>& out) const;

private:
    EffectInfo info_;
    u32 sampleRate_;
    std::map<u32, f32> values_; ///< by port; what isn't set keeps the default
};

/// The effect that an id, name or label names, of one kind or of any, for a sample rate in Hz. Nothing with
/// the error pair set when there is none or more than one, or when it can't be used here.
std::optional<Effect> createEffect(std::string_view effect, u32 sampleRate,
                                   std::optional<EffectKind> kind = {});

} // namespace kv

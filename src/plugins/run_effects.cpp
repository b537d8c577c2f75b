#include "plugins/run_effects.h"

#include <algorithm>

#include "base/run_context.h"
#include "model/sample_edit.h"
#include "model/wave_data.h"

namespace kv {
namespace {

std::optional<std::vector<Effect>> createEffects(std::span<const EffectStep> steps, u32 sampleRate) {
    std::vector<Effect> effects;
    for (const EffectStep& step : steps) {
        std::optional<Effect> effect = createEffect(step.effect, sampleRate, step.kind);
        if (!effect || !effect->setParameters(step.settings)) return {};
        effects.push_back(std::move(*effect));
    }
    return effects;
}

bool runChain(std::span<const Effect> effects, std::span<const f32> in, u32 channels, Tail tail,
              SampleBuffer<f32>& out) {
    for (const Effect& effect : effects) {
        SampleBuffer<f32> next;
        if (!effect.process(in, channels, tail, next)) return false;
        out = std::move(next);
        in = out.span();
    }
    return true;
}

/// Puts processed samples to frame `from` on; more than there is room for makes the wave longer.
bool putBack(Wave& wave, std::span<const f32> samples, u32 from) {
    const std::size_t end = std::size_t{from} * wave.channels + samples.size();
    if (end > wave.samplesFloat.size()) {
        const std::size_t more = (end - wave.samplesFloat.size()) / wave.channels;
        if (more > UINT32_MAX) return Fail(kEffectContext, "Out of memory");
        if (!replaceFrames(wave, wave.samplesFloat, wave.frames, 0, static_cast<u32>(more))) return false;
    }
    std::copy(samples.begin(), samples.end(), wave.samplesFloat.data() + std::size_t{from} * wave.channels);
    wave.samples16.reset();
    wave.reloadable = false;
    return true;
}

} // namespace

bool runEffects(Wave& wave, std::span<const EffectStep> steps, Tail tail, u32 from, u32 to) {
    const std::optional<std::vector<Effect>> effects = createEffects(steps, wave.sampleRate);
    if (!effects || !wave.LoadData()) return false;
    to = std::min(to, wave.frames);
    if (effects->empty() || from >= to) return true;
    const bool had = static_cast<bool>(wave.samplesFloat);
    const std::span<const f32> all = GetFloatData(wave);
    if (all.empty()) return Fail("Wave data", "Out of memory");
    const std::span<const f32> part =
        all.subspan(std::size_t{from} * wave.channels, std::size_t{to - from} * wave.channels);
    SampleBuffer<f32> out;
    const bool done = runChain(*effects, part, wave.channels, to == wave.frames ? tail : Tail::Cut, out) &&
                      putBack(wave, out.span(), from);
    if (!done) DropFloatData(wave, !had && static_cast<bool>(wave.samples16));
    return done;
}

} // namespace kv

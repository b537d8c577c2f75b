#include "wizards/wave_stretch.h"

#include <algorithm>
#include <vector>

#include "dsp/time_stretch.h"
#include "wizards/wave_edit.h"
#include "wizards/wave_floats.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Time stretch";

/// Replaces a wave's samples by what `change` makes of them.
template <class Change>
bool replaceSamples(Wave& wave, Change change) {
    std::vector<f32> changed;
    bool done = false;
    if (!lookAtSamples<f32>(wave, [&](std::span<const f32> samples) { done = change(samples, changed); }))
        return false;
    if (!done) return false;
    const u64 frames = changed.size() / wave.channels;
    if (frames == 0 || frames > UINT32_MAX) return Fail(kContext, "Invalid length");
    SampleBuffer<f32> buffer;
    if (!buffer.allocate(changed.size())) return Fail(kContext, "Out of memory");
    std::copy(changed.begin(), changed.end(), buffer.data());
    wave.samplesFloat = std::move(buffer);
    wave.samples16.reset();
    wave.frames = static_cast<u32>(frames);
    wave.reloadable = false;
    return true;
}

} // namespace

bool StretchWave(Wave& wave, f64 factor, Stretch method) {
    if (!wave.LoadData()) return false;
    if (factor == 1 || wave.frames == 0) return true;
    const bool done = replaceSamples(wave, [&](std::span<const f32> in, std::vector<f32>& out) {
        return method == Stretch::Grains ? stretchByGrains(in, wave.channels, factor, out)
                                         : stretchBySpectrum(in, wave.channels, wave.sampleRate, factor, out);
    });
    if (done) scalePoints(wave, factor);
    return done;
}

bool ScalePitch(Wave& wave, f64 factor) {
    if (!wave.LoadData()) return false;
    if (factor == 1 || wave.frames == 0) return true;
    return replaceSamples(wave, [&](std::span<const f32> in, std::vector<f32>& out) {
        return scalePitch(in, wave.channels, wave.sampleRate, factor, out);
    });
}

} // namespace kv

#include "wizards/wave_resample.h"

#include "base/run_context.h"
#include "dsp/resampler.h"
#include "model/resampled_blocks.h"
#include "wizards/wave_edit.h"

namespace kv {

bool ResampleWave(Wave& wave, u32 frames, u32 rate, int quality) {
    constexpr auto refuse = [] { return Fail("Resample", "Invalid length or frequency specified"); };
    if (rate == 0) return refuse();
    if (!wave.LoadData()) return false;
    const bool byRate = frames == 0;
    const u32 from = byRate ? wave.sampleRate : wave.frames, to = byRate ? rate : frames;
    if (wave.frames != 0 && from != to) {
        const auto blocks = resampled(openSamples(wave, true), from, to, quality, sourceBitsOf(wave));
        if (blocks && blocks->frames() == 0) return refuse();
        SampleBuffer<f32> samples;
        if (!blocks || !readAll(*blocks, samples)) return false;
        wave.samplesFloat = std::move(samples);
        wave.samples16.reset();
        wave.frames = blocks->frames();
        wave.reloadable = false;
        scalePoints(wave, static_cast<f64>(to) / from);
    }
    wave.sampleRate = rate;
    return true;
}

} // namespace kv

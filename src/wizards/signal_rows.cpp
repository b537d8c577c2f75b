#include "wizards/signal_rows.h"

#include <algorithm>
#include <cmath>

#include "dsp/resampler.h"
#include "wizards/audio_run.h"
#include "wizards/wave_resample.h"
#include "wizards/wave_stretch.h"
#include "wizards/wave_volume.h"

namespace kv {
namespace {

/// The rate at which a wave lasts as long as it did when it has `frames` frames; 0: there is none.
u32 rateForLength(const Wave& wave, u32 frames) {
    if (wave.frames == 0) return 0;
    return saturate<u32>(static_cast<f64>(wave.sampleRate) * frames / wave.frames + 0.5);
}

} // namespace

bool runResample(AlgorithmRun& run) {
    const auto rate = static_cast<u32>(run.values.number("rate"));
    const auto length = static_cast<u32>(run.values.number("length"));
    const int quality = static_cast<int>(run.values.choice("quality"));
    return forEachWave(run, [&](Wave& wave) {
        const u32 wanted = rate != 0 ? rate : rateForLength(wave, length);
        const bool agree =
            rate == 0 || length == 0 || length == resampledLength(wave.frames, wave.sampleRate, rate);
        if (wanted == 0 || !agree) return Fail("Resample", kInvalidRate);
        if (run.values.on("only-downsample") && wanted >= wave.sampleRate) return true;
        return ResampleWave(wave, length, wanted, quality);
    });
}

bool runPitchScale(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) { return ScalePitch(wave, run.values.number("factor")); });
}

bool runTimeStretch(AlgorithmRun& run) {
    const auto method = static_cast<Stretch>(run.values.choice("method"));
    return forEachWave(run,
                       [&](Wave& wave) { return StretchWave(wave, run.values.number("factor"), method); });
}

bool runNormalize(AlgorithmRun& run) {
    const NormalizeSettings settings{run.values.choice("mode") == 1, run.values.number("desired"),
                                     run.values.on("filter")};
    if (!run.values.on("as-one"))
        return forEachWave(run, [&](Wave& wave) {
            Wave* one = &wave;
            return NormalizeVolume({&one, 1}, settings);
        });
    std::vector<Wave*> waves;
    for (std::size_t i = 0; i < run.items.items.size(); ++i) waves.push_back(&waveAt(run.items, i));
    if (!NormalizeVolume(waves, settings)) return false;
    for (Wave* wave : waves) wave->FixUp();
    return true;
}

bool runFindVolume(AlgorithmRun& run) {
    const auto source = static_cast<VolumeSource>(run.values.choice("source"));
    const auto use = static_cast<VolumeUse>(run.values.choice("action"));
    return forEachWave(run, [&](Wave& wave) { return FindVolume(wave, source, use); });
}

} // namespace kv

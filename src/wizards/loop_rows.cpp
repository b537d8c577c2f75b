#include "wizards/loop_rows.h"

#include "wizards/audio_run.h"
#include "wizards/wave_auto_loop.h"
#include "wizards/wave_loop.h"
#include "wizards/wave_tuning.h"

namespace kv {

bool runAutoLoop(AlgorithmRun& run) {
    const ParameterValues& values = run.values;
    const auto searchFrom = static_cast<f32>(1 - values.number("search") / 100);
    return forEachWave(run, [&](Wave& wave) {
        if (values.on("skip-looped") && wave.params.looped()) return true;
        return AutoLoop(wave, values.on("crossfade"), values.choice("kind") == 1, values.on("cut-rest"),
                        searchFrom);
    });
}

bool runAutoTune(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) {
        Tuning tuning;
        if (!FindTuning(wave, tuning)) return false;
        say(run, wave, detuningText(detuning(wave, tuning)));
        applyTuning(wave, tuning, static_cast<TuneMode>(run.values.choice("mode")));
        return true;
    });
}

bool runCalculateTuning(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) {
        Tuning tuning;
        if (!FindTuning(wave, tuning)) return false;
        say(run, wave, tuningText(wave, tuning));
        return true;
    });
}

bool runCrossfade(AlgorithmRun& run) {
    const bool one = run.items.items.size() == 1; // of several each has its own longest
    const auto length = static_cast<u32>(one ? run.values.number("length") : 0);
    return forEachWave(run, [&](Wave& wave) {
        const u32 longest = longestCrossfade(wave);
        if (length > longest)
            return Fail(kProcessContext,
                        "The maximum crossfade length is {} wavesamples (minimum of the loop length and the "
                        "number of wavesamples before the loop start point",
                        longest);
        return CrossfadeLoop(wave, wave.params.loopStart, wave.params.loopEnd, length == 0 ? longest : length,
                             run.values.on("reverse"), run.values.on("exponential"));
    });
}

bool runZeroCrossing(AlgorithmRun& run) {
    return forEachWave(run, moveLoopToZeroCrossings);
}

bool runTrimAfterLoop(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) {
        return TrimAfterLoop(wave, run.values.on("append"), run.values.on("regions"),
                             run.values.on("save-release"));
    });
}

} // namespace kv

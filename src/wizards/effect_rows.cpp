#include "wizards/effect_rows.h"

#include "plugins/run_effects.h"
#include "wizards/audio_run.h"

namespace kv {
namespace {

bool runKind(AlgorithmRun& run, EffectKind kind) {
    const EffectStep step{run.values.text("effect"), run.values.text("settings"), kind};
    if (step.effect.empty()) return Fail(kEffectContext, "No effect specified; `kelvane plugins` lists them");
    const Tail tail = run.values.on("tail") ? Tail::Keep : Tail::Cut;
    return forEachWave(run, [&](Wave& wave) {
        const FrameRange range = rangeFor(run, wave);
        return runEffects(wave, {&step, 1}, tail, range.from, range.to);
    });
}

} // namespace

bool runLadspa(AlgorithmRun& run) {
    return runKind(run, EffectKind::Ladspa);
}

bool runLv2(AlgorithmRun& run) {
    return runKind(run, EffectKind::Lv2);
}

} // namespace kv

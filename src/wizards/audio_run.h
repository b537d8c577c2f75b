// What the rows of the algorithms for waves share.
#pragma once

#include "base/run_context.h"
#include "model/wave.h"
#include "wizards/algorithm.h"
#include "wizards/wave_edit.h"

namespace kv {

inline constexpr std::string_view kProcessContext = "process";

inline Wave& waveAt(const WizardItems& items, std::size_t index) {
    return static_cast<Wave&>(*items.items[index]);
}

/// Calls `work(wave)` for each wave as long as it answers true.
template <class Work>
bool forEachWave(const AlgorithmRun& run, Work work) {
    for (std::size_t i = 0; i < run.items.items.size(); ++i) {
        ShowProgress(i, run.items.items.size());
        if (!work(waveAt(run.items, i))) return false;
        waveAt(run.items, i).FixUp();
    }
    ShowProgress(0, 0);
    return true;
}

/// The frames that the run is to change.
inline FrameRange rangeFor(const AlgorithmRun& run, const Wave& wave) {
    if (!run.items.rangeOn) return {0, wave.frames};
    return rangeOf(wave, run.items.rangeFrom, run.items.rangeTo);
}

/// Adds what there is to say of a wave, on lines of its own.
inline void say(AlgorithmRun& run, const Wave& wave, std::string_view text) {
    if (!run.text.empty()) run.text += "\n\n";
    run.text += fmt::format("{}\n{}", wave.name().view(), text);
}

} // namespace kv

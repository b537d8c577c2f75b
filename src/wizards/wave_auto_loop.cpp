#include "wizards/wave_auto_loop.h"

#include <fmt/format.h>

#include <algorithm>
#include <vector>

#include "dsp/dominant_frequency.h"
#include "model/workspace.h"
#include "wizards/loop_search.h"
#include "wizards/wave_floats.h"
#include "wizards/wave_loop.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "Auto loop finder";
constexpr u32 kLongWave = 256000;

/// Asks before a search that takes long; false when the user won't have it.
bool searchAnyway(const Wave& wave) {
    if (!workspace().warnLongLoopSearch || wave.frames <= kLongWave) return true;
    constexpr std::string_view kButtons[] = {"Abort", "Continue", "Don't ask again"};
    const int answer = Ask(
        kProductTitle,
        "Warning!\n\nThe 'Auto loop finder' could take a very long time to process this waveform!\n\n(You "
        "can "
        "press Esc at any time to cancel it, and you can see a progress report in the status bar of the main "
        "window)",
        kButtons, 1);
    if (answer == 2) workspace().warnLongLoopSearch = false;
    return answer != 0 || Fail(kContext, "Cancelled");
}

/// The average of all channels.
std::vector<f32> monoOf(std::span<const f32> samples, u32 channels) {
    std::vector<f32> mono(samples.size() / channels);
    for (std::size_t i = 0; i < mono.size(); ++i) {
        f32 sum = 0;
        for (u32 c = 0; c < channels; ++c) sum += samples[i * channels + c];
        mono[i] = channels == 1 ? sum : sum / static_cast<f32>(channels);
    }
    return mono;
}

} // namespace

bool AutoLoop(Wave& wave, bool crossfade, bool sustain, bool cutRest, f32 searchFrom) {
    std::vector<f32> mono;
    if (!lookAtSamples<f32>(wave, [&](std::span<const f32> all) { mono = monoOf(all, wave.channels); }))
        return false;
    if (!searchAnyway(wave)) return false;
    const f64 hertz = DominantFrequency(mono, mono.size(), 1, wave.sampleRate, false);
    const LoopScore score(mono);
    if (std::all_of(score.levels().begin(), score.levels().end(), [](f32 x) { return x * x == 0; }))
        return true;

    bool cancelled = false;
    const auto goesOn = [&](u64 done, u64 total) {
        PostStatus(fmt::format("Wait - Finding loop of \"{}\" - {}%", wave.name().view(),
                               static_cast<u32>(static_cast<f64>(done) * 100 / static_cast<f64>(total))));
        cancelled = CancelRequested();
        return !cancelled;
    };
    const LoopFound loop =
        findLoop(score, loopSearchRange(score, wave.sampleRate, hertz, searchFrom), goesOn);
    if (cancelled) {
        PostStatus("Failed: Loop find cancelled", StatusKind::Failure);
        return Fail(kContext, "Loop find cancelled");
    }
    PostStatus("Done: Loop found and set!");
    wave.params.loopFlags = static_cast<u16>(sustain ? kLooped | kLoopUntilRelease : kLooped);
    wave.params.loopStart = loop.start;
    wave.params.loopEnd = loop.end;
    if (crossfade && !CrossfadeLoop(wave, loop.start, loop.end, loop.end - loop.start, sustain, false))
        return false;
    return sustain || !cutRest || TrimAfterLoop(wave, true, false, false);
}

} // namespace kv

// Rows of the algorithms that find and change loops and tunings.
#pragma once

#include "wizards/algorithm.h"

namespace kv {

inline constexpr Choice kLoopKinds[] = {
    {"normal", "Create normal loop (loops until sound fade out)"},
    {"sustain", "Create loop with sampled release (sustain loop)"},
};
inline constexpr Parameter kAutoLoop[] = {
    {.kind = ParameterKind::Choice, .slug = "kind", .label = "Loop:", .choices = kLoopKinds},
    {.kind = ParameterKind::Switch, .slug = "crossfade", .label = "Crossfade samples within the loop."},
    {.kind = ParameterKind::Switch, .slug = "cut-rest", .label = "Cut everything after the loop end point."},
    {.kind = ParameterKind::Switch,
     .slug = "skip-looped",
     .label = "Skip any already looped waves (keep existing)."},
    {.kind = ParameterKind::Number,
     .slug = "search",
     .label = "Search for loop end point within the last",
     .unit = "%",
     .initial = 25,
     .least = 0,
     .most = 100},
};
bool runAutoLoop(AlgorithmRun& run);

inline constexpr Choice kTuneModes[] = {
    {"root-key", "Root key+Fine"},
    {"fine", "Fine tune only"},
    {"rate", "Sample rate"},
};
inline constexpr Parameter kAutoTune[] = {
    {.kind = ParameterKind::Choice,
     .slug = "mode",
     .label = "Adjust tuning by changing the...",
     .choices = kTuneModes},
};
bool runAutoTune(AlgorithmRun& run);
bool runCalculateTuning(AlgorithmRun& run);

inline constexpr Parameter kCrossfade[] = {
    {.kind = ParameterKind::Integer,
     .slug = "length",
     .label = "Crossfade length (0: whole loop):",
     .unit = "samples",
     .most = 4294967295.0},
    {.kind = ParameterKind::Switch,
     .slug = "reverse",
     .label =
         "Also reverse-crossfade any wavesamples after the loop end point (keeps interpolation algorithms "
         "happy and prevents pops).",
     .initial = 1},
    {.kind = ParameterKind::Switch,
     .slug = "exponential",
     .label = "Use exp. fading (fades linearly in 'log-space', which is how the ear perceive loudness)."},
};
bool runCrossfade(AlgorithmRun& run);

bool runZeroCrossing(AlgorithmRun& run);

inline constexpr Parameter kTrimAfterLoop[] = {
    {.kind = ParameterKind::Switch,
     .slug = "append",
     .label = "Append 32 wavesamples from the start of the loop to the end (to keep interpolation algorithms "
              "happy)."},
    {.kind = ParameterKind::Switch,
     .slug = "save-release",
     .label =
         "Save the removed 'release sections' as new waveforms (only there's more than 32 samples after the "
         "loop end point)."},
    {.kind = ParameterKind::Switch,
     .slug = "regions",
     .label = "Also check for any region loop points override and cut after the  endmost of all the loop "
              "points."},
};
bool runTrimAfterLoop(AlgorithmRun& run);

} // namespace kv

// Rows of the algorithms that resample, stretch and measure waves.
#pragma once

#include "wizards/algorithm.h"

namespace kv {

inline constexpr Choice kResampleQualities[] = {
    {"nearest", "Nearest neighbor - '1-tap'"},
    {"linear", "Linear interpolation - '2-tap'"},
    {"cubic", "Cubic interpolation - '4-tap'"},
    {"fir-8", "FIR filter: > 8-bits S/N (fast)"},
    {"fir-12", "FIR filter: > 12-bits S/N (fast)"},
    {"fir-16", "FIR filter: > 16-bits S/N (fast)"},
    {"fir-20", "FIR filter: > 20-bits S/N (slower)"},
    {"fir-24", "FIR filter: > 24-bits S/N (very slow)"},
    {"auto", "FIR filter: Auto-select >16 or >20-bits S/N"},
};
inline constexpr std::string_view kInvalidRate = "Invalid length or frequency specified";
inline constexpr Parameter kResample[] = {
    {.kind = ParameterKind::Integer,
     .slug = "rate",
     .label = "New sample rate:",
     .unit = "Hz",
     .most = 4294967295.0,
     .refusal = kInvalidRate},
    {.kind = ParameterKind::Integer,
     .slug = "length",
     .label = "New length:",
     .unit = "samples",
     .most = 4294967295.0,
     .refusal = kInvalidRate},
    {.kind = ParameterKind::Switch,
     .slug = "only-downsample",
     .label = "Only downsample (i.e. never incread s-rate)"},
    {.kind = ParameterKind::Choice,
     .slug = "quality",
     .label = "Algorithm:",
     .initial = 8,
     .choices = kResampleQualities},
};
bool runResample(AlgorithmRun& run);

inline constexpr Parameter kPitchScale[] = {
    {.kind = ParameterKind::Number,
     .slug = "factor",
     .label = "Pitch factor:",
     .unit = "x",
     .initial = 1,
     .least = 0.1,
     .most = 10},
};
bool runPitchScale(AlgorithmRun& run);

inline constexpr Choice kStretches[] = {
    {"grains", "Moving triangular filter (time domain)"},
    {"spectrum", "Phase vocoder-type (frequency domain)"},
};
inline constexpr Parameter kTimeStretch[] = {
    {.kind = ParameterKind::Number,
     .slug = "factor",
     .label = "Stretch factor:",
     .unit = "x",
     .initial = 1,
     .least = 0.1,
     .most = 10},
    {.kind = ParameterKind::Choice, .slug = "method", .label = "Method:", .choices = kStretches},
};
bool runTimeStretch(AlgorithmRun& run);

inline constexpr Choice kNormalizeModes[] = {
    {"parameter", "Set the volume adjustment parameter."},
    {"audio", "Modify the actual audio data."},
};
inline constexpr Parameter kNormalize[] = {
    {.kind = ParameterKind::Choice, .slug = "mode", .label = "Normalize:", .choices = kNormalizeModes},
    {.kind = ParameterKind::Number,
     .slug = "desired",
     .label = "Desired peak volume:",
     .unit = "dB SPL",
     .initial = 89,
     .least = -1000,
     .most = 1000},
    {.kind = ParameterKind::Switch,
     .slug = "filter",
     .label = "Use a filter to correct for the ears varying sensitivity at different frequencies.",
     .initial = 1},
    {.kind = ParameterKind::Switch,
     .slug = "as-one",
     .label = "Treat all the waveforms as a single recording."},
};
bool runNormalize(AlgorithmRun& run);

inline constexpr Choice kVolumeSources[] = {
    {"peak", "Peak amplitude value"},
    {"replaygain", "ReplayGain measure"},
    {"rms", "RMS of all wave"},
    {"rms-peak", "RMS around the peak value"},
};
inline constexpr Choice kVolumeUses[] = {
    {"name", "Append volume to waveform name"},
    {"subtract", "Subtract from the wave volume adjustment"},
    {"normalize", "Normalize wave volume (Warning! May clip!)"},
};
inline constexpr Parameter kFindVolume[] = {
    {.kind = ParameterKind::Choice, .slug = "source", .label = "Volume is:", .choices = kVolumeSources},
    {.kind = ParameterKind::Choice, .slug = "action", .label = "Do:", .choices = kVolumeUses},
};
bool runFindVolume(AlgorithmRun& run);

} // namespace kv

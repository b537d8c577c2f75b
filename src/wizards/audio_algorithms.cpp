// The rows of the algorithms for waves.
#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "base/run_context.h"
#include "model/loops.h"
#include "model/wave.h"
#include "model/wave_data.h"
#include "model/workspace.h"
#include "samples/data_format.h"
#include "wizards/algorithm_table.h"
#include "wizards/audio_run.h"
#include "wizards/effect_rows.h"
#include "wizards/loop_rows.h"
#include "wizards/signal_rows.h"
#include "wizards/wave_channels.h"
#include "wizards/wave_edit.h"
#include "wizards/wave_insert.h"
#include "wizards/wave_names.h"
#include "wizards/wave_silence.h"
#include "wizards/wave_statistics.h"

namespace kv {
namespace {

constexpr std::string_view kContext = kProcessContext;
constexpr f64 kManyFrames = 4294967295.0;

// ---- What the rows share

/// The wave of a parameter: "wave:2" or its name; null when it is empty or there is none.
Wave* namedWave(const AlgorithmRun& run, std::string_view slug) {
    std::string_view text = run.values.text(slug);
    constexpr std::string_view kPrefix = "wave:";
    if (text.starts_with(kPrefix)) text.remove_prefix(kPrefix.size());
    u32 number = 0;
    for (Wave& wave : store().all<Wave>()) {
        if (std::to_string(++number) == text || wave.name() == text) return &wave;
    }
    return nullptr;
}

bool anyWave(const WizardItems& items, bool (*fits)(const Wave&)) {
    for (std::size_t i = 0; i < items.items.size(); ++i) {
        if (fits(waveAt(items, i))) return true;
    }
    return false;
}

bool looped(const WizardItems& items) {
    return anyWave(items, [](const Wave& wave) { return wave.params.looped(); });
}
bool bidirectional(const WizardItems& items) {
    return anyWave(items, [](const Wave& wave) { return (wave.params.loopFlags & kLoopBidirectional) != 0; });
}
bool reversed(const WizardItems& items) {
    return anyWave(items, [](const Wave& wave) { return (wave.params.loopFlags & kLoopReverse) != 0; });
}
bool stereo(const WizardItems& items) {
    return anyWave(items, [](const Wave& wave) { return wave.channels == 2; });
}
bool mono(const WizardItems& items) {
    return anyWave(items, [](const Wave& wave) { return wave.channels == 1; });
}
bool single(const WizardItems& items) {
    return items.items.size() == 1;
}

// ---- The algorithms, by name

constexpr Parameter kAdjust[] = {
    {.kind = ParameterKind::Number,
     .slug = "by",
     .label = "Adjust the volume by:",
     .unit = "dB",
     .least = -1000,
     .most = 1000},
};
bool runAdjust(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) {
        const FrameRange range = rangeFor(run, wave);
        return AdjustVolume(wave, run.values.number("by"), range.from, range.to);
    });
}

constexpr Parameter kAppend[] = {
    {.kind = ParameterKind::Wave, .slug = "wave1", .label = "1:"},
    {.kind = ParameterKind::Wave, .slug = "wave2", .label = "2:"},
    {.kind = ParameterKind::Wave, .slug = "wave3", .label = "3:"},
    {.kind = ParameterKind::Wave, .slug = "wave4", .label = "4:"},
};
bool runAppend(AlgorithmRun& run) {
    for (const Parameter& parameter : kAppend) {
        if (run.values.text(parameter.slug).empty()) continue;
        Wave* other = namedWave(run, parameter.slug);
        if (!other) return Fail(kContext, "There is no wave \"{}\"", run.values.text(parameter.slug));
        if (!InsertWave(waveAt(run.items, 0), waveAt(run.items, 0).frames, *other)) return false;
    }
    waveAt(run.items, 0).FixUp();
    return true;
}

bool runBidirectional(AlgorithmRun& run) {
    return forEachWave(run, [](Wave& wave) { return unrollWaveLoop(wave, true, false); });
}
bool runReverseLoop(AlgorithmRun& run) {
    return forEachWave(run, [](Wave& wave) { return unrollWaveLoop(wave, false, true); });
}

constexpr Choice kMonoModes[] = {
    {"average", "Average of the left and right channel"},
    {"left", "Left channel"},
    {"right", "Right channel"},
    {"split", "Split into two waveforms"},
    {"if-identical", "Only convert if left && right chs are identical"},
};
constexpr Parameter kToMono[] = {
    {.kind = ParameterKind::Choice, .slug = "mode", .label = "Convert by:", .choices = kMonoModes},
    {.kind = ParameterKind::Switch, .slug = "fix-phase", .label = "Auto-detect and fix phase inversion"},
};
bool runToMono(AlgorithmRun& run) {
    const auto mode = static_cast<MonoMode>(run.values.choice("mode"));
    return forEachWave(run,
                       [&](Wave& wave) { return ConvertToMono(wave, mode, run.values.on("fix-phase")); });
}

constexpr Choice kStereoSides[] = {
    {"duplicate", "Duplicating the mono channel"},
    {"left", "The waveform becomes the left channel"},
    {"right", "The waveform becomes the right channel"},
};
constexpr Parameter kToStereo[] = {
    {.kind = ParameterKind::Choice, .slug = "mode", .label = "Convert by:", .choices = kStereoSides},
    {.kind = ParameterKind::Wave, .slug = "other", .label = "Other channel:"},
};
bool runToStereo(AlgorithmRun& run) {
    const std::size_t mode = run.values.choice("mode");
    Wave* other = mode == 0 ? nullptr : namedWave(run, "other");
    if (mode != 0 && !other) return Fail("->Stereo", "No 2nd waveform specified");
    return forEachWave(run, [&](Wave& wave) { return ConvertToStereo(wave, other, mode == 2); });
}

bool runCut(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) {
        const FrameRange range = rangeFor(run, wave);
        if (range.from == 0 && range.to == wave.frames)
            return Fail(kContext, "The whole waveform would be cut away: select a range");
        return CutRange(wave, range);
    });
}
bool runKeep(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) { return KeepRange(wave, rangeFor(run, wave)); });
}

bool runDoubleLoop(AlgorithmRun& run) {
    return forEachWave(run, [](Wave& wave) {
        if (!wave.params.looped()) return true;
        const auto start = static_cast<u32>(std::clamp(wave.params.loopStart + 0.5, 0.0, kManyFrames));
        const auto end = static_cast<u32>(std::clamp(wave.params.loopEnd + 0.5, 0.0, kManyFrames));
        if (end <= start || end > wave.frames) return true;
        Wave* section = store().Create<Wave>(wave, kNextFreeNumber, "<loop>", start, end - start);
        const f64 length = wave.params.loopEnd - wave.params.loopStart;
        const bool done = InsertWave(wave, end, *section);
        store().Delete(section);
        if (done) wave.params.loopEnd = wave.params.loopStart + 2 * length;
        return done;
    });
}

constexpr Choice kLoopChanges[] = {
    {"disable", "Disable all loops."},
    {"enable", "Enable loop over the whole waveform for all waveforms that are not already looped."},
    {"enable-all", "Enable loop over the whole waveform for all waveforms regardless of previous state."},
};
constexpr Parameter kLoops[] = {
    {.kind = ParameterKind::Choice, .slug = "mode", .label = "Loops:", .choices = kLoopChanges},
};
bool runLoops(AlgorithmRun& run) {
    const std::size_t mode = run.values.choice("mode");
    return forEachWave(run, [&](Wave& wave) {
        if (mode == 0) {
            wave.params.loopFlags = 0;
        } else if (mode == 2 || !wave.params.looped()) {
            wave.params.loopFlags = kLooped;
            wave.params.loopStart = 0;
            wave.params.loopEnd = wave.frames;
        }
        return true;
    });
}

constexpr Choice kFades[] = {
    {"linear-in", "Linear fade in"},
    {"linear-out", "Linear fade out"},
    {"exponential-in", "Exponential fade in"},
    {"logarithmic-out", "Logarithmic fade out"},
};
constexpr Parameter kFade[] = {
    {.kind = ParameterKind::Choice, .slug = "curve", .label = "Fade:", .initial = 2, .choices = kFades},
};
bool runFade(AlgorithmRun& run) {
    const auto curve = static_cast<Fade>(run.values.choice("curve"));
    return forEachWave(run, [&](Wave& wave) { return FadeRange(wave, rangeFor(run, wave), curve); });
}

constexpr Choice kPlaces[] = {
    {"start", "The start of the waveform"},
    {"selection-start", "The start of the selection"},
    {"selection-end", "The end of the selection"},
    {"end", "The end of the waveform"},
};
u32 placeIn(const AlgorithmRun& run, const Wave& wave) {
    const FrameRange range = rangeFor(run, wave);
    const u32 places[] = {0, range.from, range.to, wave.frames};
    return places[run.values.choice("where")];
}
constexpr Parameter kSilence[] = {
    {.kind = ParameterKind::Integer,
     .slug = "count",
     .label = "Insert silence:",
     .unit = "samples",
     .most = 1e9},
    {.kind = ParameterKind::Choice, .slug = "where", .label = "At:", .choices = kPlaces},
};
bool runInsertSilence(AlgorithmRun& run) {
    const auto count = static_cast<u32>(run.values.number("count"));
    return forEachWave(run, [&](Wave& wave) { return InsertSilence(wave, placeIn(run, wave), count); });
}

constexpr Parameter kInsert[] = {
    {.kind = ParameterKind::Wave, .slug = "wave", .label = "Insert:"},
    {.kind = ParameterKind::Choice, .slug = "where", .label = "At:", .choices = kPlaces},
};
bool runInsert(AlgorithmRun& run) {
    Wave* other = namedWave(run, "wave");
    if (!other) return Fail(kContext, "There is no wave \"{}\"", run.values.text("wave"));
    return forEachWave(run, [&](Wave& wave) { return InsertWave(wave, placeIn(run, wave), *other); });
}

bool runInvert(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) { return InvertRange(wave, rangeFor(run, wave)); });
}

constexpr Choice kMaximizeModes[] = {
    {"full-range", "Expand to cover the complete value range."},
    {"fixed-zero", "Maintain fixed zero point."},
    {"mean-zero", "Zero point is mean of all values (a.k.a.'auto DC bias')"},
};
constexpr Parameter kMaximize[] = {
    {.kind = ParameterKind::Choice,
     .slug = "mode",
     .label = "Maximize:",
     .initial = 1,
     .choices = kMaximizeModes},
};
bool runMaximize(AlgorithmRun& run) {
    const auto mode = static_cast<MaximizeMode>(run.values.choice("mode"));
    return forEachWave(run, [&](Wave& wave) { return MaximizeAmplitude(wave, mode); });
}

constexpr Parameter kMix[] = {
    {.kind = ParameterKind::Number, .slug = "a", .label = "a", .initial = 1, .least = -1000, .most = 1000},
    {.kind = ParameterKind::Number, .slug = "b", .label = "b", .least = -1000, .most = 1000},
    {.kind = ParameterKind::Number, .slug = "c", .label = "c", .least = -1, .most = 1},
    {.kind = ParameterKind::Wave, .slug = "w1", .label = "w1"},
    {.kind = ParameterKind::Wave, .slug = "w2", .label = "w2"},
};
bool runMix(AlgorithmRun& run) {
    Wave& out = waveAt(run.items, 0);
    const auto source = [&](std::string_view slug) {
        return run.values.text(slug).empty() ? &out : namedWave(run, slug);
    };
    return MixWaves(out, static_cast<f32>(run.values.number("a")), source("w1"),
                    static_cast<f32>(run.values.number("b")), source("w2"),
                    static_cast<f32>(run.values.number("c")));
}

bool runRootKeys(AlgorithmRun& run) {
    u32 parsed = 0;
    const bool done = forEachWave(run, [&](Wave& wave) {
        const std::optional<u8> key = keyInName(wave.name());
        if (!key) return true;
        wave.params.rootKey = *key;
        ++parsed;
        return true;
    });
    if (done) PostStatus(fmt::format("Done: {} root keys parsed", parsed));
    return done;
}

bool runDcOffset(AlgorithmRun& run) {
    return forEachWave(run, [](Wave& wave) { return RemoveDcOffset(wave); });
}

constexpr Parameter kRemoveSilence[] = {
    {.kind = ParameterKind::Switch, .slug = "start", .label = "From the start of the waveform", .initial = 1},
    {.kind = ParameterKind::Switch, .slug = "end", .label = "From the end of the waveform", .initial = 1},
    {.kind = ParameterKind::Switch, .slug = "anywhere", .label = "From anywhere in the waveform"},
    {.kind = ParameterKind::Number,
     .slug = "threshold",
     .label = "Silence threshold:",
     .unit = "dB",
     .initial = -40,
     .least = -200,
     .most = 0},
    {.kind = ParameterKind::Number,
     .slug = "minimum",
     .label = "Min. silence:",
     .unit = "seconds",
     .initial = 0.02,
     .most = 100000},
    {.kind = ParameterKind::Switch, .slug = "smooth", .label = "Smooth samples near cut", .initial = 1},
};
f64 levelOf(const AlgorithmRun& run, std::string_view slug) {
    return std::pow(10.0, run.values.number(slug) / 20);
}
u32 framesOf(const AlgorithmRun& run, std::string_view slug, const Wave& wave) {
    return static_cast<u32>(std::clamp(run.values.number(slug) * wave.sampleRate, 1.0, kManyFrames));
}
bool runRemoveSilence(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) {
        return RemoveSilence(
            wave, {run.values.on("start"), run.values.on("end"), run.values.on("anywhere"),
                   levelOf(run, "threshold"), framesOf(run, "minimum", wave), run.values.on("smooth")});
    });
}

bool runReverse(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) { return ReverseRange(wave, rangeFor(run, wave)); });
}

constexpr Parameter kReplace[] = {
    {.kind = ParameterKind::Text, .slug = "search", .label = "Search for:"},
    {.kind = ParameterKind::Text, .slug = "replace", .label = "Replace with:"},
};
bool runReplace(AlgorithmRun& run) {
    u32 count = 0;
    const bool done = forEachWave(run, [&](Wave& wave) {
        count += replaceInName(wave, run.values.text("search"), run.values.text("replace"));
        return true;
    });
    PostStatus(count == 0
                   ? std::string("Done: Nothing were replaced.")
                   : fmt::format("Done: {} bit{} of text were replaced.", count, count == 1 ? "" : "s"));
    return done;
}

constexpr Parameter kCopyright[] = {
    {.kind = ParameterKind::Text, .slug = "text", .label = "Copyright:", .initialText = "Copyright 2019"},
};
bool runCopyright(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) {
        wave.copyright = run.values.text("text");
        return true;
    });
}

constexpr Parameter kPreferred[] = {
    {.kind = ParameterKind::Text,
     .slug = "format",
     .label = "Preferred data format:",
     .initialText = "PCM 16-bit"},
};
bool runPreferred(AlgorithmRun& run) {
    const u32 code = FormatCodeByName(run.values.text("format"));
    if (code == 0) return Fail(kContext, "\"{}\" is no data format", run.values.text("format"));
    return forEachWave(run, [&](Wave& wave) {
        wave.preferredFormat = code;
        return true;
    });
}

bool runLoopFromSelection(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) {
        const FrameRange range = rangeFor(run, wave);
        wave.params.loopFlags |= kLooped;
        wave.params.loopStart = range.from;
        wave.params.loopEnd = range.to;
        return true;
    });
}
bool runSelectionFromLoop(AlgorithmRun& run) {
    return forEachWave(run, [](Wave& wave) {
        if (!wave.params.looped()) return true;
        wave.selStart = std::llround(wave.params.loopStart);
        wave.selEnd = std::llround(wave.params.loopEnd);
        return true;
    });
}

bool runNamesFromFiles(AlgorithmRun& run) {
    return forEachWave(run, [](Wave& wave) {
        if (wave.hasFile()) wave.SetName(wave.sourceFile.stem().string());
        return true;
    });
}

constexpr Choice kNamePlaces[] = {
    {"prepend", "Prepend the root key to the name"},
    {"append", "Append the root key to the name"},
    {"replace", "Make a new name"},
};
constexpr Parameter kKeyNames[] = {
    {.kind = ParameterKind::Choice, .slug = "mode", .label = "Set name by:", .choices = kNamePlaces},
    {.kind = ParameterKind::Text, .slug = "text", .label = "New name:", .initialText = "<root>"},
};
bool runNamesFromKeys(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) {
        setNameFromKey(wave, static_cast<NamePlace>(run.values.choice("mode")), run.values.text("text"));
        return true;
    });
}

constexpr Choice kFilters[] = {
    {"triangular", "Using 3 point triangular filter."},
    {"two-towers", "Using 2 point left-right 'two towers' filter."},
    {"right", "Using 2 point rightsided block filter."},
    {"left", "Using 2 point leftsided block filter."},
};
constexpr Parameter kSmooth[] = {
    {.kind = ParameterKind::Choice, .slug = "filter", .label = "Smooth:", .choices = kFilters},
};
bool runSmooth(AlgorithmRun& run) {
    const auto filter = static_cast<Smoothing>(run.values.choice("filter"));
    return forEachWave(run, [&](Wave& wave) { return SmoothRange(wave, rangeFor(run, wave), filter); });
}

constexpr Parameter kSplit[] = {
    {.kind = ParameterKind::Number,
     .slug = "detect",
     .label = "Detect threshold:",
     .unit = "dB",
     .initial = -40,
     .least = -200},
    {.kind = ParameterKind::Number,
     .slug = "clip",
     .label = "Clip threshold:",
     .unit = "dB",
     .initial = -50,
     .least = -200},
    {.kind = ParameterKind::Number,
     .slug = "silence",
     .label = "Min. silence:",
     .unit = "seconds",
     .initial = 0.1,
     .most = 100000},
    {.kind = ParameterKind::Number,
     .slug = "sound",
     .label = "Min. sound:",
     .unit = "seconds",
     .initial = 0.1,
     .most = 100000},
    {.kind = ParameterKind::Switch, .slug = "smooth", .label = "Smooth samples near cut", .initial = 1},
};
bool runSplit(AlgorithmRun& run) {
    std::vector<Wave*> made;
    return forEachWave(run, [&](Wave& wave) {
        return SplitAtSilence(wave,
                              {levelOf(run, "detect"), levelOf(run, "clip"), framesOf(run, "silence", wave),
                               framesOf(run, "sound", wave), run.values.on("smooth")},
                              made);
    });
}

bool runStatistics(AlgorithmRun& run) {
    return forEachWave(run, [&](Wave& wave) {
        WaveStatistics statistics;
        if (!measure(wave, rangeFor(run, wave), statistics)) return false;
        std::string text = statisticsText(statistics);
        EbuLoudness loudness{};
        const bool measured = measureLoudness(wave, rangeFor(run, wave), loudness);
        if (!measured && CancelRequested()) return false;
        text += "\n" + (measured ? loudnessText(loudness) : "Loudness: " + runContext().error.message);
        say(run, wave, text);
        return true;
    });
}

bool runSwap(AlgorithmRun& run) {
    return forEachWave(run, [](Wave& wave) { return SwapChannels(wave); });
}

constexpr AlgorithmKind kAudio = AlgorithmKind::Audio;
constexpr u32 kSelection = kTakesRange | kNeedsRange;
constexpr Algorithm kRows[] = {
    {kAudio, "Adjust volume", kAdjust, runAdjust, kTakesRange},
    {kAudio, "Append/combine waveforms", kAppend, runAppend, 0, single},
    {kAudio, "Auto loop finder", kAutoLoop, runAutoLoop},
    {kAudio, "Auto tune", kAutoTune, runAutoTune},
    {kAudio, "Calculate tuning", {}, runCalculateTuning},
    {kAudio, "Convert bidirectional to forward loop", {}, runBidirectional, 0, bidirectional},
    {kAudio, "Convert reverse to forward loop", {}, runReverseLoop, 0, reversed},
    {kAudio, "Convert to mono", kToMono, runToMono, 0, stereo},
    {kAudio, "Convert to stereo", kToStereo, runToStereo, 0, mono},
    {kAudio, "Cross-fade loop", kCrossfade, runCrossfade, 0, looped},
    {kAudio, "Cut away selection", {}, runCut, kSelection},
    {kAudio, "Double the loop section length", {}, runDoubleLoop, 0, looped},
    {kAudio, "DX plug-in effects", kEffect, runLadspa, kTakesRange},
    {kAudio, "Enable/disable loops", kLoops, runLoops},
    {kAudio, "Fade in/out selection", kFade, runFade, kSelection},
    {kAudio, "Find volume", kFindVolume, runFindVolume},
    {kAudio, "Insert silence", kSilence, runInsertSilence, kTakesRange},
    {kAudio, "Insert another waveform", kInsert, runInsert, kTakesRange},
    {kAudio, "Invert sign throughout selection", {}, runInvert, kSelection},
    {kAudio, "Maximize amplitude", kMaximize, runMaximize},
    {kAudio, "Mix out = a*wave1 + b*wave2 + c", kMix, runMix, 0, single},
    {kAudio, "Move loop points to nearest zero-crossing", {}, runZeroCrossing, 0, looped},
    {kAudio, "Normalize volume", kNormalize, runNormalize},
    {kAudio, "Parse root key from waveform name", {}, runRootKeys},
    {kAudio, "Pitch scale", kPitchScale, runPitchScale},
    {kAudio, "Remove DC offset", {}, runDcOffset},
    {kAudio, "Remove silent sections", kRemoveSilence, runRemoveSilence},
    {kAudio, "Resample / Convert sample rate", kResample, runResample},
    {kAudio, "Reverse audio within selection", {}, runReverse, kSelection},
    {kAudio, "Search and replace text in names", kReplace, runReplace},
    {kAudio, "Set copyright text", kCopyright, runCopyright},
    {kAudio, "Set \"Preferred data format\" parameter", kPreferred, runPreferred},
    {kAudio, "Set loop points to selection", {}, runLoopFromSelection, kSelection},
    {kAudio, "Set selection to loop points", {}, runSelectionFromLoop, 0, looped},
    {kAudio, "Set waveform names from file names", {}, runNamesFromFiles},
    {kAudio, "Set waveform names from root keys", kKeyNames, runNamesFromKeys, kTakesRange},
    {kAudio, "Smooth within the selection", kSmooth, runSmooth, kSelection},
    {kAudio, "Split waveform at silent sections", kSplit, runSplit},
    {kAudio, "Statistics", {}, runStatistics, kTakesRange},
    {kAudio, "Swap left and right channels", {}, runSwap, 0, stereo},
    {kAudio, "Time stretch", kTimeStretch, runTimeStretch},
    {kAudio, "Trim data after loop end point", kTrimAfterLoop, runTrimAfterLoop, 0, looped},
    {kAudio, "Trim waveform to selection", {}, runKeep, kSelection},
    {kAudio, "VST plug-in effects", kEffect, runLv2, kTakesRange},
};

} // namespace

std::span<const Algorithm> audioAlgorithms() {
    return kRows;
}

} // namespace kv

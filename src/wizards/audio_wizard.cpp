#include "wizards/audio_wizard.h"

#include <fmt/format.h>

#include <algorithm>

#include "base/run_context.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "wizards/algorithm_table.h"
#include "wizards/audio_run.h"

namespace kv {
namespace {

/// The range of a single wave's selection, else the whole.
void takeSelection(WizardItems& items) {
    items.rangeOn = false;
    if (items.items.size() != 1) return;
    const Wave& wave = waveAt(items, 0);
    items.rangeFrom = 0;
    items.rangeTo = wave.frames;
    if (wave.selStart < 0 || wave.selEnd < wave.selStart) return;
    items.rangeOn = true;
    items.rangeFrom = static_cast<u32>(std::min<i64>(wave.selStart, wave.frames));
    items.rangeTo = static_cast<u32>(std::min<i64>(wave.selEnd, wave.frames));
}

const Algorithm* audioAlgorithmOf(std::string_view name) {
    for (const Algorithm& algorithm : audioAlgorithms()) {
        if (algorithm.name == name) return &algorithm;
    }
    return nullptr;
}

} // namespace

bool chooseAllWaves(WizardItems& items) {
    items = allItemsFor(AlgorithmKind::Audio);
    takeSelection(items);
    if (!items.items.empty()) return true;
    ShowMessage({},
                "You need to load at least one waveform before you can use the \"Audio processing wizard\"!");
    return false;
}

bool chooseWaves(std::span<Item* const> selected, WizardItems& items) {
    if (store().count(kWaveClass) == 0) return chooseAllWaves(items);
    const bool waves =
        !selected.empty() && std::all_of(selected.begin(), selected.end(),
                                         [](const Item* item) { return classOf(item->id()) == kWaveClass; });
    if (!waves) {
        ShowMessage({},
                    "No waveforms selected - the Audio processing wizard will work on all loaded waveforms!");
        return chooseAllWaves(items);
    }
    items = {};
    items.items.assign(selected.begin(), selected.end());
    takeSelection(items);
    return true;
}

void setTypedRange(WizardItems& items, i64 from, i64 to) {
    constexpr i64 kMost = 0xFFFFFFFF;
    from = std::clamp<i64>(from, 0, kMost);
    to = std::clamp<i64>(to, 0, kMost);
    if (items.items.size() == 1) {
        const i64 frames = waveAt(items, 0).frames;
        if (from >= frames) from = 0;
        to = std::min(to, frames);
    }
    items.rangeFrom = static_cast<u32>(from);
    items.rangeTo = static_cast<u32>(to);
}

std::vector<const Algorithm*> offeredAlgorithms(const WizardItems& items) {
    std::vector<const Algorithm*> offered;
    for (const Algorithm& algorithm : audioAlgorithms()) {
        if (!algorithm.offered || algorithm.offered(items)) offered.push_back(&algorithm);
    }
    return offered;
}

void pickAlgorithm(WizardItems& items, const Algorithm& algorithm) {
    if ((algorithm.flags & kNeedsRange) != 0) items.rangeOn = true;
    if ((algorithm.flags & kTakesRange) == 0) items.rangeOn = false;
}

std::string wizardTitle(const WizardItems& items, const Algorithm& algorithm) {
    const std::string_view on = items.allWaves            ? "All Waveforms"
                                : items.items.size() != 1 ? "Multiple waveforms"
                                                          : waveAt(items, 0).name().view();
    return fmt::format("Audio processing wizard - {} - {}", algorithm.name, on);
}

AlgorithmCall lastCallOf(const Algorithm& algorithm) {
    const auto last = workspace().lastCalls.find(slugOf(algorithm));
    if (last != workspace().lastCalls.end()) {
        if (std::optional<AlgorithmCall> call = parseAlgorithmCall(last->second, algorithms())) return *call;
    }
    return {&algorithm, ParameterValues(algorithm)};
}

bool runAndRemember(const AlgorithmCall& call, const WizardItems& items, std::string& text) {
    if (!runAlgorithm(call, items, text)) return false;
    workspace().lastCalls[slugOf(*call.algorithm)] = textOf(call);
    LastAudioRun& last = workspace().lastAudioRun;
    last = {std::string(call.algorithm->name), -1, -1};
    if (items.rangeOn) last = {last.algorithm, items.rangeFrom, items.rangeTo};
    return true;
}

const Algorithm* repeatLast(WizardItems& items) {
    const LastAudioRun& last = workspace().lastAudioRun;
    const Algorithm* algorithm = audioAlgorithmOf(last.algorithm);
    if (!algorithm || items.items.empty()) return nullptr;
    Wave& wave = waveAt(items, 0);
    wave.selStart = std::min<i64>(last.from, wave.frames);
    wave.selEnd = std::min<i64>(last.to, wave.frames);
    takeSelection(items);
    pickAlgorithm(items, *algorithm);
    return algorithm;
}

} // namespace kv

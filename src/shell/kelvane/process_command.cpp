// `kelvane process`: algorithms on waves and songs, one after the other; `kelvane algorithms` lists them.
#include <fmt/format.h>

#include <algorithm>

#include "model/collection.h"
#include "model/fix_up.h"
#include "model/instrument.h"
#include "model/wave.h"
#include "model/workspace.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/frame_range.h"
#include "shell/kelvane/item_selector.h"
#include "shell/kelvane/json_writer.h"
#include "shell/kelvane/terminal_ui.h"
#include "wizards/algorithm_table.h"

namespace kv {
namespace {

constexpr std::string_view kContext = "process";

bool fits(AlgorithmKind kind, const Item& item) {
    constexpr u32 kSongs = kSongClass | kTrackClass | kCollectionClass;
    const u32 wanted = kind == AlgorithmKind::Audio  ? kWaveClass
                       : kind == AlgorithmKind::Midi ? kSongs
                                                     : kInstrumentClass | kLayerClass | kRegionClass;
    return (classOf(item.id()) & wanted) != 0;
}

/// What an algorithm works on: the chosen items of its kind; all of them when none was chosen.
bool itemsFor(AlgorithmKind kind, const ProcessOptions& options, WizardItems& items) {
    for (const std::string& selector : options.items) {
        Item* item = selectItem(selector);
        if (!item) return false;
        if (fits(kind, *item)) items.items.push_back(item);
    }
    if (!options.items.empty()) return true;
    WizardItems all = allItemsFor(kind);
    items.items = std::move(all.items);
    items.allWaves = all.allWaves;
    return true;
}

bool process(const std::vector<AlgorithmCall>& calls, const ProcessOptions& options, const WizardItems& range,
             bool quiet) {
    for (const AlgorithmCall& call : calls) {
        WizardItems items = range;
        if (!itemsFor(call.algorithm->kind, options, items)) return false;
        std::string text;
        if (!runAlgorithm(call, items, text)) return false;
        if (!quiet && !text.empty()) fmt::print(stderr, "{}\n", text);
    }
    FixUpAll(kAllClasses);
    return true;
}

void printParameter(const Parameter& parameter) {
    std::string values;
    switch (parameter.kind) {
        case ParameterKind::Number:
        case ParameterKind::Integer:
            values = fmt::format("{}..{}, {}", parameter.least, parameter.most, parameter.initial);
            break;
        case ParameterKind::Switch:
            values = parameter.initial != 0 ? "0|1, 1" : "0|1, 0";
            break;
        case ParameterKind::Choice:
            for (const Choice& choice : parameter.choices)
                values += fmt::format("{}{}", values.empty() ? "" : "|", choice.slug);
            values +=
                fmt::format(", {}", parameter.choices[static_cast<std::size_t>(parameter.initial)].slug);
            break;
        case ParameterKind::Text:
            values = fmt::format("text, \"{}\"", parameter.initialText);
            break;
        case ParameterKind::Wave:
            values = "wave:N or wave:\"NAME\"";
            break;
    }
    fmt::print("    {} ({}{}{}): {}\n", parameter.slug, values, parameter.unit.empty() ? "" : " ",
               parameter.unit, parameter.label);
}

void writeParameter(JsonWriter& json, const Parameter& parameter) {
    json.beginObject();
    json.value("name", parameter.slug);
    json.value("label", parameter.label);
    json.value("kind", nameOf(parameter.kind));
    if (!parameter.unit.empty()) json.value("unit", parameter.unit);
    if (parameter.kind == ParameterKind::Number || parameter.kind == ParameterKind::Integer) {
        json.value("least", parameter.least);
        json.value("most", parameter.most);
        json.value("initial", parameter.initial);
    } else if (parameter.kind == ParameterKind::Switch) {
        json.value("initial", parameter.initial != 0);
    } else if (parameter.kind == ParameterKind::Choice) {
        json.beginArray("choices");
        for (const Choice& choice : parameter.choices) {
            json.beginObject();
            json.value("name", choice.slug);
            json.value("label", choice.label);
            json.endObject();
        }
        json.endArray();
        json.value("initial", parameter.choices[static_cast<std::size_t>(parameter.initial)].slug);
    } else if (parameter.kind == ParameterKind::Text) {
        json.value("initial", parameter.initialText);
    }
    json.endObject();
}

void writeAlgorithm(JsonWriter& json, const Algorithm& algorithm) {
    json.beginObject();
    json.value("name", algorithm.name);
    json.value("slug", std::string_view(slugOf(algorithm)));
    json.value("appliesTo", nameOf(algorithm.kind));
    json.beginArray("parameters");
    for (const Parameter& parameter : algorithm.parameters) writeParameter(json, parameter);
    json.endArray();
    json.endObject();
}

} // namespace

int runProcess(const ProcessOptions& options, TerminalUi& ui) {
    std::vector<AlgorithmCall> calls;
    WizardItems range;
    range.rangeOn = !options.range.empty();
    bool understood =
        !range.rangeOn || readFrameRange(options.range, kContext, range.rangeFrom, range.rangeTo);
    for (const std::string& step : options.steps) {
        std::optional<AlgorithmCall> call =
            understood ? parseAlgorithmCall(step, algorithms()) : std::nullopt;
        understood = call.has_value();
        if (call) calls.push_back(std::move(*call));
    }
    if (!understood) {
        reportFailure();
        return kUsage;
    }
    return runConvert(conversionOf(options, [&] { return process(calls, options, range, ui.quiet()); }), ui);
}

int runAlgorithms(const AlgorithmsOptions& options) {
    const auto wanted = [&](AlgorithmKind kind) {
        if (!options.audio && !options.midi && !options.instrument) return true;
        return kind == AlgorithmKind::Audio  ? options.audio
               : kind == AlgorithmKind::Midi ? options.midi
                                             : options.instrument;
    };
    std::vector<const Algorithm*> shown;
    for (const Algorithm& algorithm : algorithms()) {
        if (wanted(algorithm.kind)) shown.push_back(&algorithm);
    }
    if (options.json) {
        JsonWriter json(stdout);
        json.beginArray();
        for (const Algorithm* algorithm : shown) writeAlgorithm(json, *algorithm);
        json.endArray();
        return kDone;
    }
    for (const Algorithm* algorithm : shown) {
        fmt::print("{} - {} ({})\n", slugOf(*algorithm), algorithm->name, nameOf(algorithm->kind));
        for (const Parameter& parameter : algorithm->parameters) printParameter(parameter);
    }
    return kDone;
}

} // namespace kv

// `kelvane plugins`: the audio effects that are installed, and what can be set about one.
#include <fmt/format.h>

#include "base/run_context.h"
#include "base/text.h"
#include "plugins/effect.h"
#include "shell/kelvane/commands.h"
#include "shell/kelvane/json_writer.h"
#include "shell/kelvane/terminal_ui.h"

namespace kv {
namespace {

std::string rangeText(const EffectParameter& parameter) {
    if (parameter.toggled) return fmt::format("0|1, {}", parameter.defaultValue > 0 ? 1 : 0);
    const auto bound = [](f32 value) { return std::isfinite(value) ? fmt::format("{:.6g}", value) : ""; };
    return fmt::format("{}..{}, {:.6g}{}{}", bound(parameter.minimum), bound(parameter.maximum),
                       parameter.defaultValue, parameter.integer ? ", integer" : "",
                       parameter.logarithmic ? ", logarithmic" : "");
}

void printEffect(const EffectInfo& effect) {
    fmt::print("{:<6} {:<44} {} ({} in, {} out)", nameOf(effect.kind), effect.id, effect.name,
               effect.inputs.size(), effect.outputs.size());
    fmt::print("{}{}\n", effect.needs.empty() ? "" : ": can't be used, needs ", effect.needs);
}

void printDetails(const EffectInfo& effect) {
    printEffect(effect);
    if (!effect.maker.empty()) fmt::print("    by {}\n", effect.maker);
    for (const EffectParameter& parameter : effect.parameters) {
        fmt::print("    {} ({}): {}\n", parameter.symbol, rangeText(parameter), parameter.label);
        for (const ScalePoint& point : parameter.scalePoints)
            fmt::print("        {}: {}\n", point.value, point.label);
    }
}

void writeParameter(JsonWriter& json, const EffectParameter& parameter) {
    json.beginObject();
    json.value("symbol", std::string_view(parameter.symbol));
    json.value("label", std::string_view(parameter.label));
    json.value("least", parameter.minimum);
    json.value("most", parameter.maximum);
    json.value("initial", parameter.defaultValue);
    json.value("toggled", parameter.toggled);
    json.value("integer", parameter.integer);
    json.value("logarithmic", parameter.logarithmic);
    if (!parameter.scalePoints.empty()) {
        json.beginArray("scalePoints");
        for (const ScalePoint& point : parameter.scalePoints) {
            json.beginObject();
            json.value("value", point.value);
            json.value("label", std::string_view(point.label));
            json.endObject();
        }
        json.endArray();
    }
    json.endObject();
}

void writeEffect(JsonWriter& json, const EffectInfo& effect, bool details) {
    json.beginObject();
    json.value("kind", nameOf(effect.kind));
    json.value("id", std::string_view(effect.id));
    json.value("name", std::string_view(effect.name));
    json.value("maker", std::string_view(effect.maker));
    json.value("inputs", effect.inputs.size());
    json.value("outputs", effect.outputs.size());
    json.value("usable", effect.needs.empty());
    if (!effect.needs.empty()) json.value("needs", std::string_view(effect.needs));
    if (details) {
        json.value("reportsLatency", effect.latencyPort >= 0);
        json.beginArray("parameters");
        for (const EffectParameter& parameter : effect.parameters) writeParameter(json, parameter);
        json.endArray();
    }
    json.endObject();
}

} // namespace

int runPlugins(const PluginsOptions& options, TerminalUi& ui) {
    const std::shared_ptr<const EffectList> list = installedEffects();
    const bool details = !options.name.empty();
    std::vector<const EffectInfo*> shown;
    if (details) {
        shown = list->find(options.name);
    } else {
        for (const EffectInfo& effect : list->effects) shown.push_back(&effect);
    }
    if (!details && !ui.quiet()) {
        for (const std::string& problem : list->problems) fmt::print(stderr, "warning: {}\n", problem);
    }
    if (details && shown.empty()) {
        Fail(kEffectContext, "There is no effect \"{}\"; `kelvane plugins` lists them", options.name);
        return reportFailure();
    }
    if (options.json) {
        JsonWriter json(stdout);
        json.beginArray();
        for (const EffectInfo* effect : shown) writeEffect(json, *effect, details);
        json.endArray();
        return kDone;
    }
    for (const EffectInfo* effect : shown) details ? printDetails(*effect) : printEffect(*effect);
    return kDone;
}

} // namespace kv

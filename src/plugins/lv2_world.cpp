#include "plugins/lv2_world.h"

#include <fmt/format.h>
#include <lv2/options/options.h>
#include <lv2/port-props/port-props.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/run_context.h"
#include "plugins/effect.h"
#include "plugins/effect_wire.h"
#include "plugins/lv2_features.h"

namespace kv {
namespace {

constexpr f32 kUnbounded = std::numeric_limits<f32>::infinity();

std::string textOf(const LilvNode* node) {
    const char* const text = node ? lilv().node_as_string(node) : nullptr;
    return text ? cleanText(text) : std::string();
}

/// The number in a node, or what stands for none.
f32 numberOf(const LilvNode* node, f32 otherwise) {
    if (!node || !(lilv().node_is_float(node) || lilv().node_is_int(node))) return otherwise;
    return lilv().node_as_float(node);
}

std::vector<ScalePoint> scalePointsOf(const LilvPlugin& plugin, const LilvPort& port) {
    std::vector<ScalePoint> points;
    LilvScalePoints* const all = lilv().port_get_scale_points(&plugin, &port);
    if (!all) return points;
    for (LilvIter* i = lilv().scale_points_begin(all); !lilv().scale_points_is_end(all, i);
         i = lilv().scale_points_next(all, i)) {
        const LilvScalePoint* const point = lilv().scale_points_get(all, i);
        const f32 value = numberOf(lilv().scale_point_get_value(point), kUnbounded);
        if (std::isfinite(value)) points.push_back({value, textOf(lilv().scale_point_get_label(point))});
    }
    lilv().scale_points_free(all);
    std::sort(points.begin(), points.end(),
              [](const ScalePoint& a, const ScalePoint& b) { return a.value < b.value; });
    return points;
}

/// "http://lv2plug.in/ns/ext/worker#schedule" is "worker#schedule".
std::string_view shortName(std::string_view uri) {
    return uri.substr(uri.rfind('/') + 1);
}

void addNeed(std::string& needs, std::string_view name) {
    needs += fmt::format("{}{}", needs.empty() ? "" : ", ", name);
}

} // namespace

Lv2World::Lv2World() : world_(lilv().world_new()) {
    lilv().world_load_all(world_);
    audio_ = node(LILV_URI_AUDIO_PORT);
    control_ = node(LILV_URI_CONTROL_PORT);
    atom_ = node(LILV_URI_ATOM_PORT);
    input_ = node(LILV_URI_INPUT_PORT);
    output_ = node(LILV_URI_OUTPUT_PORT);
    optional_ = node(LV2_CORE__connectionOptional);
    toggled_ = node(LV2_CORE__toggled);
    integer_ = node(LV2_CORE__integer);
    logarithmic_ = node(LV2_PORT_PROPS__logarithmic);
    perSampleRate_ = node(LV2_CORE__sampleRate);
}

Lv2World::~Lv2World() {
    for (LilvNodePtr* node : {&audio_, &control_, &atom_, &input_, &output_, &optional_, &toggled_, &integer_,
                              &logarithmic_, &perSampleRate_})
        node->reset();
    lilv().world_free(world_);
}

LilvNodePtr Lv2World::node(const char* uri) const {
    return LilvNodePtr(lilv().new_uri(world_, uri));
}

std::vector<const LilvPlugin*> Lv2World::plugins() const {
    std::vector<const LilvPlugin*> plugins;
    const LilvPlugins* const all = lilv().world_get_all_plugins(world_);
    for (LilvIter* i = lilv().plugins_begin(all); !lilv().plugins_is_end(all, i);
         i = lilv().plugins_next(all, i))
        plugins.push_back(lilv().plugins_get(all, i));
    return plugins;
}

const LilvPlugin* Lv2World::find(const std::string& uri) const {
    const LilvNodePtr wanted = node(uri.c_str());
    return wanted ? lilv().plugins_get_by_uri(lilv().world_get_all_plugins(world_), wanted.get()) : nullptr;
}

Lv2World::PortRole Lv2World::roleOf(const LilvPlugin& plugin, const LilvPort& port) const {
    const auto isA = [&](const LilvNodePtr& kind) { return lilv().port_is_a(&plugin, &port, kind.get()); };
    const bool in = isA(input_), out = isA(output_);
    const bool optional = lilv().port_has_property(&plugin, &port, optional_.get());
    if (in != out && isA(control_)) return in ? PortRole::ControlIn : PortRole::ControlOut;
    if (optional) return PortRole::Unconnected;
    if (in != out && isA(audio_)) return in ? PortRole::AudioIn : PortRole::AudioOut;
    if (in != out && isA(atom_)) return in ? PortRole::AtomIn : PortRole::AtomOut;
    return PortRole::Unknown;
}

std::string Lv2World::needsOf(const LilvPlugin& plugin) const {
    std::string needs;
    for (const char* predicate : {LV2_CORE__requiredFeature, LV2_OPTIONS__requiredOption}) {
        const LilvNodesPtr all(lilv().plugin_get_value(&plugin, node(predicate).get()));
        for (LilvIter* i = lilv().nodes_begin(all.get()); !lilv().nodes_is_end(all.get(), i);
             i = lilv().nodes_next(all.get(), i)) {
            const std::string uri = textOf(lilv().nodes_get(all.get(), i));
            if (!isOfferedToLv2(uri)) addNeed(needs, shortName(uri));
        }
    }
    return needs;
}

/// Takes the port's words; bounds and default come in with those of the other ports.
EffectParameter Lv2World::describeControl(const LilvPlugin& plugin, const LilvPort& port, u32 index) const {
    const auto has = [&](const LilvNodePtr& property) {
        return lilv().port_has_property(&plugin, &port, property.get());
    };
    EffectParameter parameter;
    parameter.port = index;
    parameter.symbol = textOf(lilv().port_get_symbol(&plugin, &port));
    parameter.label = textOf(LilvNodePtr(lilv().port_get_name(&plugin, &port)).get());
    parameter.toggled = has(toggled_);
    parameter.integer = has(integer_);
    parameter.logarithmic = has(logarithmic_);
    parameter.scalePoints = scalePointsOf(plugin, port);
    return parameter;
}

std::optional<EffectInfo> Lv2World::describe(const LilvPlugin& plugin, f64 sampleRate) const {
    EffectInfo effect;
    effect.kind = EffectKind::Lv2;
    effect.id = textOf(lilv().plugin_get_uri(&plugin));
    effect.name = textOf(LilvNodePtr(lilv().plugin_get_name(&plugin)).get());
    effect.maker = textOf(LilvNodePtr(lilv().plugin_get_author_name(&plugin)).get());
    effect.needs = needsOf(plugin);
    const u32 ports = lilv().plugin_get_num_ports(&plugin);
    std::vector<f32> minima(ports), maxima(ports), defaults(ports);
    lilv().plugin_get_port_ranges_float(&plugin, minima.data(), maxima.data(), defaults.data());
    for (u32 i = 0; i < ports; ++i) {
        const LilvPort& port = *lilv().plugin_get_port_by_index(&plugin, i);
        const PortRole role = roleOf(plugin, port);
        if (role == PortRole::AudioIn) effect.inputs.push_back(i);
        if (role == PortRole::AudioOut) effect.outputs.push_back(i);
        if (role == PortRole::Unknown) addNeed(effect.needs, fmt::format("port {}", i + 1));
        if (role != PortRole::ControlIn) continue;
        EffectParameter parameter = describeControl(plugin, port, i);
        const bool scaled = lilv().port_has_property(&plugin, &port, perSampleRate_.get());
        const f32 scale = scaled ? static_cast<f32>(sampleRate) : 1.0F;
        const auto value = [](f32 stated, f32 otherwise) { return std::isnan(stated) ? otherwise : stated; };
        parameter.minimum = value(minima[i] * scale, parameter.toggled ? 0 : -kUnbounded);
        parameter.maximum = value(maxima[i] * scale, parameter.toggled ? 1 : kUnbounded);
        parameter.defaultValue = parameter.limited(value(defaults[i] * scale, 0));
        effect.parameters.push_back(std::move(parameter));
    }
    const auto oneOrTwo = [](const std::vector<u32>& some) { return some.size() == 1 || some.size() == 2; };
    if (!oneOrTwo(effect.inputs) || !oneOrTwo(effect.outputs)) return {};
    if (lilv().plugin_has_latency(&plugin))
        effect.latencyPort = static_cast<i32>(lilv().plugin_get_latency_port_index(&plugin));
    return effect;
}

} // namespace kv

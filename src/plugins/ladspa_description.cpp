#include "plugins/ladspa_description.h"

#include <dlfcn.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "base/text.h"

namespace kv {
namespace {

constexpr f32 kUnbounded = std::numeric_limits<f32>::infinity();
constexpr unsigned long kMaxPorts = 10000;

/// A value between two bounds; by ratio where the hint says so and both allow it.
f32 between(f32 low, f32 high, f32 part, bool logarithmic) {
    if (logarithmic && low > 0 && high > 0)
        return std::exp(std::log(low) * (1 - part) + std::log(high) * part);
    return low * (1 - part) + high * part;
}

/// What the effect starts with. Without a hint it is 0 or the bound next to it.
f32 defaultOf(const EffectParameter& parameter, LADSPA_PortRangeHintDescriptor hint) {
    const auto within = [&](f32 part) {
        return between(parameter.minimum, parameter.maximum, part, parameter.logarithmic);
    };
    switch (hint & LADSPA_HINT_DEFAULT_MASK) {
        case LADSPA_HINT_DEFAULT_MINIMUM:
            return parameter.minimum;
        case LADSPA_HINT_DEFAULT_LOW:
            return within(0.25F);
        case LADSPA_HINT_DEFAULT_MIDDLE:
            return within(0.5F);
        case LADSPA_HINT_DEFAULT_HIGH:
            return within(0.75F);
        case LADSPA_HINT_DEFAULT_MAXIMUM:
            return parameter.maximum;
        case LADSPA_HINT_DEFAULT_1:
            return 1;
        case LADSPA_HINT_DEFAULT_100:
            return 100;
        case LADSPA_HINT_DEFAULT_440:
            return 440;
        default:
            return 0;
    }
}

EffectParameter describe(const LADSPA_PortRangeHint& range, std::string_view label, u32 port,
                         f64 sampleRate) {
    const LADSPA_PortRangeHintDescriptor hint = range.HintDescriptor;
    const f32 scale = LADSPA_IS_HINT_SAMPLE_RATE(hint) ? static_cast<f32>(sampleRate) : 1.0F;
    EffectParameter parameter;
    parameter.label = label;
    parameter.port = port;
    parameter.toggled = LADSPA_IS_HINT_TOGGLED(hint) != 0;
    parameter.integer = LADSPA_IS_HINT_INTEGER(hint) != 0;
    parameter.logarithmic = LADSPA_IS_HINT_LOGARITHMIC(hint) != 0;
    parameter.minimum = LADSPA_IS_HINT_BOUNDED_BELOW(hint) ? range.LowerBound * scale : -kUnbounded;
    parameter.maximum = LADSPA_IS_HINT_BOUNDED_ABOVE(hint) ? range.UpperBound * scale : kUnbounded;
    if (parameter.toggled) {
        parameter.minimum = 0;
        parameter.maximum = 1;
    }
    const f32 value = defaultOf(parameter, hint);
    parameter.defaultValue = parameter.limited(std::isfinite(value) ? value : 0);
    return parameter;
}

/// Gives each parameter a symbol of its own.
void nameParameters(std::vector<EffectParameter>& parameters) {
    for (auto one = parameters.begin(); one != parameters.end(); ++one) {
        const std::string word = effectSymbol(one->label);
        one->symbol = word.empty() ? fmt::format("port_{}", one->port) : word;
        const bool taken = std::any_of(parameters.begin(), one, [&](const EffectParameter& other) {
            return other.symbol == one->symbol;
        });
        if (taken) one->symbol += fmt::format("_port_{}", one->port);
    }
}

bool complete(const LADSPA_Descriptor& descriptor) {
    const bool hasPorts = descriptor.PortDescriptors && descriptor.PortNames && descriptor.PortRangeHints;
    return descriptor.Label && descriptor.instantiate && descriptor.connect_port && descriptor.run &&
           descriptor.cleanup && hasPorts && descriptor.PortCount <= kMaxPorts;
}

std::string_view textOf(const char* text) {
    return text ? std::string_view(text) : std::string_view();
}

} // namespace

std::optional<EffectInfo> describeLadspa(const LADSPA_Descriptor& descriptor, const std::string& library,
                                         u32 index, f64 sampleRate) {
    if (!complete(descriptor)) return {};
    EffectInfo effect;
    effect.id = fmt::format("ladspa:{}:{}", std::filesystem::path(library).stem().string(), descriptor.Label);
    effect.name = textOf(descriptor.Name ? descriptor.Name : descriptor.Label);
    effect.maker = textOf(descriptor.Maker);
    effect.library = library;
    effect.index = index;
    for (u32 port = 0; port < descriptor.PortCount; ++port) {
        const LADSPA_PortDescriptor kind = descriptor.PortDescriptors[port];
        const std::string_view label = textOf(descriptor.PortNames[port]);
        if (LADSPA_IS_PORT_AUDIO(kind)) {
            (LADSPA_IS_PORT_INPUT(kind) ? effect.inputs : effect.outputs).push_back(port);
        } else if (LADSPA_IS_PORT_INPUT(kind)) {
            effect.parameters.push_back(describe(descriptor.PortRangeHints[port], label, port, sampleRate));
        } else if (equalIgnoringCase(label, "latency") || equalIgnoringCase(label, "_latency")) {
            effect.latencyPort = static_cast<i32>(port); // a custom of hosts, not of the header
        }
    }
    const auto oneOrTwo = [](const std::vector<u32>& ports) {
        return ports.size() == 1 || ports.size() == 2;
    };
    if (!oneOrTwo(effect.inputs) || !oneOrTwo(effect.outputs)) return {};
    nameParameters(effect.parameters);
    return effect;
}

LADSPA_Descriptor_Function openLadspa(const std::string& library) {
    void* const handle = ::dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    void* const function = handle ? ::dlsym(handle, "ladspa_descriptor") : nullptr;
    return reinterpret_cast<LADSPA_Descriptor_Function>(function);
}

} // namespace kv

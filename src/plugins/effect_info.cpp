#include "plugins/effect_info.h"

#include <algorithm>
#include <cmath>

#include "base/text.h"

namespace kv {
namespace {

std::string_view labelOf(const EffectInfo& effect) {
    return std::string_view(effect.id).substr(effect.id.rfind(effect.kind == EffectKind::Lv2 ? '/' : ':') +
                                              1);
}

} // namespace

std::string_view nameOf(EffectKind kind) {
    return kind == EffectKind::Ladspa ? "LADSPA" : "LV2";
}

f32 EffectParameter::limited(f32 value) const {
    if (integer || toggled) value = std::round(value);
    return std::max(minimum, std::min(value, maximum));
}

std::vector<const EffectInfo*> EffectList::find(std::string_view text) const {
    using Matches = bool (*)(const EffectInfo&, std::string_view);
    constexpr Matches kWays[] = {
        [](const EffectInfo& effect, std::string_view id) { return effect.id == id; },
        [](const EffectInfo& effect, std::string_view name) { return equalIgnoringCase(effect.name, name); },
        [](const EffectInfo& effect, std::string_view label) {
            return equalIgnoringCase(labelOf(effect), label);
        },
    };
    std::vector<const EffectInfo*> found;
    for (const Matches matches : kWays) {
        for (const EffectInfo& effect : effects) {
            if (matches(effect, text)) found.push_back(&effect);
        }
        if (!found.empty()) break;
    }
    return found;
}

std::string effectSymbol(std::string_view label) {
    std::string symbol;
    for (const char c : toLower(label)) {
        const bool kept = (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9');
        if (kept)
            symbol += c;
        else if (!symbol.empty() && symbol.back() != '_')
            symbol += '_';
    }
    while (symbol.ends_with('_')) symbol.pop_back();
    return symbol;
}

} // namespace kv

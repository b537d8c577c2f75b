#include "plugins/effect.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>

#include "base/run_context.h"
#include "plugins/effect_run.h"
#include "plugins/ladspa_instance.h"
#include "plugins/lv2_world.h"
#include "plugins/stdout_guard.h"

namespace kv {
namespace {

constexpr u32 kLeastRate = 1000, kMostRate = 1'000'000; ///< Hz; plug-ins count on something usual

bool isNumber(std::string_view text, f32& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return error == std::errc() && end == text.data() + text.size() && std::isfinite(value);
}

/// Several effects by their ids, or one.
bool onlyOne(const std::vector<const EffectInfo*>& found, std::string_view wanted,
             std::optional<EffectKind> kind) {
    if (found.size() == 1) return true;
    if (found.empty())
        return Fail(kEffectContext, "There is no {}effect \"{}\"; `kelvane plugins` lists them",
                    kind ? fmt::format("{} ", nameOf(*kind)) : "", wanted);
    std::string ids;
    for (const EffectInfo* effect : found) ids += fmt::format("{}{}", ids.empty() ? "" : ", ", effect->id);
    return Fail(kEffectContext, "\"{}\" names several effects: {}", wanted, ids);
}

/// What `wanted` names, with bounds and defaults for the sample rate.
std::optional<EffectInfo> findEffect(std::string_view wanted, u32 sampleRate,
                                     std::optional<EffectKind> kind) {
    const bool isUri = wanted.find(':') != wanted.npos;
    if (isUri && kind != EffectKind::Ladspa) { // spares the list, for which lilv reads all bundles
        std::optional<EffectInfo> effect = lv2AtRate(std::string(wanted), sampleRate);
        if (effect) return effect;
    }
    const std::shared_ptr<const EffectList> list = installedEffects(kind);
    const std::vector<const EffectInfo*> found = list->find(wanted);
    if (kind == EffectKind::Lv2 && !lilv().library.ready(kEffectContext)) return {};
    if (!onlyOne(found, wanted, kind)) return {};
    const EffectInfo& listed = *found.front();
    return listed.kind == EffectKind::Ladspa ? ladspaAtRate(listed, sampleRate)
                                             : lv2AtRate(listed.id, sampleRate);
}

} // namespace

bool Effect::setParameter(std::string_view symbol, f32 value) {
    const auto found =
        std::find_if(info_.parameters.begin(), info_.parameters.end(),
                     [&](const EffectParameter& parameter) { return parameter.symbol == symbol; });
    if (found == info_.parameters.end())
        return Fail(kEffectContext, "\"{}\" has no parameter \"{}\"; `kelvane plugins \"{}\"` lists them",
                    info_.name, symbol, info_.id);
    constexpr f32 kRounding = 1e-5F; // bounds are shown with six digits
    if (!(value >= found->minimum - std::abs(found->minimum) * kRounding &&
          value <= found->maximum + std::abs(found->maximum) * kRounding))
        return Fail(kEffectContext, "\"{}\" must be a number from {:.6g} to {:.6g}", symbol, found->minimum,
                    found->maximum);
    values_[found->port] = found->limited(value);
    return true;
}

bool Effect::setParameters(std::string_view text) {
    constexpr std::string_view kSpaces = " \t\r\n";
    for (;;) {
        text.remove_prefix(std::min(text.find_first_not_of(kSpaces), text.size()));
        if (text.empty()) return true;
        const std::string_view word = text.substr(0, text.find_first_of(kSpaces));
        text.remove_prefix(word.size());
        const std::size_t equals = word.find('=');
        f32 value = 0;
        if (equals == word.npos || !isNumber(word.substr(equals + 1), value))
            return Fail(kEffectContext, "\"{}\" is no setting as SYMBOL=NUMBER", word);
        if (!setParameter(word.substr(0, equals), value)) return false;
    }
}

bool Effect::process(std::span<const f32> in, u32 channels, Tail tail, SampleBuffer<f32>& out) const {
    const bool mono = info_.inputs.size() == 1 && info_.outputs.size() == 1;
    if (channels == 0 || (channels > 2 && !mono))
        return Fail(kEffectContext, "\"{}\" can't work on {} channels", info_.name, channels);
    const StdoutGuard guard;
    try {
        std::vector<std::unique_ptr<EffectInstance>> instances;
        for (u32 i = 0; i < (mono ? channels : 1); ++i) {
            auto instance = info_.kind == EffectKind::Ladspa ? startLadspa(info_, sampleRate_)
                                                             : startLv2(info_, sampleRate_);
            if (!instance) return false;
            for (const auto& [port, value] : values_) instance->setControl(port, value);
            instance->start();
            instances.push_back(std::move(instance));
        }
        return EffectRun(info_, instances, {in, channels}, sampleRate_).run(tail, out);
    } catch (...) { // out of an effect written in C++; there is nothing to be learned from it
        return Fail(kEffectContext, "\"{}\" failed", info_.name);
    }
}

std::optional<Effect> createEffect(std::string_view wanted, u32 sampleRate, std::optional<EffectKind> kind) {
    if (sampleRate < kLeastRate || sampleRate > kMostRate) {
        Fail(kEffectContext, "Effects work on sample rates from {} to {} Hz", kLeastRate, kMostRate);
        return {};
    }
    const StdoutGuard guard; // libraries are opened here
    std::optional<EffectInfo> info = findEffect(wanted, sampleRate, kind);
    if (!info) return {};
    if (!info->needs.empty()) {
        Fail(kEffectContext, "\"{}\" needs what isn't offered here: {}", info->name, info->needs);
        return {};
    }
    return Effect(std::move(*info), sampleRate);
}

} // namespace kv

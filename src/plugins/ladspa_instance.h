// LADSPA effects at work.
#pragma once

#include <optional>

#include "plugins/effect_instance.h"

namespace kv {

/// A listed effect with bounds and defaults for a sample rate in Hz. Opens its library here. Nothing with the
/// error pair set when the library isn't what it was when it was listed.
std::optional<EffectInfo> ladspaAtRate(const EffectInfo& listed, u32 sampleRate);

/// Null with the error pair set on failure. `effect` is one of `ladspaAtRate`.
std::unique_ptr<EffectInstance> startLadspa(const EffectInfo& effect, u32 sampleRate);

} // namespace kv

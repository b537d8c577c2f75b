// What a LADSPA library says of its effects, by the rules of ladspa.h 1.1.
#pragma once

#include <ladspa.h>

#include <filesystem>
#include <optional>

#include "plugins/effect_info.h"

namespace kv {

/// The effect with bounds and defaults for a sample rate in Hz; nothing when it has no audio inputs or
/// outputs, or more than two, or when the descriptor lacks what every one must have.
std::optional<EffectInfo> describeLadspa(const LADSPA_Descriptor& descriptor, const std::string& library,
                                         u32 index, f64 sampleRate);

/// A library, opened to stay: some crash when they are closed. Null when there is no descriptor function or
/// the library can't be opened.
LADSPA_Descriptor_Function openLadspa(const std::string& library);

} // namespace kv

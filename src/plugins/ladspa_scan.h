// Asks LADSPA libraries for their effects. That is native code of others, run by merely opening it, so it is
// done in a process of its own, which may crash or hang.
#pragma once

#include <chrono>
#include <span>

#include "plugins/effect_info.h"

namespace kv {

/// The libraries in the folders of LADSPA_PATH, or in the usual ones without it, each once.
std::vector<std::string> ladspaLibraries();

/// The effects of libraries in their order, with bounds and defaults for 44.1 kHz. A library that can't be
/// opened, crashes or takes longer than `patience` adds no effect but a problem.
EffectList scanLadspa(std::span<const std::string> libraries, std::chrono::milliseconds patience);

} // namespace kv

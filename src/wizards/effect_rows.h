// Rows of the algorithms that run effects of other makers. They keep the names that users know from
// elsewhere: where DirectShow filters ran there run LADSPA effects here, and LV2 effects for VST plug-ins.
#pragma once

#include "wizards/algorithm.h"

namespace kv {

inline constexpr Parameter kEffect[] = {
    {.kind = ParameterKind::Text, .slug = "effect", .label = "Effect:"},
    {.kind = ParameterKind::Text, .slug = "settings", .label = "Settings:"},
    {.kind = ParameterKind::Switch, .slug = "tail", .label = "Let the effect fade out after the end"},
};
bool runLadspa(AlgorithmRun& run);
bool runLv2(AlgorithmRun& run);

} // namespace kv

// Effects on waves.
#pragma once

#include "plugins/effect.h"

namespace kv {

class Wave;

struct EffectStep {
    std::string effect;                  ///< id, name or label
    std::string settings = {};           ///< "symbol=value symbol=value"
    std::optional<EffectKind> kind = {}; ///< only of this kind
};

/// Runs effects, one after the other, over the frames [from, to) of a wave, cut to it. The samples are float
/// afterwards and the file can't bring them back. A tail is kept only when the frames reach to the wave's
/// end, which moves. False with the error pair set, and the wave's samples as they were, on failure.
bool runEffects(Wave& wave, std::span<const EffectStep> steps, Tail tail = Tail::Cut, u32 from = 0,
                u32 to = UINT32_MAX);

} // namespace kv

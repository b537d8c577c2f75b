// What writers of loops and markers have in common.
#pragma once

#include <string_view>

#include "base/integers.h"

namespace kv {

class Wave;

/// Notes that `field` of the wave gets lost.
void noteLoss(const Wave& wave, std::string_view field, std::string_view why);

struct FrameLoop {
    u32 start = 0, end = 0; ///< frames; the end is exclusive
};
/// The wave's loop in whole frames within `frames`. Its length is rounded by itself, as the pitch of a short
/// loop hangs on it; what the rounding takes away is noted as lost.
FrameLoop wholeLoop(const Wave& wave, u32 frames);

} // namespace kv

// Telling the user what a target format can't hold.
#pragma once

#include "base/integers.h"

namespace kv {

class Wave;

/// What of a wave besides its samples a format keeps.
enum WaveKeeps : u32 {
    kKeepsRate = 1,
    kKeepsLoop = 2,
    kKeepsTuning = 4, ///< root key, fine tune and gain
    kKeepsTexts = 8,
    kKeepsCues = 16,
};

/// Notes as lost what the wave has and the format, by `keeps`, has no place for.
void reportLosses(const Wave& wave, u32 keeps);

} // namespace kv

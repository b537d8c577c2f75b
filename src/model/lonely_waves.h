// Instruments for waves that none plays.
#pragma once

#include "base/integers.h"

namespace kv {

/// Gives each wave that no instrument plays one of its own, with the wave's name, over all keys and
/// velocities, on the next free patch. Answers how many, and tells so on the status line.
u32 AutoCreateInstruments();

} // namespace kv

// Waves that no instrument plays, and waves that are there twice.
#pragma once

#include "base/integers.h"

namespace kv {

/// Gives each wave that no instrument plays one of its own, with the wave's name, over all keys and
/// velocities, on the next free patch. Answers how many, and tells so on the status line.
u32 AutoCreateInstruments();

/// Deletes waves that no region of an instrument plays; answers how many. Songs don't count. Asks first
/// when the user wants to be asked.
u32 DeleteUnusedWaves(u64& bytesFreed);

/// Deletes waves whose samples and playing are those of an earlier one, which then stands in for them, and
/// keeps the name that sorts first. Answers how many. Asks first when the user wants to be asked.
u32 DeleteDuplicateWaves(u64& bytesFreed);

} // namespace kv

// Writing SoundFont banks, of version 2 and version 1.
#pragma once

#include "base/file_context.h"

namespace kv {

class Item;

/// The collection, or one instrument, layer, region or wave as a bank of its own.
bool sf2_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);
bool sbk_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

} // namespace kv

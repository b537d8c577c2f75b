// Media files with one audio track.
#pragma once

#include "base/file_context.h"

namespace kv {

class Item;

/// Writes a wave: "Compressed" at about `bitRate` kbit/s (0: the wave's own, or one that suits its rate), or
/// as 16 or 24 bits where the kind has them. `subType` is the MediaKind. The sink is patched.
bool media_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

} // namespace kv

// WavPack files, through libwavpack.
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;
class Item;

/// Texts come from tags, loops, tuning and markers from the chunks of the WAV file that was packed.
bool wv_Imp(Collection& collection, FileContext& file, u32 subType);

/// Writes a wave without loss. Unpacking gives a WAV file with what tags can't hold.
bool wv_Exp(Item& item, FileContext& file, u32 formatWord, u32 subType, bool perWave, f32 bitRate);

} // namespace kv

// SoundFont banks into the store: version 2 (with its packed relatives) and version 1.
#pragma once

#include "base/file_context.h"

namespace kv {

class Collection;

bool sf2_Imp(Collection& collection, FileContext& file, u32 subType);
bool sbk_Imp(Collection& collection, FileContext& file, u32 subType);
/// Unpacks an sfArk archive in memory, where its waves then stay.
bool sfark_Imp(Collection& collection, FileContext& file, u32 subType);

} // namespace kv
